// Who refers to an object: the walk of level-1 dumps, and the way from Java to Java.
#include "tests/vm/collector/CollectorTest.h"

#include "collector/ReferenceFinderHeapDumpHandler.h"
#include "runtime/PRBJavaClass.h"

using scripted::DumpBuilder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

using Handler = PRBWorkloadCollector::ReferenceFinderHeapDumpHandler;

jobjectID id(std::uintptr_t value) { return reinterpret_cast<jobjectID>(value); }

constexpr std::uintptr_t kTarget = 0x7001;
constexpr std::uintptr_t kOther = 0x7002;

class References : public CollectorTest {
public:
    // The ids that a walk of the bytes finds, in order.
    std::vector<std::uintptr_t> walk(const std::vector<char>& bytes,
                                     std::vector<jobjectID> targets = {id(kTarget)}) {
        PRBSlist results;
        Handler handler(vm.env(), nullptr, &results, targets.data(),
                        static_cast<int>(targets.size()));
        // A block of exactly the dump's size, so that a sanitizer sees a read beyond it.
        std::vector<char> copy(bytes);
        copy.shrink_to_fit();
        JVMPI_Event event{};
        event.event_type = JVMPI_EVENT_HEAP_DUMP;
        event.u.heap_dump.dump_level = 1;
        event.u.heap_dump.begin = copy.data();
        event.u.heap_dump.end = copy.data() + copy.size();
        handler.handleHeapDump(&event);
        std::vector<std::uintptr_t> found;
        while (auto* item = static_cast<Handler::FoundReferenceObject*>(results.get())) {
            EXPECT_EQ(item->isA(), 32677);
            found.push_back(reinterpret_cast<std::uintptr_t>(item->getId()));
            delete item;
        }
        return found;
    }
    // The record is stepped over as a whole: the instance behind it is found.
    void expectStep(DumpBuilder record) {
        record.instance(id(0x51), id(0x52), {id(kTarget)});
        EXPECT_THAT(walk(record.bytes()), ElementsAre(0x51));
    }

    // What the native answers for the targets, as an array of the class.
    std::optional<std::vector<scripted::ScriptedObject*>>
    referrers(const std::vector<scripted::ScriptedObject*>& targets,
              const std::string& resultClass = "java/lang/Object") {
        std::optional<std::vector<scripted::ScriptedObject*>> found;
        vm.callNative([&] {
            jobjectArray array =
                vm.local<jobjectArray>(vm.mainThread(), &vm.newObjectArray(targets));
            auto* cls = static_cast<jclass>(
                vm.newLocalRef(vm.mainThread(), vm.findClass(resultClass)->mirror));
            jobject answer = NATIVE(Profiler, getReferencesToObjectsNative)(vm.env(), nullptr,
                                                                            handle, array, cls);
            if (answer != nullptr) found = vm.resolve(answer)->elements;
        });
        return found;
    }
};

// ---- the steps of the walk ----

TEST_F(References, everyRootRecordIsSteppedOver) {
    init();
    expectStep(DumpBuilder().rootJniGlobal(id(kTarget), nullptr));
    expectStep(DumpBuilder().rootJniLocal(id(kTarget), nullptr, 0));
    expectStep(DumpBuilder().rootJavaFrame(id(kTarget), nullptr, 0));
    expectStep(DumpBuilder().rootNativeStack(id(kTarget), nullptr));
    expectStep(DumpBuilder().rootStickyClass(id(kTarget)));
    expectStep(DumpBuilder().rootThreadBlock(id(kTarget), nullptr));
    expectStep(DumpBuilder().rootMonitorUsed(id(kTarget)));
}

TEST_F(References, stepSizesAreThoseOfTheRecords) {
    init();
    for (auto [tag, size] : {std::pair<unsigned, std::size_t>{0x01, 8},
                             {0x02, 12},
                             {0x03, 12},
                             {0x04, 8},
                             {0x05, 4},
                             {0x06, 8},
                             {0x07, 4}}) {
        DumpBuilder exact;
        // Filled with a tag that would be read as a record if the step were too short.
        exact.u1(tag);
        for (std::size_t i = 0; i < size; ++i) exact.u1(0x23);
        expectStep(exact);
    }
}

