// What the live tests share: the JDKs to test, running a command, and a report as JSON.
#ifndef PRB_TESTS_LIVE_LIVE_H
#define PRB_TESTS_LIVE_LIVE_H

#include "prb/ChildProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace live {

struct Jdk {
    std::string name; // jdk17_64, jdk17_32, jdk25_64: a part of the test's name
    std::string home;
    int bits = 64;
};

inline void PrintTo(const Jdk& jdk, std::ostream* out) { *out << jdk.name << " " << jdk.home; }

// The 64-bit JDK 17, the 32-bit one, and the further ones that tools/env.sh finds. A JDK that
// the machine must have and has not is a failing test, not a missing one.
const std::vector<Jdk>& jdks();
const Jdk& javac17(); // the JDK with a compiler

// A folder of the test's own, the current one while the object lives; removed when the test
// has passed. An hs_err file in it fails the test.
class Folder {
public:
    Folder();
    ~Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    const std::string& path() const { return path_; }
    std::vector<std::string> files(const std::string& extension) const;

private:
    std::string path_, before_;
};

std::string prb();                         // the built tool
std::string product(const std::string& f); // a file of the build folder
std::string bridge(const Jdk& jdk);        // libprbbridge.so of the JDK's word size
std::string slurp(const std::string& path);

prb::Captured run(const std::vector<std::string>& argv, int seconds = 120);

// `prb run` with options before the `--`, then java of the JDK with the arguments; answers what
// the program printed and the report (which went to a file).
struct Profiled {
    prb::Captured result;
    nlohmann::json report;
    std::string capture;
};
Profiled profile(const Jdk& jdk, const std::vector<std::string>& options,
                 const std::vector<std::string>& java, int seconds = 120);

class PerJdk : public testing::TestWithParam<Jdk> {
protected:
    const Jdk& jdk() const { return GetParam(); }
    Folder folder;
};

inline std::string nameOf(const testing::TestParamInfo<Jdk>& info) { return info.param.name; }
#define PRB_FOR_EVERY_JDK(suite)                                                                   \
    INSTANTIATE_TEST_SUITE_P(Live, suite, testing::ValuesIn(live::jdks()), live::nameOf)

} // namespace live

#endif
