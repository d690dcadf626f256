#include "core/InternalTraceTable.h"
#include "core/PRBCollections.h"
#include "core/PRBMonitorGlobal.h"
#include "core/PRBStartupOptions.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

extern "C" jint JVM_OnLoad(JavaVM*, char*, void*);
extern "C" jint JNI_OnLoad(JavaVM*, void*);

namespace {

struct Parsed {
    unsigned rc = 0;
    std::uint16_t port = 65535;
    int level = 0;
    bool hasFilter = false;
    std::vector<std::string> filter;
    std::string configFile;
};

Parsed parse(const std::string& text) {
    Parsed p;
    PRBSlist* list = nullptr;
    p.rc = PRBMonitorGlobal::parseStartupOptions(text.c_str(), &p.port, &p.level, &list,
                                                 &p.configFile);
    std::unique_ptr<PRBSlist> owner(list);
    if (list != nullptr) {
        p.hasFilter = true;
        PRBSlistIterator next(*list);
        while (PRBCollectable* item = next())
            p.filter.push_back(*static_cast<PRBCollectableString*>(item));
        list->clearAndDestroy();
    }
    return p;
}

using Texts = std::vector<std::string>;

} // namespace

TEST(StartupOptions, anEmptyTextLeavesTheDefaults) {
    const Parsed p = parse("");
    EXPECT_EQ(p.rc, 0u);
    EXPECT_EQ(p.port, 65535);
    EXPECT_EQ(p.level, 0);
    EXPECT_FALSE(p.hasFilter);
    EXPECT_EQ(p.configFile, "");
}

TEST(StartupOptions, portIsANumberOfSixteenBits) {
    struct {
        const char* text;
        std::uint16_t port;
    } const cases[] = {
        {"port=8080", 8080},   {"PORT=8080", 8080}, {"port=70000", 4464}, {"port=65536", 0},
        {"port=40000", 40000}, {"port=80a", 65535}, {"port=", 65535},     {"port=-1", 65535},
        {"port", 65535},       {",,port=1=2,", 1},  {"port=1,port=2", 2}, {"port=1,port=x", 1},
    };
    for (const auto& c : cases) {
        const Parsed p = parse(c.text);
        EXPECT_EQ(p.port, c.port) << c.text;
        EXPECT_EQ(p.rc, 0u) << c.text;
    }
    // As many digits as one likes: modulo 65536.
    EXPECT_EQ(parse("port=" + std::string(1000, '0') + "70000").port, 4464);
    EXPECT_EQ(parse("port=100000000000000000000000000").port, 0x0000u);
}

TEST(StartupOptions, debugSetsTheTraceLevel) {
    struct {
        const char* value;
        int level;
    } const cases[] = {
        {"INTERNAL", -1},
        {"internal", -1},
        {"YES", 0x1E00},
        {"yes", 0x1E00},
        {"MINOR", 0x1E00},
        {"PRIVATE", 0xE00},
        {"Restricted", 0x600},
        {"PUBLIC", 0x200},
        {"TEST", 0x200},
        {"no", 0},
        {"NO", 0},
    };
    for (const auto& c : cases) {
        const Parsed p = parse(std::string("debug=") + c.value);
        EXPECT_EQ(p.level, c.level) << c.value;
        EXPECT_EQ(p.rc, 0u) << c.value;
    }
    EXPECT_EQ(parse("debug=YES,debug=no").level, 0x1E00);
    EXPECT_EQ(parse("debug=verbose").rc, 121u);
    EXPECT_EQ(parse("debug=verbose").level, 0);
    EXPECT_EQ(parse("debug").rc, 121u);
}

TEST(StartupOptions, goesOnAfterAnErrorAndAnswersTheLast) {
    EXPECT_EQ(parse("bogus=1,port=1").rc, 122u);
    EXPECT_EQ(parse("bogus=1,port=1").port, 1);
    EXPECT_EQ(parse("bogus=1,debug=x").rc, 121u);
    EXPECT_EQ(parse("debug=x,bogus=1").rc, 122u);
    EXPECT_EQ(parse("debug=x,bogus=1,port=7").rc, 122u);
}