TEST_F(References, ofAnUnknownTagOnlyTheTagIsTaken) {
    init();
    for (unsigned tag : {0x00U, 0x08U, 0x1FU, 0x24U, 0x7FU, 0xFFU}) {
        expectStep(DumpBuilder().u1(tag));
        expectStep(DumpBuilder().u1(tag).u1(tag).u1(tag));
    }
}

TEST_F(References, anInstanceThatRefersToTargetsIsFoundOnce) {
    init();
    DumpBuilder dump;
    dump.instance(id(1), id(9), {id(5), id(kTarget), id(kTarget), id(kOther)})
        .instance(id(2), id(9), {id(5)})
        .instance(id(3), id(9), {})
        .instance(id(4), id(9), {id(kOther)})
        .instance(id(kTarget), id(9), {id(3)});
    EXPECT_THAT(walk(dump.bytes()), ElementsAre(1));
    EXPECT_THAT(walk(dump.bytes(), {id(kOther), id(kTarget)}), ElementsAre(1, 4));
    EXPECT_THAT(walk(dump.bytes(), {}), IsEmpty());
}

TEST_F(References, anArrayThatHoldsATargetIsFoundOnce) {
    init();
    DumpBuilder dump;
    dump.objectArray(id(1), id(9), {nullptr, id(kTarget), id(kTarget)})
        .objectArray(id(2), id(9), {nullptr})
        .objectArray(id(3), id(9), {})
        .objectArray(id(4), id(kTarget), {id(8)}) // the class is no element
        .objectArray(id(5), id(9), {id(kTarget)});
    EXPECT_THAT(walk(dump.bytes()), ElementsAre(1, 5));
}

TEST_F(References, foundObjectsComeInTheOrderOfTheDump) {
    init();
    DumpBuilder dump;
    std::vector<std::uintptr_t> expected;
    for (std::uintptr_t i = 500; i > 400; --i) {
        dump.instance(id(i), id(9), {id(kTarget)});
        expected.push_back(i);
    }
    EXPECT_EQ(walk(dump.bytes()), expected);
}

TEST_F(References, moreTargetsThanAreComparedOneByOneGiveTheSameAnswers) {
    init();
    std::vector<jobjectID> targets;
    for (std::uintptr_t i = 0; i < 1000; ++i) targets.push_back(id(0x10000 + i * 8));
    DumpBuilder dump;
    for (std::uintptr_t i = 0; i < 8000; ++i) dump.instance(id(i + 1), id(9), {id(0x10000 + i)});
    const auto found = walk(dump.bytes(), targets);
    ASSERT_EQ(found.size(), 1000U);
    for (std::size_t i = 0; i < found.size(); ++i) EXPECT_EQ(found[i], i * 8 + 1);
}

TEST_F(References, theTestOfOneIdSearchesTheTargets) {
    PRBSlist results;
    jobjectID targets[] = {id(5), id(0xFFFFFFF0)};
    Handler handler(nullptr, nullptr, &results, targets, 2);
    EXPECT_TRUE(handler.testObjectID(id(5)));
    EXPECT_TRUE(handler.testObjectID(id(0xFFFFFFF0)));
    EXPECT_FALSE(handler.testObjectID(id(6)));
    EXPECT_FALSE(handler.testObjectID(nullptr));
}

TEST_F(References, countsAreBigEndian) {
    EXPECT_EQ(Handler::convertToLittleEndian(std::uint16_t{0x0102}), 0x0201);
    EXPECT_EQ(Handler::convertToLittleEndian(std::uint32_t{0x01020304}), 0x04030201U);
    init();
    DumpBuilder dump;
    dump.u1(0x21).id(id(1)).id(id(9)).u1(0).u1(0).u1(1).u1(4).zeros(256).id(id(kTarget));
    EXPECT_THAT(walk(dump.bytes()), ElementsAre(1));
}

