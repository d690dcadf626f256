// A program that none of us wrote: javac, whose results can be compared byte for byte.
#include "tests/live/Live.h"

#include <filesystem>

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace live {
namespace {

std::vector<std::string> sources() {
    std::vector<std::string> found;
    for (const char* dir : {"/java/src", "/java/sample"}) {
        for (const auto& e : fs::recursive_directory_iterator(std::string(PRB_SOURCE_DIR) + dir)) {
            if (e.path().extension() == ".java") found.push_back(e.path().string());
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::map<std::string, std::string> classes(const std::string& dir) {
    std::map<std::string, std::string> found;
    for (const auto& e : fs::recursive_directory_iterator(dir)) {
        if (e.is_regular_file()) {
            found[fs::relative(e.path(), dir).string()] = slurp(e.path().string());
        }
    }
    return found;
}

class Javac : public testing::Test {
protected:
    Folder folder;
};

TEST_F(Javac, CompilesToTheSameBytesUnderTheAgent) {
    const std::vector<std::string> files = sources();
    ASSERT_GT(files.size(), 20u);
    const auto compile = [&](std::vector<std::string> argv, const char* out) {
        argv.insert(argv.end(), {"-nowarn", "-d", out});
        argv.insert(argv.end(), files.begin(), files.end());
        return run(argv);
    };
    const prb::Captured bare = compile({javac17().home + "/bin/javac"}, "bare");
    const prb::Captured with =
        compile({prb(), "run", "--java-home", javac17().home, "--out", "javac.prb", "--report",
                 "javac.json", "--format", "json", "--", "javac"},
                "with");
    EXPECT_EQ(bare.exitCode, 0) << bare.err;
    EXPECT_EQ(with.exitCode, 0) << with.err;
    EXPECT_EQ(with.out, bare.out);
    EXPECT_EQ(with.err, bare.err);
    const auto expected = classes("bare");
    EXPECT_GT(expected.size(), 20u);
    EXPECT_EQ(classes("with"), expected);
    const auto report = nlohmann::json::parse(slurp("javac.json"), nullptr, false);
    ASSERT_TRUE(report.is_object());
    EXPECT_EQ(report["run"]["complete"], true);
    EXPECT_GT(report["run"]["busy_samples"].get<int>(), 10);
}

TEST_F(Javac, AFailedCompilationKeepsItsMessagesAndExitCode) {
    const prb::Captured result = run({prb(), "run", "--java-home", javac17().home, "--quiet",
                                      "--out", "j.prb", "--", "javac", "/no/such/File.java"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.err, HasSubstr("error: file not found: /no/such/File.java"));
}

TEST_F(Javac, ACommandThatStartsJvmsGivesACaptureEach) {
    const std::string java = javac17().home + "/bin/java";
    const prb::Captured result =
        run({prb(), "run", "--java-home", javac17().home, "--out", "many.prb", "--", "bash", "-c",
             "for i in 1 2; do " + java + " -cp " + product("tests/programs.jar") +
                 " com.tessel.prb.live.programs.ExitPaths --how return; done"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(folder.files(".prb").size(), 2u);
    // The JVM's own line, once for each, and nothing of ours but the reports.
    EXPECT_THAT(result.err, HasSubstr("Picked up JAVA_TOOL_OPTIONS"));
    EXPECT_THAT(result.err, HasSubstr("ExitPaths"));
}

} // namespace
} // namespace live
