// What an agent may rely on in any VM that offers JVMPI, on the scripted one: ids, the log of
// calls, and faults on demand.
#include "tests/vm/conformance/JvmpiTest.h"

#include <cstring>

#include <gmock/gmock.h>

namespace {

using namespace scripted;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST_F(Jvmpi, idsAndReferencesConvertBothWays) {
    ScriptedObject& string = vm.newString("text");
    vm.callNative([&] {
        const jobject ref = table.jobjectID2jobject(string.id);
        EXPECT_EQ(vm.resolve(ref), &string);
        EXPECT_EQ(table.jobject2jobjectID(ref), string.id);
        EXPECT_EQ(table.jobjectID2jobject(vm.unknownId()), nullptr);
        EXPECT_EQ(table.jobject2jobjectID(nullptr), nullptr);
    });
}

TEST_F(Jvmpi, aReferenceIsAHandleWhoseWordIsTheId) {
    ScriptedObject& string = vm.newString("text");
    vm.callNative([&] {
        const jobject local = vm.newLocalRef(vm.mainThread(), &string);
        for (const jobject ref : {local, vm.env()->NewGlobalRef(local),
                                  static_cast<jobject>(vm.env()->NewWeakGlobalRef(local))}) {
            const auto bits = reinterpret_cast<std::uintptr_t>(ref) & ~std::uintptr_t{3};
            std::uint32_t word = 0;
            std::memcpy(&word, reinterpret_cast<const void*>(bits), sizeof word);
            EXPECT_EQ(word, reinterpret_cast<std::uintptr_t>(string.id));
        }
    });
}

TEST_F(Jvmpi, idsFitIntoFourBytes) {
    ScriptedClass& cls = vm.addClass({.name = "A", .methods = {{.name = "m", .signature = "()V"}}});
    for (const void* id :
         {static_cast<const void*>(cls.id()), static_cast<const void*>(vm.unknownId()),
          static_cast<const void*>(vm.mainThread().id()),
          reinterpret_cast<const void*>(cls.methodId("m"))})
        EXPECT_LE(reinterpret_cast<std::uintptr_t>(id), 0xffffffffU);
}

TEST_F(Jvmpi, methodsAndThreadsNameTheirObjects) {
    ScriptedClass& cls = vm.addClass({.name = "A", .methods = {{.name = "m", .signature = "()V"}}});
    EXPECT_EQ(table.GetMethodClass(cls.methodId("m")), cls.id());
    EXPECT_EQ(table.GetMethodClass(reinterpret_cast<jmethodID>(&cls)), nullptr);
    EXPECT_EQ(table.GetThreadObject(vm.env()), vm.mainThread().id());
    vm.unloadClass(cls);
    EXPECT_EQ(table.GetMethodClass(cls.methodId("m")), nullptr);
}

// ---- log and faults -----------------------------------------------------------------------------

TEST_F(Jvmpi, theLogHoldsEveryCallInOrder) {
    ScriptedClass& cls = vm.addClass({.name = "com/x/A"});
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    JVMPI_RawMonitor monitor = table.RawMonitorCreate(const_cast<char*>("_Table"));
    vm.recorder().clear();
    table.EnableEvent(54, nullptr);
    table.RawMonitorEnter(monitor);
    table.RequestEvent(JVMPI_EVENT_CLASS_LOAD, cls.id());
    table.RawMonitorExit(monitor);
    worker.run([&] { table.GetCurrentThreadCpuTime(); });
    EXPECT_THAT(vm.recorder().texts(kAllKinds),
                ElementsAre("EnableEvent(54)", "RawMonitorEnter(_Table)",
                            "RequestEvent(42, class com/x/A)", "RequestedEvent(42)",
                            "RawMonitorExit(_Table)", "GetCurrentThreadCpuTime()"));
    EXPECT_EQ(vm.recorder().calls()[5].thread, "worker");
    EXPECT_THAT(vm.recorder().callsHolding("_Table"),
                ElementsAre("RequestEvent(42, class com/x/A)"));
    EXPECT_EQ(vm.recorder().count("EnableEvent"), 1U);
    EXPECT_EQ(vm.recorder().count("EnableEvent(54)"), 1U);
    EXPECT_EQ(vm.recorder().count("EnableEvent(55)"), 0U);
    EXPECT_THAT(vm.recorder().textsOf({"RawMonitorEnter", "RawMonitorExit"}),
                ElementsAre("RawMonitorEnter(_Table)", "RawMonitorExit(_Table)"));
    vm.recorder().setRecording(false);
    table.EnableEvent(55, nullptr);
    EXPECT_EQ(vm.recorder().count("EnableEvent(55)"), 0U);
}

TEST_F(Jvmpi, scriptedFailuresAreServedOnce) {
    vm.recorder().failNext("EnableEvent", JVMPI_NOT_AVAILABLE, 1);
    vm.recorder().failNext("EnableEvent");
    EXPECT_EQ(table.EnableEvent(54, nullptr), JVMPI_SUCCESS);
    EXPECT_EQ(table.EnableEvent(55, nullptr), JVMPI_NOT_AVAILABLE);
    EXPECT_EQ(table.EnableEvent(55, nullptr), JVMPI_FAIL);
    EXPECT_EQ(table.EnableEvent(55, nullptr), JVMPI_SUCCESS);
    vm.recorder().failNext("RawMonitorCreate");
    EXPECT_EQ(table.RawMonitorCreate(const_cast<char*>("m")), nullptr);
    vm.recorder().failNext("CreateSystemThread");
    EXPECT_EQ(table.CreateSystemThread(const_cast<char*>("t"), 5, [](void*) {}), -1);
}

TEST_F(Jvmpi, theNthCallThatCanFailFails) {
    for (std::size_t n = 1; n <= 3; ++n) {
        vm.recorder().failNth(n);
        std::vector<bool> failed;
        failed.push_back(table.EnableEvent(54, nullptr) != JVMPI_SUCCESS);
        table.DisableGC(); // cannot fail
        failed.push_back(table.GetThreadObject(vm.env()) == nullptr);
        failed.push_back(table.DisableEvent(54, nullptr) != JVMPI_SUCCESS);
        table.EnableGC();
        EXPECT_THAT(failed, ElementsAre(n == 1, n == 2, n == 3));
        EXPECT_TRUE(vm.recorder().faultFired());
        EXPECT_EQ(vm.recorder().failableCalls(), 3U);
    }
    vm.recorder().failNth(4);
    EXPECT_EQ(table.EnableEvent(54, nullptr), JVMPI_SUCCESS);
    EXPECT_FALSE(vm.recorder().faultFired());
}

} // namespace
