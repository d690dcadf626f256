// What a `java` is, found out without running it where that is possible: its home, version,
// word size and whether it is a HotSpot VM that the bridge can work in.
#ifndef PRB_PRB_JVM_H
#define PRB_PRB_JVM_H

#include <string>

namespace prb {

struct Jvm {
    std::string executable; // bin/java, links resolved
    std::string home;       // the JAVA_HOME it belongs to
    std::string library;    // libjvm.so; empty when there is none
    std::string version;    // of the `release` file; empty when unknown
    int feature = 0;        // 8, 17, 25 ...; 0 when unknown
    int bits = 0;           // 32 or 64; 0 when unknown
    bool hotspot = false;   // its library has HotSpot's table of structures

    // What keeps prbprof from working in this JVM and what to do, in one line; empty when
    // nothing is known to.
    std::string problem() const;
};

// The first `name` on the PATH that can be executed; a name with a slash is answered as it is.
// Empty when there is none.
std::string findOnPath(const std::string& name);

// The JVM behind a `java`, `javac` or other launcher of a JDK.
Jvm inspectJvm(const std::string& executable);

// The JVM whose libjvm.so this is; no executable is known then.
Jvm inspectLibrary(const std::string& library);

// The JVM that a command with an unknown launcher will most likely start: `javaHome` if given,
// else JAVA_HOME, else the java of the PATH.
Jvm likelyJvm(const std::string& javaHome);

// 32 or 64 for an ELF file, 0 for anything else.
int elfBits(const std::string& path);

} // namespace prb

#endif