TEST(StartupOptions, filterIsANameOrAListInBrackets) {
    EXPECT_EQ(parse("filter=PRBC").filter, Texts{"PRBC"});
    EXPECT_EQ(parse("filter=(PRBCMNGL;PRBCJVTH/PRBCSAMP)").filter,
              (Texts{"PRBCMNGL", "PRBCJVTH", "PRBCSAMP"}));
    EXPECT_EQ(parse("filter={A;;B/}").filter, (Texts{"A", "B"}));
    EXPECT_EQ(parse("filter=").filter, Texts{""});
    for (const char* unclosed :
         {"filter=(A", "filter=(A}", "filter={A)", "filter=(", "filter=()"}) {
        EXPECT_TRUE(parse(unclosed).hasFilter) << unclosed;
        EXPECT_EQ(parse(unclosed).filter, Texts{}) << unclosed;
    }
    EXPECT_EQ(parse("filter=(A;B),filter=C").filter, Texts{"C"});
}

TEST(StartupOptions, configFileIsTakenAsItIs) {
    EXPECT_EQ(parse("workanalysisconfig=/x/y.xml,port=9").configFile, "/x/y.xml");
    EXPECT_EQ(parse("WorkAnalysisConfig=/X/100%s").configFile, "/X/100%s");
    EXPECT_EQ(parse("workanalysisconfig").configFile, "");
}

TEST(StartupOptions, keywordsWithoutATargetAreIgnored) {
    const PRBReturnCode rc = PRBMonitorGlobal::parseStartupOptions(
        "port=x,debug=x,filter=A,workanalysisconfig=/f", nullptr, nullptr, nullptr, nullptr);
    EXPECT_TRUE(rc.OK());
    EXPECT_EQ(PRBMonitorGlobal::parseStartupOptions("bogus", nullptr, nullptr, nullptr, nullptr),
              122u);
    EXPECT_TRUE(
        PRBMonitorGlobal::parseStartupOptions(nullptr, nullptr, nullptr, nullptr, nullptr).OK());
}

TEST(StartupOptions, anyBytesOfAnyLengthAreTaken) {
    std::string text;
    for (int i = 0; i < 200000; ++i) text += static_cast<char>(1 + i * 7 % 255);
    const Parsed p = parse(text);
    EXPECT_EQ(p.rc, 122u);
}

TEST(EntryPoints, onLoadKeepsACopyOfTheText) {
    EXPECT_EQ(PRBMonitorGlobal::getConfigFileFromStartupParms(), "");
    EXPECT_EQ(JVM_OnLoad(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(PRBMonitorGlobal::getConfigFileFromStartupParms(), "");
    char text[] = "workanalysisconfig=/x/y.xml,port=9";
    EXPECT_EQ(JVM_OnLoad(nullptr, text, nullptr), 0);
    text[20] = 'Z';
    EXPECT_EQ(PRBMonitorGlobal::getConfigFileFromStartupParms(), "/x/y.xml");
    EXPECT_EQ(JVM_OnLoad(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(PRBMonitorGlobal::getConfigFileFromStartupParms(), "/x/y.xml");
    char second[] = "debug=YES";
    EXPECT_EQ(JVM_OnLoad(nullptr, second, nullptr), 0);
    EXPECT_EQ(PRBMonitorGlobal::getConfigFileFromStartupParms(), "");
    EXPECT_FALSE(PRBMonitorGlobal::isProfilerActive());
    EXPECT_EQ(PRBMonitorGlobal::getMonitorGlobal(), nullptr);
}

TEST(EntryPoints, theConfigFileIsAllThatIsTakenFromTheKeptText) {
    InternalTraceTable lines(8, nullptr);
    PRBTrace::table.store(&lines);
    PRBMonitorGlobal::setStartupOptions("port=80a,debug=x,bogus,workanalysisconfig=/x.xml");
    EXPECT_EQ(PRBMonitorGlobal::getConfigFileFromStartupParms(), "/x.xml");
    PRBMonitorGlobal::setStartupOptions(nullptr); // leaves the text as it was
    EXPECT_EQ(PRBMonitorGlobal::getConfigFileFromStartupParms(), "/x.xml");
    PRBTrace::table.store(nullptr);
    EXPECT_EQ(lines.nextEntry(), lines.begin()) << "a line about the port, say";
    EXPECT_EQ(PRBTrace::level.load(), 0);
}

TEST(EntryPoints, jniOnLoadKeepsTheVm) {
    JavaVM vm{};
    EXPECT_EQ(JNI_OnLoad(&vm, nullptr), 0x10002);
    EXPECT_EQ(pJavaVM, &vm);
    EXPECT_EQ(PRBContext::getJavaVM(), &vm);
}

TEST(EntryPoints, theBuildLevelIsFixed) { EXPECT_EQ(PRBMonitorGlobal::getBuildLevel(), 1204019); }
