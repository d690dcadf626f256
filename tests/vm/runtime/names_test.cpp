// Names as the VM told them, whatever bytes they are made of.
#include "data/PRBCThreadSample.h"
#include "data/PRBContentionSample.h"
#include "data/PRBMethodUsageSample.h"
#include "tests/vm/runtime/RuntimeTest.h"

namespace {

using testing::HasSubstr;

std::string everyByte() {
    std::string all;
    for (int byte = 1; byte < 256; ++byte) all += static_cast<char>(byte);
    return all;
}

// None is empty, and each is another one.
std::vector<std::string> awkwardNames() {
    return {everyByte(),         "%s%n%99999d%*c%",
            "\xFF\xFE\x80",      // no encoding's text
            "\xC0\x80",          // the VM's zero
            "\xED\xA0\x80",      // half a character
            "line\r\nnext\tend", // would be two lines of a log
            "*?.,;:/\\\"'",      "../../etc/x",     " ", std::string(100000, 'n')};
}

// The start of a name, for messages.
std::string brief(const std::string& name) { return testing::PrintToString(name.substr(0, 40)); }

class Names : public RuntimeTest {
protected:
    PRBJavaThread& start(const std::string& name, const std::string& group,
                         const std::string& parent) {
        ScriptedThread& thread = vm.addThread({.name = name, .group = group, .parent = parent});
        vm.send.threadStart(thread);
        return *static_cast<PRBJavaThread*>(thread.localStorage());
    }
    // A class of the name with one method of that name and a signature that contains it.
    ScriptedClass& load(const std::string& name) {
        ScriptedClass& made =
            vm.addClass({.name = "com/x/" + name,
                         .source = name,
                         .methods = {{.name = name, .signature = "(L" + name + ";)V"}},
                         .statics = {{.name = name, .signature = name}}});
        vm.send.classLoad(vm.mainThread(), made);
        return made;
    }
};

TEST_F(Names, ofThreadsAreReportedByteForByte) {
    for (const std::string& name : awkwardNames()) {
        PRBJavaThread& model = start(name, "group " + name, name + " parent");
        EXPECT_TRUE(model.getName() == name) << brief(name);
        PRBCThreadSample sample;
        ASSERT_EQ(model.createSample(sample, 0, 0), 1);
        EXPECT_TRUE(sample.getStringData(301) == name) << brief(name);
        EXPECT_TRUE(sample.getStringData(302) == "group " + name) << brief(name);
        EXPECT_TRUE(sample.getStringData(303) == name + " parent") << brief(name);
    }
}

TEST_F(Names, ofClassesAndMethodsAreReportedByteForByte) {
    collect(PRBCollect::kMethods);
    auto [worker, model] = startThread("worker");
    for (const std::string& name : awkwardNames()) {
        ScriptedClass& cls = load(name);
        const jmethodID method = cls.methodId(name.c_str());
        EXPECT_STREQ(findClass(cls.id())->getSourceName(), name.c_str());
        vm.send.methodEntry(worker, method);
        compute(worker, 3000);
        vm.send.methodExit(worker, method);
        auto* record = recordOf(model, method);
        ASSERT_NE(record, nullptr) << brief(name);
        PRBMethodUsageSample usage;
        ASSERT_EQ(record->createSample(usage, 1, 2, 3), 1) << brief(name);
        PRBJavaThread::MonitorContentionEvent event(cls.id(), method);
        PRBContentionSample contention;
        ASSERT_EQ(event.createSample(contention, 1), 1) << brief(name);
        EXPECT_TRUE(usage.getStringData(10) == "com/x/" + name) << brief(name);
        EXPECT_TRUE(usage.getStringData(11) == name) << brief(name);
        EXPECT_TRUE(usage.getStringData(320) == "(L" + name + ";)V") << brief(name);
        EXPECT_TRUE(contention.getStringData(10) == "com/x/" + name) << brief(name);
        EXPECT_TRUE(contention.getStringData(11) == name) << brief(name);
        EXPECT_TRUE(contention.getStringData(320) == "(L" + name + ";)V") << brief(name);
        EXPECT_TRUE(contention.getStringData(330) == "com/x/" + name) << brief(name);
    }
}

// A wildcard is one in a mask; in a name it is a character like any other.
TEST_F(Names, withWildcardsInThemAreOnlyText) {
    ScriptedClass& star = load("A**");
    ScriptedClass& longer = load("Abc");
    PRBMaskLists::setClassMask("com/x/Abc");
    EXPECT_EQ(findClass(star.id())->shouldBeMonitored(), 1);
    EXPECT_EQ(findClass(longer.id())->shouldBeMonitored(), 0);
    PRBMaskLists::setMethodMask("com/x/Abc.Abc");
    EXPECT_EQ(findMethod(star.methodId("A**"))->shouldBeMonitored(), 1);
    EXPECT_EQ(findMethod(longer.methodId("Abc"))->shouldBeMonitored(), 0);
}

class NamesDebug : public Names {
    void SetUp() override { startAgent("debug=PUBLIC"); }
};

TEST_F(NamesDebug, areLoggedAsTheyAre) {
    const std::string formats = "%s%n%99999d%*c%";
    start(formats, everyByte(), std::string(3000, 'n'));
    const std::string log = readLog();
    EXPECT_THAT(log, HasSubstr(" Thread name " + formats + "\r\n"));
    // The dumps: every byte of the group, and as many lines as the parent has sixteens.
    EXPECT_THAT(log, HasSubstr("0000-01020304 05060708 090A0B0C 0D0E0F10"));
    EXPECT_THAT(log, HasSubstr("00F0-F1F2F3F4 F5F6F7F8 F9FAFBFC FDFEFF  "));
    EXPECT_THAT(log, HasSubstr("0BB0-6E6E6E6E 6E6E6E6E  "));
    EXPECT_THAT(log, testing::Not(HasSubstr("0BC0-")));
}

} // namespace
