// What dumps are made of, without a VM: cells, ids, field slots, records.
#include "bridge/DumpedObjects.h"
#include "bridge/FieldSlots.h"
#include "bridge/ReferenceRecords.h"
#include "bridge/TransientIds.h"

#include <cstring>
#include <map>
#include <thread>

#include <gtest/gtest.h>

namespace bridge {
namespace {

// ---- Cells and dumped objects -----------------------------------------------------------------

TEST(HeapCells, keepClassSizeAndType) {
    HeapCells cells;
    ASSERT_TRUE(cells.add(HeapCells::pack(7, 24, JVMPI_NORMAL_OBJECT)));
    ASSERT_TRUE(cells.add(HeapCells::pack(0x3FFFFFFF, 16, JVMPI_LONG)));
    ASSERT_EQ(2U, cells.size());
    EXPECT_EQ(7U, cells[0].classId);
    EXPECT_EQ(24, cells[0].size());
    EXPECT_EQ(JVMPI_NORMAL_OBJECT, cells[0].type());
    EXPECT_EQ(0x3FFFFFFFU, cells[1].classId);
    EXPECT_EQ(16, cells[1].size());
    EXPECT_EQ(JVMPI_LONG, cells[1].type());
    cells[1].setType(JVMPI_CLASS);
    EXPECT_EQ(JVMPI_CLASS, cells[1].type());
    EXPECT_EQ(16, cells[1].size());
}

TEST(HeapCells, aSizeBeyondTheInterfaceIsTheLargestThatFits) {
    EXPECT_EQ(0x7FFFFFF0, HeapCells::pack(1, 0x7FFFFFF0, JVMPI_BYTE).size());
    EXPECT_EQ(0x7FFFFFF8, HeapCells::pack(1, 0x7FFFFFF8, JVMPI_BYTE).size());
    EXPECT_EQ(0x7FFFFFF8, HeapCells::pack(1, jlong{1} << 40, JVMPI_BYTE).size());
}

TEST(HeapCells, growBlockByBlockWithoutMoving) {
    HeapCells cells;
    constexpr size_t kCount = 2 * HeapCells::kBlockCells + 3;
    for (size_t i = 0; i < kCount; i++)
        ASSERT_TRUE(cells.add(HeapCells::pack(static_cast<uint32_t>(i), 8, 0)));
    const HeapCells::Cell* first = &cells[0];
    EXPECT_EQ(kCount, cells.size());
    EXPECT_EQ(3 * HeapCells::kBlockCells * sizeof(HeapCells::Cell), cells.bytes());
    for (size_t i = 0; i < kCount; i++) ASSERT_EQ(i, cells[i].classId);
    ASSERT_TRUE(cells.add(HeapCells::pack(1, 8, 0)));
    EXPECT_EQ(first, &cells[0]);
    cells.clear();
    EXPECT_EQ(0U, cells.size());
    EXPECT_EQ(0U, cells.bytes());
    ASSERT_TRUE(cells.add(HeapCells::pack(9, 8, 0)));
    EXPECT_EQ(9U, cells[0].classId);
}

// Cells of the classes 10 to 12, the middle one unknown, and two objects that have ids.
std::shared_ptr<DumpedHeap> heapFrom(uint32_t first) {
    auto heap = std::make_shared<DumpedHeap>();
    for (const uint32_t classId : {10U, 0U, 12U}) heap->cells.add(HeapCells::pack(classId, 16, 0));
    heap->first = first;
    heap->count = 3;
    heap->known = {{5, HeapCells::pack(20, 32, 0)}, {0x40000001, HeapCells::pack(21, 40, 2)}};
    return heap;
}

TEST(DumpedHeap, findsObjectsByTheirPlaceAndThoseWithIdsByTheirId) {
    const auto heap = heapFrom(0x60000000);
    ASSERT_NE(nullptr, heap->find(0x60000000));
    EXPECT_EQ(10U, heap->find(0x60000000)->classId);
    EXPECT_EQ(nullptr, heap->find(0x60000001)); // its class was not known
    EXPECT_EQ(12U, heap->find(0x60000002)->classId);
    EXPECT_EQ(nullptr, heap->find(0x60000003));
    EXPECT_EQ(nullptr, heap->find(0x5FFFFFFF));
    EXPECT_EQ(20U, heap->find(5)->classId);
    EXPECT_EQ(21U, heap->find(0x40000001)->classId);
    EXPECT_EQ(nullptr, heap->find(4));
    EXPECT_EQ(nullptr, heap->find(0));
}

TEST(DumpedObjects, answerUntilTheRegistryIsEmptied) {
    DumpedObjects dumps;
    HeapCells::Cell cell{};
    EXPECT_FALSE(dumps.find(0x60000000, cell));
    dumps.add(heapFrom(0x60000000));
    ASSERT_TRUE(dumps.find(0x60000002, cell));
    EXPECT_EQ(12U, cell.classId);
    EXPECT_FALSE(dumps.find(0x60000001, cell));
    dumps.forget();
    EXPECT_FALSE(dumps.find(0x60000002, cell));
    dumps.add(heapFrom(0x61000000));
    EXPECT_FALSE(dumps.find(0x60000002, cell));
    EXPECT_TRUE(dumps.find(0x61000002, cell));
}

TEST(DumpedObjects, giveTheMemoryOfForgottenDumpsBackWhenSwept) {
    DumpedObjects dumps;
    auto heap = heapFrom(0x60000000);
    const std::weak_ptr<DumpedHeap> watch = heap;
    dumps.add(std::move(heap));
    dumps.sweep();
    EXPECT_FALSE(watch.expired());
    dumps.forget();
    EXPECT_FALSE(watch.expired()); // not inside the collection
    dumps.sweep();
    EXPECT_TRUE(watch.expired());
}

TEST(DumpedObjects, keepTheLastFewOnly) {
    DumpedObjects dumps;
    for (uint32_t i = 0; i <= DumpedObjects::kMost; i++) dumps.add(heapFrom(0x60000000 + i * 16));
    HeapCells::Cell cell{};
    EXPECT_FALSE(dumps.find(0x60000000, cell));
    EXPECT_TRUE(dumps.find(0x60000010, cell));
}

TEST(DumpedObjects, aDeliveryIsItsThreadsOwnAndNests) {
    EXPECT_EQ(nullptr, DumpedObjects::Delivery::current());
    const auto outer = heapFrom(0x60000000);
    const auto inner = heapFrom(0x61000000);
    auto* env = reinterpret_cast<JNIEnv*>(uintptr_t{64});
    {
        const DumpedObjects::Delivery first(*outer, env);
        {
            const DumpedObjects::Delivery second(*inner, nullptr);
            EXPECT_EQ(inner.get(), &DumpedObjects::Delivery::current()->heap());
        }
        EXPECT_EQ(outer.get(), &DumpedObjects::Delivery::current()->heap());
        EXPECT_EQ(env, DumpedObjects::Delivery::current()->env());
        std::thread([] { EXPECT_EQ(nullptr, DumpedObjects::Delivery::current()); }).join();
    }
    EXPECT_EQ(nullptr, DumpedObjects::Delivery::current());
}

// ---- Field slots ------------------------------------------------------------------------------

// Interfaces 1 (two fields) and 2 (extends 1, one field); class 3 (two references, a static one
// between them and a primitive) implements 2; class 4 extends 3 and implements 1 and 2.
FlatMap<uint32_t, ClassTies> someTies() {
    FlatMap<uint32_t, ClassTies> ties;
    ties.put(1, {0, {}, "Ss"});
    ties.put(2, {0, {1}, "S"});
    ties.put(3, {0, {2}, "RSrR"});
    ties.put(4, {3, {1, 2}, "rSRsS"});
    return ties;
}

TEST(FieldSlots, interfacesFirstEachOnceThenSuperclassesThenTheClass) {
    const auto ties = someTies();
    FieldSlots slots(ties);
    const FieldSlots::Row& three = slots.instance(3);
    EXPECT_EQ((std::vector<int32_t>{-1, -1, -1, 0, -1, -1, 1}), three.slots);
    EXPECT_EQ(2U, three.references);
    const FieldSlots::Row& four = slots.instance(4);
    EXPECT_EQ((std::vector<int32_t>{-1, -1, -1, 0, -1, -1, 1, -1, -1, 2, -1, -1}), four.slots);
    EXPECT_EQ(3U, four.references);
    EXPECT_EQ(2, four.slotOf(9));
    EXPECT_EQ(-1, four.slotOf(12));
    EXPECT_EQ(-1, four.slotOf(-1));
}

TEST(FieldSlots, staticsAreTheClassesOwnBehindWhatItInherits) {
    const auto ties = someTies();
    const FieldSlots slots(ties);
    EXPECT_EQ((std::vector<int32_t>{0, -1}), slots.statics(1).slots);
    EXPECT_EQ((std::vector<int32_t>{-1, -1, 0}), slots.statics(2).slots);
    const FieldSlots::Row four = slots.statics(4);
    EXPECT_EQ((std::vector<int32_t>{-1, -1, -1, -1, -1, -1, -1, -1, 0, -1, -1, 1}), four.slots);
    EXPECT_EQ(2U, four.references);
}

TEST(FieldSlots, anUnknownClassHasNone) {
    const auto ties = someTies();
    FieldSlots slots(ties);
    EXPECT_EQ(0U, slots.instance(99).references);
    EXPECT_TRUE(slots.statics(99).slots.empty());
}

TEST(FieldSlots, tiesThatRunInACircleEnd) {
    FlatMap<uint32_t, ClassTies> ties;
    ties.put(1, {2, {1}, "R"});
    ties.put(2, {1, {}, "R"});
    FieldSlots slots(ties);
    EXPECT_EQ(2U, slots.instance(1).references);
}

// ---- Records ----------------------------------------------------------------------------------

constexpr uint32_t kRoot = 1, kClassClass = 2, kInterface = 3, kNode = 4, kNodes = 5, kLongs = 6;
constexpr uint32_t kTarget = 0x40000000;

class Records : public testing::Test {
protected:
    Records() {
        add(kRoot, "java/lang/Object", "", 0);
        add(kClassClass, "java/lang/Class", "", 0);
        add(kInterface, "a/I", "S", 0);
        add(kNode, "a/Node", "RSrR", 1);
        add(kNodes, "[La/Node;", "", 0);
        add(kLongs, "[J", "", 0);
    }
    void add(uint32_t id, const char* name, const char* fields, jint interfaces) {
        ClassDescription description;
        description.name = name;
        description.fields = fields;
        description.interfaces = interfaces;
        classes_[id] = ClassRecord::make(id, description);
        objects_.push_back({id, kClassClass, -1});
    }
    uint32_t object(uint32_t id, uint32_t classId, jint length = -1) {
        objects_.push_back({id, classId, length});
        return static_cast<uint32_t>(objects_.size() - 1);
    }
    void refer(uint32_t from, jvmtiHeapReferenceKind kind, jint index, uint32_t to) {
        references_.push_back({from, kind, index, to});
    }
    // The records, the classes of the fixture left out unless wanted.
    std::string written(bool withClasses = false) {
        ReferenceRecords records({
            [this](uint32_t id) {
                const auto known = classes_.find(id);
                return known == classes_.end() ? nullptr : known->second;
            },
            [](uint32_t id) { return id == kNodes ? kNode : 0; },
            [](uint32_t id, char* to, size_t bytes) {
                if (id == kTarget + 9) memset(to, 0x5A, bytes);
            },
        });
        std::string all = records.write(objects_, references_);
        return withClasses ? all : all.substr(0, all.find('\x20'));
    }
    // Without those of the two class objects of the fixture that have static references.
    std::string writtenOfObjects() { return written().substr(size_t{2} * (1 + 12 + 4)); }
    static std::string id(uint32_t value) {
        return std::string(reinterpret_cast<const char*>(&value), sizeof value);
    }
    static std::string count(uint32_t value) {
        std::string text;
        for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(value >> shift);
        return text;
    }

