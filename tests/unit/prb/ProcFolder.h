// A made-up /proc and the JDK of the process in it, in a folder of the test's own.
#ifndef PRB_TESTS_UNIT_PRB_PROCFOLDER_H
#define PRB_TESTS_UNIT_PRB_PROCFOLDER_H

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

class ProcFolder {
public:
    ProcFolder()
        : root(testing::TempDir() + "proc" + std::to_string(getpid())),
          proc(root + "/proc"),
          process(proc + "/4711") {
        std::filesystem::create_directories(process + "/cwd");
        std::filesystem::create_directories(root + "/tmp");
        status();
        jdk(64, "17.0.15", "..gHotSpotVMStructs..");
        maps(jvmLibrary());
        put(process + "/cmdline", std::string("java\0-Xmx1g\0-cp\0a.jar\0com.x.Main\0", 33));
    }
    ~ProcFolder() { std::filesystem::remove_all(root); }
    ProcFolder(const ProcFolder&) = delete;
    ProcFolder& operator=(const ProcFolder&) = delete;

    static void put(const std::string& path, const std::string& text) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << text;
    }
    std::string jvmLibrary() const { return root + "/jdk/lib/server/libjvm.so"; }
    void jdk(int bits, const std::string& version, const std::string& content) const {
        put(jvmLibrary(), std::string("\x7f"
                                      "ELF") +
                              (bits == 32 ? '\1' : '\2') + content);
        put(root + "/jdk/release", "JAVA_VERSION=\"" + version + "\"\n");
    }
    // SIGQUIT is bit 2 of the mask of caught signals.
    void status(const std::string& state = "S (sleeping)", int uid = 1000,
                const std::string& group = "4711", const std::string& caught = "4",
                const std::string& inner = "4711") const {
        const std::string user = std::to_string(uid);
        put(process + "/status", "Name:\tjava\nState:\t" + state + "\nTgid:\t" + group +
                                     "\nUid:\t1\t" + user +
                                     "\t3\t4\nGid:\t5\t2000\t7\t8\n"
                                     "NSpid:\t4711\t" +
                                     inner + "\nSigCgt:\t000000000000000" + caught + "\n");
    }
    void maps(const std::string& library, const std::string& more = "") const {
        put(process + "/maps", "00400000-00401000 r--p 00000000 fe:01 1   /usr/bin/java\n"
                               "7f00-7f01 r--p 00000000 fe:01 2     " +
                                   library + "\n" + more);
    }

    const std::string root, proc, process;
};

#endif