TEST_F(References, primitiveArraysAreSteppedOverByTheirElementSize) {
    init("debug=PUBLIC");
    const std::map<int, std::size_t> sizes = {{4, 1}, {5, 2}, {6, 4},  {7, 8},
                                              {8, 1}, {9, 2}, {10, 4}, {11, 8}};
    for (auto [type, size] : sizes) {
        DumpBuilder record;
        record.u1(0x23).id(id(1)).u4(300).u1(static_cast<unsigned>(type)).zeros(3);
        record.zeros(300 * size);
        expectStep(record);
    }
    for (unsigned type : {0U, 1U, 2U, 3U, 12U, 255U}) {
        DumpBuilder record;
        record.instance(id(1), id(9), {id(kTarget)});
        record.u1(0x23).id(id(1)).u4(0).u1(type).zeros(3);
        record.instance(id(2), id(9), {id(kTarget)});
        EXPECT_THAT(walk(record.bytes()), ElementsAre(1)) << type;
        char line[80];
        std::snprintf(line, sizeof line, "Got undefined pArrayDumpPrefix->ElementType = %X", type);
        EXPECT_EQ(logCount(line), 1U) << line;
    }
}

// ---- classes ----

TEST_F(References, aClassIsSteppedOverByItsInterfacesConstantsAndStaticReferences) {
    init();
    auto& super = vm.addClass({.name = "com/x/Base"});
    vm.addClass({.name = "com/x/A"});
    vm.addClass({.name = "com/x/B"});
    auto& cls = vm.addClass(
        {.name = "com/x/Order",
         .statics = {{"count", "I"}, {"first", "Lcom/x/Order;"}, {"all", "[J"}, {"big", "J"}},
         .interfaces = {"com/x/A", "com/x/B"},
         .superclass = "com/x/Base"});
    vm.loadClass(cls);
    vm.loadClass(super);
    DumpBuilder record;
    record.u1(0x20).id(cls.id()).id(super.id()).zeros(24); // 32 bytes
    record.zeros(2 * 4);                                   // interfaces
    record.u2(3).zeros(3 * 7);                             // constants
    record.id(id(kTarget)).id(id(kTarget));                // statics: references only
    expectStep(record);
    EXPECT_EQ(monitor().getClassForClassID(cls.id())->getSuperClass(), super.id());
}

TEST_F(References, aClassThatTheAgentDoesNotKnowIsAskedFor) {
    init();
    auto& cls = vm.addClass({.name = "com/x/Late"});
    vm.recorder().clear();
    expectStep(DumpBuilder().classDump(cls.id(), nullptr, {}, 0, {}));
    EXPECT_EQ(vm.recorder().count("RequestEvent"), 1U);
}

TEST_F(References, aClassThatTheVmDoesNotKnowEndsTheWalk) {
    init("debug=PUBLIC");
    const jobjectID unknown = vm.unknownId();
    DumpBuilder dump;
    dump.instance(id(1), id(9), {id(kTarget)});
    dump.classDump(unknown, nullptr, {}, 0, {});
    dump.instance(id(2), id(9), {id(kTarget)});
    EXPECT_THAT(walk(dump.bytes()), ElementsAre(1));
    char line[80];
    std::snprintf(line, sizeof line, "Unable to locate pClassDumpPrefix->TheClass = %X",
                  static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(unknown)));
    EXPECT_EQ(logCount(line), 1U);
}

// ---- malformed dumps ----

