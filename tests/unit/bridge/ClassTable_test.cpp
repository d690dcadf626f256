#include "bridge/ClassTable.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "bridge/ClassReader.h"

namespace bridge {
namespace {

jmethodID method(uintptr_t number) { return reinterpret_cast<jmethodID>(number * 8); }

// Texts are copies that go away, as the VM's do.
struct Given {
    char name[16] = "a/B";
    char source[16] = "B.java";
    char texts[6][24] = {"run", "()V", "count", "I", "next", "La/B;"};
    ClassDescription description(uintptr_t firstMethod, size_t methods) {
        ClassDescription d;
        d.name = name;
        d.source = source;
        d.interfaces = 2;
        for (size_t i = 0; i < methods; i++)
            d.methods.push_back({texts[0], texts[1], -1, -1, method(firstMethod + i)});
        d.statics.push_back({texts[2], texts[3]});
        d.instances.push_back({texts[4], texts[5]});
        return d;
    }
};

ClassRecord::Pointer record(uint32_t id, uintptr_t firstMethod, size_t methods) {
    Given given;
    return ClassRecord::make(id, given.description(firstMethod, methods));
}

TEST(ClassRecord, keepsItsOwnCopyOfEverything) {
    auto given = std::make_unique<Given>();
    const ClassRecord::Pointer made = ClassRecord::make(77, given->description(5, 2));
    memset(given->name, 'x', sizeof given->name);
    memset(given->texts, 'x', sizeof given->texts);
    given.reset();

    JVMPI_Event event{};
    made->report(event);
    const auto& load = event.u.class_load;
    EXPECT_STREQ("a/B", load.class_name);
    EXPECT_STREQ("B.java", load.source_name);
    EXPECT_EQ(2, load.num_interfaces);
    ASSERT_EQ(2, load.num_methods);
    EXPECT_STREQ("run", load.methods[1].method_name);
    EXPECT_STREQ("()V", load.methods[1].method_signature);
    EXPECT_EQ(-1, load.methods[1].start_lineno);
    EXPECT_EQ(-1, load.methods[1].end_lineno);
    EXPECT_EQ(method(6), load.methods[1].method_id);
    ASSERT_EQ(1, load.num_static_fields);
    EXPECT_STREQ("count", load.statics[0].field_name);
    EXPECT_STREQ("I", load.statics[0].field_signature);
    ASSERT_EQ(1, load.num_instance_fields);
    EXPECT_STREQ("next", load.instances[0].field_name);
    EXPECT_STREQ("La/B;", load.instances[0].field_signature);
    EXPECT_EQ(reinterpret_cast<jobjectID>(uintptr_t{77}), load.class_id);
}

TEST(ClassRecord, aClassWithoutAnythingHasEmptyTexts) {
    const ClassRecord::Pointer made = ClassRecord::make(1, ClassDescription{});
    JVMPI_Event event{};
    made->report(event);
    EXPECT_STREQ("", event.u.class_load.class_name);
    EXPECT_STREQ("", event.u.class_load.source_name);
    EXPECT_EQ(0, event.u.class_load.num_methods);
}

TEST(ClassTable, findsClassesAndTheClassOfAMethod) {
    ClassTable table;
    table.put(record(1, 10, 3));
    table.put(record(2, 20, 2));
    EXPECT_EQ(1u, table.find(1)->id());
    EXPECT_EQ(nullptr, table.find(3));
    EXPECT_EQ(nullptr, table.find(0));
    EXPECT_EQ(1u, table.classOf(method(12)));
    EXPECT_EQ(2u, table.classOf(method(20)));
    EXPECT_EQ(0u, table.classOf(method(13)));
    EXPECT_EQ(0u, table.classOf(nullptr));
    EXPECT_EQ(2u, table.classes());
    EXPECT_EQ(5u, table.methods());
}

TEST(ClassTable, aClassThatIsPreparedReplacesWhatWasKnown) {
    ClassTable table;
    EXPECT_TRUE(table.putNew(record(1, 0, 0)));
    table.put(record(1, 10, 3));
    EXPECT_EQ(3u, table.find(1)->methodCount());
    EXPECT_EQ(1u, table.classOf(method(10)));
    EXPECT_FALSE(table.putNew(record(1, 0, 0)));
    EXPECT_EQ(3u, table.find(1)->methodCount());
}

TEST(ClassTable, anUnloadedClassIsGoneButItsRecordLivesWhileUsed) {
    ClassTable table;
    table.put(record(1, 10, 3));
    const ClassRecord::Pointer used = table.find(1);
    EXPECT_EQ(used, table.remove(1));
    EXPECT_EQ(nullptr, table.find(1));
    EXPECT_EQ(nullptr, table.remove(1));
    EXPECT_EQ(0u, table.classOf(method(10)));
    EXPECT_EQ(0u, table.methods());
    EXPECT_STREQ("a/B", used->name());
}

TEST(ClassTable, aMethodWhoseAddressIsUsedAgainStaysWithTheNewClass) {
    ClassTable table;
    table.put(record(1, 10, 2));
    table.put(record(2, 11, 1)); // the first class's unload has not been heard of yet
    table.remove(1);
    EXPECT_EQ(0u, table.classOf(method(10)));
    EXPECT_EQ(2u, table.classOf(method(11)));
}

TEST(ClassTable, churnLeavesNothingBehind) {
    ClassTable table;
    for (uint32_t id = 1; id <= 50; id++) table.put(record(id, id * 100, 10));
    const size_t bytes = table.bytes();
    for (uint32_t id = 51; id < 20000; id++) {
        table.remove(id - 50);
        table.put(record(id, id * 100, 10));
    }
    EXPECT_EQ(50u, table.classes());
    EXPECT_EQ(500u, table.methods());
    EXPECT_EQ(bytes, table.bytes());
}

TEST(ClassTable, aMethodCostsLessThan300Bytes) {
    ClassTable table;
    for (uint32_t id = 1; id <= 1000; id++) table.put(record(id, id * 100, 10));
    EXPECT_LT(table.bytes() / table.methods(), 300u);
}

TEST(ClassTable, lookUpsGoOnWhileClassesComeAndGo) {
    ClassTable table;
    table.put(record(1, 1, 5));
    std::atomic<bool> stop{false};
    std::atomic<uint32_t> wrong{0};
    std::thread readers[2];
    for (std::thread& reader : readers)
        reader = std::thread([&] {
            for (uint32_t i = 0; !stop; i++) {
                const uint32_t id = 2 + i % 50;
                const uint32_t owner = table.classOf(method(id * 100));
                if (owner != 0 && owner != id) wrong++;
                if (const ClassRecord::Pointer found = table.find(id))
                    if (strcmp(found->name(), "a/B") != 0) wrong++;
                if (table.classOf(method(1)) != 1) wrong++;
            }
        });
    for (uint32_t i = 0; i < 5000; i++) {
        const uint32_t id = 2 + i % 50;
        table.put(record(id, id * 100, 5));
        table.remove(2 + (i + 25) % 50);
    }
    stop = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(0u, wrong);
}

TEST(ClassReader, namesClassesAsTheProfilerInterfaceDoes) {
    const struct {
        const char* signature;
        const char* name;
    } rows[] = {
        {"Ljava/lang/String;", "java/lang/String"},
        {"LX;", "X"},
        {"[I", "[I"},
        {"[[Ljava/lang/String;", "[[Ljava/lang/String;"},
        {"I", "int"},
        {"Z", "boolean"},
        {"V", "void"},
        {"La/B$$Lambda$1.0x0000000800c03000;", "a/B$$Lambda$1.0x0000000800c03000"},
        {"", ""},
    };
    for (const auto& row : rows) EXPECT_EQ(row.name, ClassReader::nameOf(row.signature));
}

} // namespace
} // namespace bridge
