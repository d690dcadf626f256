// The native methods as Java calls them, one by one or all of them with some handle.
#ifndef PRB_TESTS_VM_COLLECTOR_NATIVESTEST_H
#define PRB_TESTS_VM_COLLECTOR_NATIVESTEST_H

#include "tests/vm/collector/CollectorTest.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

class Natives : public CollectorTest {
public:
    // Every native once, with the handle in each place for one and null references.
    void callAllWith(jlong h) { callAll(vm.env(), h); }
    // The same with the environment of the calling thread, null for one that has none.
    void callAll(JNIEnv* env, jlong h) {
        NATIVE(Profiler, handleInitiateCollection)(env, nullptr, h, 0, 0, 5, nullptr, nullptr);
        NATIVE(Profiler, handleStopCollection)(env, nullptr, h);
        NATIVE(Profiler, getProfilerData)(env, nullptr, h, 0, nullptr);
        NATIVE(Profiler, setWorkloadRunningOnCurrentThread)(env, nullptr, JNI_TRUE);
        NATIVE(Profiler, createNewInstrumentedProfilingEntry)(env, nullptr, nullptr, h);
        NATIVE(Profiler, removeTopInstrumentedProfilingEntry)(env, nullptr, nullptr, h);
        NATIVE(Profiler, getReferencesToObjectsNative)(env, nullptr, h, nullptr, nullptr);
        NATIVE(Profiler, getObjectId)(env, nullptr, nullptr);
        NATIVE(Profiler, getObjectSize)(env, nullptr, nullptr);
        NATIVE(Collector, getNumBytesFreeAtLastGC)(env, nullptr);
        NATIVE(Collector, getTotalBytesAtLastGC)(env, nullptr);
        NATIVE(Collector, getProfGCCPU)(env, nullptr);
        NATIVE(Collector, initializeInternalTrace)(env, nullptr, 8, 2);
        NATIVE(Collector, writeToInternalTraceNative)(env, nullptr, h, nullptr);
        NATIVE(Globals, determineIfProfilerPresent)(env, nullptr);
        NATIVE(Globals, getNativeLibraryBuildLevel)(env, nullptr);
        NATIVE(Globals, testJavaCompatibleBuildLevel)(env, nullptr, 1203318);
        NATIVE(Globals, getWorkloadConfigurationFileNameFromProfiler)(env, nullptr);
        NATIVE(Globals, getCurrentWorkingDirectoryNative)(env, nullptr);
        NATIVE(Globals, writeToMVSConsoleNative)(env, nullptr, nullptr);
        NATIVE(BackgroundThread, getCurrentProcessIdNative)(env, nullptr);
        NATIVE(BackgroundThread, getCurrentASIDNative)(env, nullptr);
        NATIVE(BackgroundThread, getStartParms)(env, nullptr);
        NATIVE(BackgroundThread, getCommandPromptParms)(env, nullptr);
        NATIVE(BackgroundThread, getCurrentAddressSpaceName)(env, nullptr);
        NATIVE(BackgroundThread, getCurrentAddressSpaceStartSTCKValue)(env, nullptr);
        NATIVE(InstrumentedMethodEntry, getMVSTCBAddress)(env, nullptr);
        NATIVE(InstrumentedStack, registerWithProfilerNative)(env, nullptr);
        NATIVE(InstrumentedStack, getStateNative)(env, nullptr, h);
        NATIVE(InstrumentedStack, getCurrentThreadCPUTimeNative)(env, nullptr, h);
        NATIVE(AgentConnection, createHexDumpString)(env, nullptr, nullptr, nullptr);
        NATIVE(TransportableData, convertText)(env, nullptr, nullptr);
        NATIVE(StaticConfigDataSampleSource, getEnvVars)(env, nullptr);
    }

    // The answers of everything that takes a handle.
    void expectNeutral(jlong h) {
        vm.callNative([&] {
            JNIEnv* env = vm.env();
            jobject entry = vm.newLocalRef(vm.mainThread(), &scripted::makeInstrumentedEntry(vm));
            EXPECT_EQ(NATIVE(Profiler, handleInitiateCollection)(env, nullptr, h, 0x800, 0, 5,
                                                                 text("*"), text("*")),
                      0);
            EXPECT_EQ(NATIVE(Profiler, handleStopCollection)(env, nullptr, h), 0);
            EXPECT_EQ(NATIVE(Profiler, getProfilerData)(env, nullptr, h, 0, nullptr), nullptr);
            NATIVE(Profiler, createNewInstrumentedProfilingEntry)(env, nullptr, entry, h);
            NATIVE(Profiler, removeTopInstrumentedProfilingEntry)(env, nullptr, entry, h);
            EXPECT_EQ(
                NATIVE(Profiler, getReferencesToObjectsNative)(env, nullptr, h, nullptr, nullptr),
                nullptr);
            NATIVE(Collector, writeToInternalTraceNative)(env, nullptr, h, text("text"));
            EXPECT_EQ(NATIVE(InstrumentedStack, getStateNative)(env, nullptr, h), 0);
        });
        EXPECT_EQ(vm.exceptionLeft(), "");
    }

    scripted::ScriptedObject* call(const std::function<jobject()>& native) {
        scripted::ScriptedObject* result = nullptr;
        vm.callNative([&] {
            jobject answer = native();
            result = answer == nullptr ? nullptr : vm.resolve(answer);
        });
        return result;
    }
    std::vector<std::string> elements(const scripted::ScriptedObject* array) {
        std::vector<std::string> found;
        if (array == nullptr) return {"(null array)"};
        for (const scripted::ScriptedObject* element : array->elements)
            found.push_back(element == nullptr ? "(null)" : element->text);
        return found;
    }
    std::vector<std::string> hexDump(const std::optional<std::vector<jbyte>>& data,
                                     const std::optional<std::string>& title) {
        return elements(call([&]() -> jobject {
            jbyteArray bytes = data.has_value()
                                   ? vm.local<jbyteArray>(vm.mainThread(), &vm.newBytes(*data))
                                   : nullptr;
            return NATIVE(AgentConnection, createHexDumpString)(vm.env(), nullptr, bytes,
                                                                text(title));
        }));
    }
};

#endif