TEST_F(References, aDumpCutAnywhereGivesWhatWasFoundBefore) {
    init();
    auto& cls = vm.addClass({.name = "com/x/Order",
                             .statics = {{"first", "Lcom/x/Order;"}},
                             .interfaces = {"java/lang/Object"}});
    vm.loadClass(cls);
    DumpBuilder first;
    first.instance(id(1), id(9), {id(kTarget)});
    const std::size_t whole = first.bytes().size();
    DumpBuilder dump = first;
    dump.classDump(cls.id(), nullptr, {id(3)}, 2, {id(4)})
        .rootJniLocal(id(1), nullptr, 0)
        .primitiveArray(id(5), 11, 3)
        .objectArray(id(6), id(9), {id(kTarget), id(7)})
        .instance(id(8), id(9), {id(5), id(kTarget)});
    EXPECT_THAT(walk(dump.bytes()), ElementsAre(1, 6, 8));
    for (std::size_t length = 0; length < dump.bytes().size(); ++length) {
        const std::vector<char> cut(dump.bytes().begin(),
                                    dump.bytes().begin() + static_cast<long>(length));
        const auto found = walk(cut);
        EXPECT_EQ(!found.empty() && found[0] == 1, length >= whole) << length;
        EXPECT_LE(found.size(), 2U);
    }
}

TEST_F(References, impossibleCountsEndTheWalk) {
    init();
    const unsigned most = 0xFFFFFFFF;
    DumpBuilder found;
    found.instance(id(1), id(9), {id(kTarget)});
    for (int kind = 0; kind < 4; ++kind) {
        DumpBuilder dump = found;
        if (kind == 0) dump.u1(0x21).id(id(2)).id(id(9)).u4(most);
        if (kind == 1) dump.u1(0x22).id(id(2)).u4(most).id(id(9));
        if (kind == 2) dump.u1(0x23).id(id(2)).u4(most).u1(11).zeros(3);
        if (kind == 3) dump.u1(0x23).id(id(2)).u4(0x20000000).u1(11).zeros(3);
        dump.id(id(kTarget)).id(id(kTarget)).zeros(64);
        EXPECT_THAT(walk(dump.bytes()), ElementsAre(1)) << kind;
    }
}

TEST_F(References, aDumpWithoutBytesIsNoDump) {
    init();
    EXPECT_THAT(walk({}), IsEmpty());
    PRBSlist results;
    jobjectID target = id(kTarget);
    Handler handler(nullptr, nullptr, &results, &target, 1);
    handler.handleHeapDump(nullptr);
    JVMPI_Event event{};
    handler.handleHeapDump(&event);
    char byte = 0x21;
    event.u.heap_dump.begin = &byte + 1;
    event.u.heap_dump.end = &byte;
    handler.handleHeapDump(&event);
    EXPECT_EQ(results.entries(), 0U);
}

TEST_F(References, randomBytesAreSurvived) {
    init();
    unsigned seed = 1;
    const auto next = [&] { return seed = seed * 1103515245U + 12345U; };
    const char tags[] = {0x01, 0x05, 0x20, 0x21, 0x22, 0x23, 0x00, 0x7F};
    for (int round = 0; round < 2000; ++round) {
        std::vector<char> bytes(next() >> 16 & 0xFF);
        for (char& byte : bytes)
            byte = (next() >> 16) % 4 == 0 ? tags[(next() >> 16) % 8]
                                           : static_cast<char>((next() >> 16) % 3);
        walk(bytes, {id(1), id(2), id(0x01010101)});
    }
}

// ---- from Java to Java ----

TEST_F(References, theRequestIsOfLevelOneAndTheHandlerIsTakenAway) {
    init();
    auto& target = vm.newObject("java/lang/Object");
    vm.recorder().clear();
    PRBHeapDumpHandler* during = nullptr;
    vm.setDumpHook([&] {
        during = monitor().registerHeapDumpHandler(nullptr);
        monitor().registerHeapDumpHandler(during);
    });
    ASSERT_TRUE(referrers({&target}).has_value());
    EXPECT_NE(during, nullptr);
    EXPECT_EQ(monitor().registerHeapDumpHandler(nullptr), nullptr);
    EXPECT_EQ(vm.recorder().textsOf({"RequestEvent"})[0], "RequestEvent(37, level 1)");
    EXPECT_EQ(vm.recorder().count("PushLocalFrame(16)"), 1U);
}