    std::map<uint32_t, ClassRecord::Pointer> classes_;
    std::vector<ReferenceWalk::Object> objects_;
    std::vector<ReferenceWalk::Reference> references_;
};

TEST_F(Records, anInstanceHasAllItsReferencesNullsIncludedInTheFieldsOrder) {
    refer(3, JVMTI_HEAP_REFERENCE_INTERFACE, 0, kInterface);
    const uint32_t node = object(kTarget + 1, kNode);
    // The interface's field is number 0; the VM tells them in an order of its own.
    refer(node, JVMTI_HEAP_REFERENCE_FIELD, 4, kTarget);
    object(kTarget + 2, kNode);
    EXPECT_EQ("\x21" + id(kTarget + 1) + id(kNode) + count(8) + id(0) + id(kTarget) + "\x21" +
                  id(kTarget + 2) + id(kNode) + count(8) + id(0) + id(0),
              writtenOfObjects());
}

TEST_F(Records, anArrayOfObjectsHasEveryElement) {
    const uint32_t array = object(kTarget + 1, kNodes, 3);
    refer(array, JVMTI_HEAP_REFERENCE_ARRAY_ELEMENT, 2, kTarget);
    refer(array, JVMTI_HEAP_REFERENCE_ARRAY_ELEMENT, 3, kTarget); // beyond its end: not believed
    EXPECT_EQ("\x22" + id(kTarget + 1) + count(3) + id(kNode) + id(0) + id(0) + id(kTarget),
              writtenOfObjects());
}

TEST_F(Records, anArrayOfPrimitivesHasItsElementsBytes) {
    object(kTarget + 9, kLongs, 2);
    EXPECT_EQ("\x23" + id(kTarget + 9) + count(2) + "\x0B" + std::string(3, '\0') +
                  std::string(16, '\x5A'),
              writtenOfObjects());
}

TEST_F(Records, aClassObjectIsAnInstanceWithItsStaticReferencesToo) {
    refer(3, JVMTI_HEAP_REFERENCE_INTERFACE, 0, kInterface);
    refer(3, JVMTI_HEAP_REFERENCE_STATIC_FIELD, 2, kTarget);
    EXPECT_EQ("\x21" + id(kInterface) + id(kClassClass) + count(4) + id(0) + "\x21" + id(kNode) +
                  id(kClassClass) + count(4) + id(kTarget),
              written());
}

TEST_F(Records, aClassHasWhatItsReaderStepsOver) {
    objects_.erase(objects_.begin() + 4, objects_.end());
    objects_.erase(objects_.begin() + 1, objects_.begin() + 3); // left: root, node
    refer(1, JVMTI_HEAP_REFERENCE_CLASS_LOADER, 0, kTarget + 3);
    refer(1, JVMTI_HEAP_REFERENCE_INTERFACE, 0, kInterface);
    refer(1, JVMTI_HEAP_REFERENCE_CONSTANT_POOL, 0x1234, kRoot);
    refer(1, JVMTI_HEAP_REFERENCE_STATIC_FIELD, 1, kTarget);
    const std::string nothing(12, '\0');
    EXPECT_EQ("\x21" + id(kNode) + id(kClassClass) + count(4) + id(kTarget) + "\x20" + id(kRoot) +
                  id(0) + id(0) + id(0) + id(0) + nothing + std::string(2, '\0') + "\x20" +
                  id(kNode) + id(kRoot) + id(kTarget + 3) + id(0) + id(0) + nothing +
                  id(kInterface) + std::string("\0\1\x12\x34\2", 5) + id(kRoot) + id(kTarget),
              written(true));
}

TEST_F(Records, whatHasGoneAndClassesThatAreNotKnownAreLeftOut) {
    object(0, kNode);
    object(kTarget + 1, 77, 4);
    objects_.push_back({78, kClassClass, -1});
    EXPECT_EQ("\x21" + id(kInterface) + id(kClassClass) + count(4) + id(0) + "\x21" + id(kNode) +
                  id(kClassClass) + count(4) + id(0),
              written());
}

TEST(ElementSizes, areThoseOfTheTypes) {
    const std::map<jint, size_t> sizes = {
        {JVMPI_BOOLEAN, 1}, {JVMPI_BYTE, 1},  {JVMPI_CHAR, 2},          {JVMPI_SHORT, 2},
        {JVMPI_INT, 4},     {JVMPI_FLOAT, 4}, {JVMPI_LONG, 8},          {JVMPI_DOUBLE, 8},
        {JVMPI_CLASS, 0},   {-1, 0},          {JVMPI_NORMAL_OBJECT, 0}, {JVMPI_LONG + 1, 0}};
    for (const auto& [type, size] : sizes)
        EXPECT_EQ(size, ReferenceRecords::elementSize(type)) << type;
}

} // namespace
} // namespace bridge
