// What is wrong ends in one clear line, and the program runs on unprofiled.
#include "tests/live/Live.h"

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;

namespace live {
namespace {

std::size_t linesOf(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

class BadInput : public PerJdk {
protected:
    // Runs a program that ends with code 7 under the bridge in `libraries`, with an option text.
    prb::Captured under(const std::string& libraries, const std::string& options) {
        return run({jdk().home + "/bin/java",
                    "-agentpath:" + libraries + "/libprbbridge.so=" + options, "-cp",
                    product("tests/programs.jar"), "com.tessel.prb.live.programs.ExitPaths",
                    "--how", "exit", "--code", "7", "--seconds", "1"});
    }
    // A copy of the products that a test may damage.
    std::string products() {
        const fs::path from = fs::path(bridge(jdk())).parent_path();
        fs::create_directories("lib");
        for (const char* f : {"libprbbridge.so", "libprbprof.so", "prbprof.jar"}) {
            fs::copy_file(from / f, fs::path("lib") / f, fs::copy_options::overwrite_existing);
        }
        return fs::absolute("lib").string();
    }
    void expectUnprofiled(const prb::Captured& result, const std::vector<std::string>& said) {
        EXPECT_EQ(result.exitCode, 7) << result.err;
        EXPECT_THAT(result.out, HasSubstr("checksum"));
        EXPECT_EQ(linesOf(result.err), 1u) << result.err;
        EXPECT_THAT(result.err, testing::StartsWith("prbprof: "));
        for (const std::string& part : said) EXPECT_THAT(result.err, HasSubstr(part));
    }
};

TEST_P(BadInput, AMissingAgentLibraryIsNamed) {
    const std::string lib = products();
    fs::remove(lib + "/libprbprof.so");
    expectUnprofiled(under(lib, "file=x.prb"), {"libprbprof.so"});
}

TEST_P(BadInput, AMissingJarIsNamed) {
    const std::string lib = products();
    fs::remove(lib + "/prbprof.jar");
    expectUnprofiled(under(lib, "file=x.prb"), {"prbprof.jar"});
}

TEST_P(BadInput, AnAgentLibraryOfTheOtherWordSizeIsNamed) {
    const std::string lib = products();
    const Jdk& other = jdk().bits == 64 ? jdks()[1] : jdks()[0];
    fs::copy_file(fs::path(bridge(other)).parent_path() / "libprbprof.so", lib + "/libprbprof.so",
                  fs::copy_options::overwrite_existing);
    expectUnprofiled(under(lib, "file=x.prb"), {"libprbprof.so"});
}

TEST_P(BadInput, AnUnknownOptionIsNamed) {
    expectUnprofiled(under(products(), "file=x.prb,bogus=1"), {"bogus"});
}

TEST_P(BadInput, ABadValueIsNamedWithWhatWouldBeRight) {
    expectUnprofiled(under(products(), "interval=soon"), {"interval", "soon"});
}

TEST_P(BadInput, ACaptureThatCannotBeWrittenIsNamed) {
    expectUnprofiled(under(products(), "file=/no/such/folder/x.prb"), {"/no/such/folder/x.prb"});
}

TEST_P(BadInput, AFullDiskStopsTheCaptureAndNotTheProgram) {
    const prb::Captured result = under(products(), "file=/dev/full,poll=0.2");
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_THAT(result.out, HasSubstr("checksum"));
    EXPECT_THAT(result.err, HasSubstr("/dev/full"));
    EXPECT_LE(linesOf(result.err), 2u) << result.err;
}

TEST_P(BadInput, DataThatCannotBeGivenIsRefusedAndTheRestGoesOn) {
    const prb::Captured result = under(products(), "file=h.prb,data=threads+methods+heap");
    EXPECT_EQ(result.exitCode, 7);
    const bool given = result.err.empty();
    if (!given) {
        EXPECT_EQ(linesOf(result.err), 1u);
        EXPECT_THAT(result.err, AllOf(testing::StartsWith("prbprof: "), HasSubstr("heap")));
    }
    EXPECT_EQ(run({prb(), "report", "h.prb"}).exitCode, 0);
}

TEST_P(BadInput, TheDoctorFindsEverythingInOrder) {
    const prb::Captured result = run({prb(), "doctor", "--java-home", jdk().home});
    EXPECT_EQ(result.exitCode, 0) << result.out;
    EXPECT_THAT(result.out, HasSubstr("prbprof works on this machine"));
}

PRB_FOR_EVERY_JDK(BadInput);

class BadUsage : public testing::Test {
protected:
    Folder folder;
};

TEST_F(BadUsage, EachMistakeIsOneLineAndCode2) {
    const std::vector<std::vector<std::string>> mistakes = {
        {},
        {"run"},
        {"run", "--"},
        {"run", "--interval", "0", "--", "true"},
        {"run", "--interval", "x", "--", "true"},
        {"run", "--data", "colour", "--", "true"},
        {"run", "--format", "xml", "--", "true"},
        {"run", "java", "-version"},
        {"report"},
        {"nonsense"},
        {"report", "x.prb", "--", "true"},
    };
    for (std::vector<std::string> argv : mistakes) {
        argv.insert(argv.begin(), prb());
        const prb::Captured result = run(argv);
        EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(argv);
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err, "");
    }
}

TEST_F(BadUsage, ACommandThatIsNotThereIs127) {
    const prb::Captured result = run({prb(), "run", "--", "/no/such/program"});
    EXPECT_EQ(result.exitCode, 127);
    EXPECT_THAT(result.err, HasSubstr("/no/such/program: No such file or directory"));
}

TEST_F(BadUsage, OtherCommandsKeepTheirExitCode) {
    EXPECT_EQ(run({prb(), "run", "--quiet", "--", "bash", "-c", "exit 42"}).exitCode, 42);
    EXPECT_EQ(run({prb(), "run", "--quiet", "--", "bash", "-c", "kill -9 $$"}).exitCode, 137);
}

TEST_F(BadUsage, AForeignCaptureIsOneLineAndCode1) {
    std::ofstream("f.prb") << "this is not a capture";
    for (const char* command : {"report", "decode"}) {
        const prb::Captured result = run({prb(), command, "f.prb"});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(linesOf(result.err), 1u);
        EXPECT_THAT(result.err, HasSubstr("f.prb is not a capture of prbprof"));
    }
}

} // namespace
} // namespace live