TEST_F(References, theReferrersComeBackInOrderAsAnArray) {
    init();
    auto& cls = vm.addClass({.name = "com/x/Order"});
    auto& target = vm.newObject(cls);
    auto& a = vm.newObject(cls);
    auto& b = vm.newObject(cls);
    DumpBuilder dump;
    dump.instance(b.id, cls.id(), {target.id}).instance(a.id, cls.id(), {target.id});
    vm.setDump(1, dump.bytes());
    EXPECT_EQ(referrers({&target}, "com/x/Order"),
              (std::vector<scripted::ScriptedObject*>{&b, &a}));
}

TEST_F(References, manyReferrersAndTargetsFitTheFrame) {
    init();
    auto& cls = vm.addClass({.name = "com/x/Order"});
    std::vector<scripted::ScriptedObject*> targets, all;
    DumpBuilder dump;
    for (int i = 0; i < 300; ++i) {
        targets.push_back(&vm.newObject(cls));
        all.push_back(&vm.newObject(cls));
        dump.instance(all.back()->id, cls.id(), {targets.back()->id});
    }
    vm.setDump(1, dump.bytes());
    EXPECT_EQ(referrers(targets), all);
}

TEST_F(References, nullTargetsAreLeftOut) {
    init();
    auto& cls = vm.addClass({.name = "com/x/Order"});
    auto& a = vm.newObject(cls);
    auto& target = vm.newObject(cls);
    auto& b = vm.newObject(cls);
    DumpBuilder dump;
    dump.instance(a.id, cls.id(), {nullptr}).instance(b.id, cls.id(), {nullptr, target.id});
    vm.setDump(1, dump.bytes());
    EXPECT_EQ(referrers({nullptr, &target, nullptr}), (std::vector<scripted::ScriptedObject*>{&b}));
    EXPECT_EQ(referrers({nullptr}), std::vector<scripted::ScriptedObject*>{});
    EXPECT_EQ(referrers({}), std::vector<scripted::ScriptedObject*>{});
}

TEST_F(References, nullArgumentsAnswerNull) {
    init();
    vm.callNative([&] {
        EXPECT_EQ(NATIVE(Profiler, getReferencesToObjectsNative)(vm.env(), nullptr, handle, nullptr,
                                                                 nullptr),
                  nullptr);
        auto array = vm.local<jobjectArray>(vm.mainThread(), &vm.newObjectArray({}));
        EXPECT_EQ(NATIVE(Profiler, getReferencesToObjectsNative)(vm.env(), nullptr, handle, array,
                                                                 nullptr),
                  nullptr);
    });
}

TEST_F(References, aRefusedDumpGivesAnEmptyArray) {
    init();
    auto& target = vm.newObject("java/lang/Object");
    for (std::intptr_t answer : {-1, 1, 7}) {
        vm.recorder().failNext("RequestEvent", answer);
        EXPECT_EQ(referrers({&target}), std::vector<scripted::ScriptedObject*>{});
    }
    EXPECT_EQ(monitor().registerHeapDumpHandler(nullptr), nullptr);
}

TEST_F(References, anArrayThatTheVmCannotMakeLeavesTheErrorForJava) {
    init();
    auto& target = vm.newObject("java/lang/Object");
    vm.recorder().failNext("NewObjectArray");
    EXPECT_FALSE(referrers({&target}).has_value());
    EXPECT_THAT(vm.exceptionLeft(), HasSubstr("java/lang/OutOfMemoryError"));
}

TEST_F(References, noLockOfTheAgentIsHeldWhileADumpIsWalked) {
    init();
    auto& cls = vm.addClass({.name = "com/x/Late"});
    auto& target = vm.newObject("java/lang/Object");
    DumpBuilder dump;
    dump.classDump(cls.id(), nullptr, {}, 0, {});
    vm.setDump(1, dump.bytes());
    vm.recorder().clear();
    referrers({&target});
    for (const scripted::Call& call : vm.recorder().calls(scripted::kJvmpi))
        for (const std::string& held : call.held) EXPECT_EQ(held, "_HeapDumpRequest") << call.text;
    EXPECT_EQ(vm.recorder().count("RequestEvent"), 2U);
}

} // namespace
