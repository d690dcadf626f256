// Where the agent's files are for a word size: the bridge, the agent and the Java side lie in
// one folder, which is found from the place of this program.
#ifndef PRB_PRB_LIBRARIES_H
#define PRB_PRB_LIBRARIES_H

#include <string>
#include <vector>

namespace prb {

struct Libraries {
    std::string folder; // empty when none was found
    std::string bridge; // libprbbridge.so
    std::string agent;  // libprbprof.so
    std::string jar;    // prbprof.jar

    std::string problem;               // what is missing, and what to do; empty when complete
    std::vector<std::string> searched; // the folders that were looked into
};

// `bits` is 32 or 64; `programFolder` is the folder of this program (a test names another).
Libraries findLibraries(int bits, const std::string& programFolder);
std::string programFolder();

} // namespace prb

#endif
