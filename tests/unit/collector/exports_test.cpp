// What the built library shows to the outside.
#include <elf.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

#if defined(__LP64__)
using Header = Elf64_Ehdr;
using Section = Elf64_Shdr;
using Symbol = Elf64_Sym;
#else
using Header = Elf32_Ehdr;
using Section = Elf32_Shdr;
using Symbol = Elf32_Sym;
#endif

// Names of the symbols that the library defines for others.
std::set<std::string> exportsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
    std::set<std::string> names;
    if (bytes.size() < sizeof(Header)) return names;
    const auto* header = reinterpret_cast<const Header*>(bytes.data());
    const auto* sections = reinterpret_cast<const Section*>(bytes.data() + header->e_shoff);
    for (unsigned i = 0; i < header->e_shnum; ++i) {
        if (sections[i].sh_type != SHT_DYNSYM) continue;
        const auto* symbols = reinterpret_cast<const Symbol*>(bytes.data() + sections[i].sh_offset);
        const char* texts = bytes.data() + sections[sections[i].sh_link].sh_offset;
        for (std::size_t s = 0; s < sections[i].sh_size / sizeof(Symbol); ++s) {
            const bool isDefined = symbols[s].st_shndx != SHN_UNDEF;
            const bool isLocal = (symbols[s].st_info >> 4) == STB_LOCAL;
            if (isDefined && !isLocal) names.insert(texts + symbols[s].st_name);
        }
    }
    return names;
}

TEST(Library, exportsTheTwoEntriesAndTheNativesAndNothingElse) {
    std::set<std::string> expected = {"JVM_OnLoad", "JNI_OnLoad"};
    const std::vector<std::pair<std::string, std::vector<std::string>>> natives = {
        {"Profiler",
         {"InitProfiler", "handleInitiateCollection", "handleStopCollection", "getProfilerData",
          "setWorkloadRunningOnCurrentThread", "createNewInstrumentedProfilingEntry",
          "removeTopInstrumentedProfilingEntry", "getReferencesToObjectsNative", "getObjectId",
          "getObjectSize"}},
        {"Collector",
         {"getNumBytesFreeAtLastGC", "getTotalBytesAtLastGC", "getProfGCCPU",
          "initializeInternalTrace", "writeToInternalTraceNative"}},
        {"Globals",
         {"determineIfProfilerPresent", "getNativeLibraryBuildLevel",
          "testJavaCompatibleBuildLevel", "getWorkloadConfigurationFileNameFromProfiler",
          "getCurrentWorkingDirectoryNative", "writeToMVSConsoleNative"}},
        {"BackgroundThread",
         {"getCurrentProcessIdNative", "getCurrentASIDNative", "getStartParms",
          "getCommandPromptParms", "getCurrentAddressSpaceName",
          "getCurrentAddressSpaceStartSTCKValue"}},
        {"InstrumentedMethodEntry", {"getMVSTCBAddress"}},
        {"InstrumentedStack",
         {"registerWithProfilerNative", "getStateNative", "getCurrentThreadCPUTimeNative"}},
        {"AgentConnection", {"createHexDumpString"}},
        {"TransportableData", {"convertText"}},
        {"StaticConfigDataSampleSource", {"getEnvVars"}},
    };
    for (const auto& [javaClass, methods] : natives)
        for (const std::string& method : methods)
            expected.insert("Java_com_tessel_prb_workanalysis_" + javaClass + "_" + method);
    ASSERT_EQ(expected.size(), 36U);
    EXPECT_EQ(exportsOf(PRB_BUILD_DIR "/libprbprof.so"), expected);
}

} // namespace
