// What is delivered while the program stands still, with a made-up tool interface.
#include <cstring>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bridge/CollectionEvents.h"
#include "bridge/Context.h"
#include "bridge/Interface.h"
#include "bridge/MonitorEvents.h"
#include "bridge/ObjectEvents.h"
#include "bridge/RawMonitor.h"
#include "bridge/RestrictedEnv.h"
#include "bridge/VmEvents.h"

namespace bridge {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(RestrictedEnv, AnswersOneQuestion) {
    JNIEnv* env = RestrictedEnv::env();
    RestrictedEnv::setAnswer(jlong{5} << 40);
    EXPECT_EQ(env->CallStaticLongMethod(nullptr, nullptr, 1, 2), jlong{5} << 40);
    EXPECT_EQ(env->CallStaticLongMethodA(nullptr, nullptr, nullptr), jlong{5} << 40);
    RestrictedEnv::setAnswer(-1);
    EXPECT_EQ(env->CallStaticLongMethod(nullptr, nullptr), -1);
}

TEST(RestrictedEnv, AnswersNothingElse) {
    JNIEnv* env = RestrictedEnv::env();
    RestrictedEnv::setAnswer(77);
    EXPECT_EQ(env->GetVersion(), 0);
    EXPECT_EQ(env->FindClass("java/lang/String"), nullptr);
    EXPECT_EQ(env->GetStaticMethodID(nullptr, "a", "()J"), nullptr);
    EXPECT_EQ(env->CallStaticIntMethod(nullptr, nullptr), 0);
    EXPECT_EQ(env->CallLongMethod(nullptr, nullptr), 0);
    EXPECT_EQ(env->CallStaticDoubleMethod(nullptr, nullptr), 0.0);
    EXPECT_EQ(env->CallFloatMethod(nullptr, nullptr), 0.0f);
    EXPECT_EQ(env->GetStaticDoubleField(nullptr, nullptr), 0.0);
    EXPECT_EQ(env->ExceptionCheck(), JNI_FALSE);
    EXPECT_EQ(env->ExceptionOccurred(), nullptr);
    env->DeleteLocalRef(nullptr);
    JavaVM* vm = nullptr;
    EXPECT_EQ(env->GetJavaVM(&vm), 0);
    void* const* slots = reinterpret_cast<void* const*>(env->functions);
    for (size_t i = 4; i < sizeof(JNINativeInterface_) / sizeof(void*); i++)
        EXPECT_NE(slots[i], nullptr) << i;
}

TEST(ObjectEvents, TheTypeOfAnObjectIsInItsClassesName) {
    struct Case {
        const char* name;
        jint type;
    };
    const Case cases[] = {
        {"java/lang/String", JVMPI_NORMAL_OBJECT},
        {"[Z", JVMPI_BOOLEAN},
        {"[C", JVMPI_CHAR},
        {"[F", JVMPI_FLOAT},
        {"[D", JVMPI_DOUBLE},
        {"[B", JVMPI_BYTE},
        {"[S", JVMPI_SHORT},
        {"[I", JVMPI_INT},
        {"[J", JVMPI_LONG},
        {"[Ljava/lang/String;", JVMPI_CLASS},
        {"[[I", JVMPI_CLASS},
        {"", JVMPI_NORMAL_OBJECT},
        {"[", JVMPI_NORMAL_OBJECT},
    };
    for (const Case& row : cases) EXPECT_EQ(ObjectEvents::typeOf(row.name), row.type) << row.name;
}

// The tool interface, as far as switches go; notes what it is asked.
struct FakeTool {
    struct Switch {
        jvmtiEvent event;
        bool on;
        bool operator==(const Switch&) const = default;
    };
    jvmtiEnv env;
    jvmtiInterface_1_ functions{};
    std::vector<Switch> switches;
    int capabilitiesTaken = 0;
    bool gives = true;
    jvmtiError answer = JVMTI_ERROR_NONE;

    static jvmtiError setMode(jvmtiEnv*, jvmtiEventMode mode, jvmtiEvent event, jthread, ...) {
        current()->switches.push_back({event, mode == JVMTI_ENABLE});
        return current()->answer;
    }
    static FakeTool*& current() {
        static FakeTool* tool = nullptr;
        return tool;
    }
    ~FakeTool() { current() = nullptr; }
    FakeTool(const FakeTool&) = delete;
    FakeTool& operator=(const FakeTool&) = delete;
    FakeTool() {
        current() = this;
        functions.GetPotentialCapabilities = [](jvmtiEnv*, jvmtiCapabilities* all) {
            memset(all, 0, sizeof *all);
            all->can_generate_garbage_collection_events = current()->gives;
            all->can_generate_monitor_events = current()->gives;
            all->can_generate_method_entry_events = current()->gives;
            all->can_generate_method_exit_events = current()->gives;
            return JVMTI_ERROR_NONE;
        };
        functions.AddCapabilities = [](jvmtiEnv*, const jvmtiCapabilities*) {
            if (current()->answer == JVMTI_ERROR_NONE) current()->capabilitiesTaken++;
            return current()->answer;
        };
        functions.SetEventNotificationMode = setMode;
        functions.GetPhase = [](jvmtiEnv*, jvmtiPhase* phase) {
            *phase = JVMTI_PHASE_ONLOAD;
            return JVMTI_ERROR_NONE;
        };
        env.functions = &functions;
        VmEvents::begin(&env);
    }
};

TEST(MethodEvents, AreHadOnlyByThoseWhoAskBeforeTheVmIsUp) {
    FakeTool tool;
    EXPECT_TRUE(events().supports(JVMPI_EVENT_METHOD_ENTRY));
    VmEvents::live();
    for (const jint type : {JVMPI_EVENT_METHOD_ENTRY, JVMPI_EVENT_METHOD_EXIT})
        EXPECT_EQ(JVMPI_NOT_AVAILABLE, events().enable(type));
    EXPECT_EQ(0, tool.capabilitiesTaken);
}

TEST(MethodEvents, AreHadLaterWithTheCapabilityTakenAtTheStart) {
    FakeTool tool;
    ASSERT_TRUE(VmEvents::take(VmEventGroup::kMethods));
    VmEvents::live();
    EXPECT_TRUE(tool.switches.empty()) << "taken, and not switched on";
    EXPECT_EQ(JVMPI_SUCCESS, events().enable(JVMPI_EVENT_METHOD_ENTRY));
    EXPECT_EQ(JVMPI_NOT_AVAILABLE, events().enable(JVMPI_EVENT_METHOD_ENTRY2));
    ASSERT_EQ(1u, tool.switches.size());
    EXPECT_EQ(JVMPI_SUCCESS, events().disable(JVMPI_EVENT_METHOD_ENTRY));
    // What the bridge wants for itself is on whatever the profiler enables.
    tool.switches.clear();
    VmEvents::want(VmEventGroup::kMethods, true);
    EXPECT_EQ(2u, tool.switches.size());
    EXPECT_EQ(JVMPI_SUCCESS, events().enable(JVMPI_EVENT_METHOD_EXIT));
    EXPECT_EQ(JVMPI_SUCCESS, events().disable(JVMPI_EVENT_METHOD_EXIT));
    EXPECT_EQ(2u, tool.switches.size());
    VmEvents::want(VmEventGroup::kMethods, false);
    EXPECT_EQ(4u, tool.switches.size());
}

struct Told {
    jint type;
    jlong total;
    jlong free;
    bool underMonitor;
};
std::vector<Told>& told() {
    static std::vector<Told> all;
    return all;
}
RawMonitor* taken = nullptr;

void notify(JVMPI_Event* event) {
    if (event->event_type == JVMPI_EVENT_GC_START) taken->enter();
    told().push_back({event->event_type, event->u.gc_info.total_object_space,
                      event->env_id->CallStaticLongMethod(nullptr, nullptr), taken->ownedBySelf()});
    if (event->event_type == JVMPI_EVENT_GC_FINISH) taken->exit();
}

std::vector<jint> types() {
    std::vector<jint> result;
    for (const Told& one : told()) result.push_back(one.type);
    return result;
}

class Stalls : public testing::Test {
protected:
    Stalls() {
        taken = RawMonitor::create("registry");
        profilerInterface().NotifyEvent = notify;
        context().phase = Phase::kLive;
    }
    FakeTool tool;
};

TEST_F(Stalls, NothingIsAskedOfTheVmBeforeTheProfilerWantsIt) {
    EXPECT_TRUE(events().supports(JVMPI_EVENT_GC_START));
    EXPECT_TRUE(events().supports(JVMPI_EVENT_MONITOR_WAIT));
    EXPECT_EQ(tool.capabilitiesTaken, 0);
    EXPECT_THAT(tool.switches, IsEmpty());
}

TEST_F(Stalls, TheFinishIsSwitchedOnFirstAndOffLast) {
    using Switch = FakeTool::Switch;
    EXPECT_EQ(events().enable(JVMPI_EVENT_GC_START), JVMPI_SUCCESS);
    EXPECT_EQ(events().enable(JVMPI_EVENT_GC_FINISH), JVMPI_SUCCESS);
    EXPECT_EQ(tool.capabilitiesTaken, 1);
    EXPECT_THAT(tool.switches, ElementsAre(Switch{JVMTI_EVENT_GARBAGE_COLLECTION_FINISH, true},
                                           Switch{JVMTI_EVENT_GARBAGE_COLLECTION_START, true}));
    tool.switches.clear();
    events().disable(JVMPI_EVENT_GC_START); // the other is still wanted
    EXPECT_THAT(tool.switches, IsEmpty());
    events().disable(JVMPI_EVENT_GC_FINISH);
    EXPECT_THAT(tool.switches, ElementsAre(Switch{JVMTI_EVENT_GARBAGE_COLLECTION_START, false},
                                           Switch{JVMTI_EVENT_GARBAGE_COLLECTION_FINISH, false}));
}

TEST_F(Stalls, MonitorEventsAreSwitchedOneByOne) {
    using Switch = FakeTool::Switch;
    EXPECT_EQ(events().enable(JVMPI_EVENT_MONITOR_WAIT), JVMPI_SUCCESS);
    EXPECT_EQ(events().enable(JVMPI_EVENT_MONITOR_CONTENDED_EXIT), JVMPI_SUCCESS);
    EXPECT_THAT(tool.switches, ElementsAre(Switch{JVMTI_EVENT_MONITOR_WAIT, true}));
    EXPECT_EQ(tool.capabilitiesTaken, 1);
}

TEST_F(Stalls, WhatIsEnabledWhileTheVmTakesNoSwitchesIsMadeUpFor) {
    tool.answer = JVMTI_ERROR_WRONG_PHASE;
    EXPECT_EQ(events().enable(JVMPI_EVENT_MONITOR_WAITED), JVMPI_SUCCESS);
    EXPECT_TRUE(events().isEnabled(JVMPI_EVENT_MONITOR_WAITED));
    tool.answer = JVMTI_ERROR_NONE;
    EXPECT_EQ(VmEvents::follow(VmEventGroup::kMonitors), JVMPI_SUCCESS);
    EXPECT_THAT(tool.switches, ElementsAre(FakeTool::Switch{JVMTI_EVENT_MONITOR_WAITED, true}));
}

TEST_F(Stalls, AnEventThatTheVmRefusesIsNotAvailable) {
    tool.answer = JVMTI_ERROR_NOT_AVAILABLE;
    EXPECT_EQ(events().enable(JVMPI_EVENT_GC_START), JVMPI_NOT_AVAILABLE);
    EXPECT_FALSE(events().isEnabled(JVMPI_EVENT_GC_START));
    tool.gives = false;
    VmEvents::begin(&tool.env);
    for (const jint type : {JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH,
                            JVMPI_EVENT_MONITOR_CONTENDED_EXIT, JVMPI_EVENT_MONITOR_WAIT}) {
        EXPECT_FALSE(events().supports(type)) << type;
        EXPECT_EQ(events().enable(type), JVMPI_NOT_AVAILABLE) << type;
    }
}

TEST_F(Stalls, ACollectionIsAPairUnderTheMonitorsThatItsStartTook) {
    events().enable(JVMPI_EVENT_GC_START);
    events().enable(JVMPI_EVENT_GC_FINISH);
    CollectionEvents::started();
    EXPECT_TRUE(MonitorThread::current().collecting);
    CollectionEvents::finished();
    EXPECT_FALSE(MonitorThread::current().collecting);
    ASSERT_THAT(types(), ElementsAre(JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH));
    EXPECT_TRUE(told()[1].underMonitor);
    EXPECT_FALSE(taken->ownedBySelf());
    // Nobody has verified any figures in this process.
    EXPECT_EQ(told()[1].total, -1);
    EXPECT_EQ(told()[1].free, -1);
}

TEST_F(Stalls, AFinishComesForEachStartWhateverHappensBetween) {
    events().enable(JVMPI_EVENT_GC_START);
    events().enable(JVMPI_EVENT_GC_FINISH);
    CollectionEvents::started();
    events().disable(JVMPI_EVENT_GC_START);
    events().disable(JVMPI_EVENT_GC_FINISH);
    context().phase = Phase::kDead;
    CollectionEvents::finished();
    EXPECT_THAT(types(), ElementsAre(JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH));
    EXPECT_FALSE(taken->ownedBySelf());
    CollectionEvents::started(); // off, and the VM is dead
    CollectionEvents::finished();
    EXPECT_EQ(told().size(), 2u);
}

TEST_F(Stalls, CollectionsInsideOneAnotherAreOnePair) {
    events().enable(JVMPI_EVENT_GC_START);
    events().enable(JVMPI_EVENT_GC_FINISH);
    for (const int inner : {1, 2}) {
        told().clear();
        CollectionEvents::started();
        for (int i = 0; i < inner; i++) {
            CollectionEvents::started();
            CollectionEvents::finished();
            EXPECT_TRUE(MonitorThread::current().collecting);
        }
        EXPECT_THAT(types(), ElementsAre(JVMPI_EVENT_GC_START));
        CollectionEvents::finished();
        EXPECT_THAT(types(), ElementsAre(JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH));
        EXPECT_FALSE(taken->ownedBySelf());
        EXPECT_FALSE(MonitorThread::current().collecting);
    }
}

TEST_F(Stalls, AFinishWithoutItsStartTellsNothingAndTheNextPairIsWhole) {
    events().enable(JVMPI_EVENT_GC_START);
    events().enable(JVMPI_EVENT_GC_FINISH);
    CollectionEvents::finished();
    EXPECT_THAT(types(), IsEmpty());
    CollectionEvents::started();
    CollectionEvents::finished();
    EXPECT_THAT(types(), ElementsAre(JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH));
}

TEST_F(Stalls, AStartBeforeTheFinishIsEnabledHasItsFinishAllTheSame) {
    events().enable(JVMPI_EVENT_GC_START);
    CollectionEvents::started();
    CollectionEvents::finished();
    EXPECT_THAT(types(), ElementsAre(JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH));
    EXPECT_FALSE(taken->ownedBySelf());
}

TEST_F(Stalls, NoFinishComesForACollectionThatBeganUntold) {
    CollectionEvents::started();
    events().enable(JVMPI_EVENT_GC_START);
    events().enable(JVMPI_EVENT_GC_FINISH);
    CollectionEvents::finished();
    EXPECT_THAT(types(), IsEmpty());
}

TEST_F(Stalls, ObjectsAreToldOfInsideTheCallbacksAlone) {
    EXPECT_FALSE(MonitorEvents::inCallback());
    EXPECT_EQ(MonitorEvents::requestAllocation(reinterpret_cast<void*>(0x40000000)), JVMPI_FAIL);
    EXPECT_EQ(profilerInterface().RequestEvent(JVMPI_EVENT_OBJECT_ALLOC,
                                               reinterpret_cast<void*>(0x40000000)),
              JVMPI_NOT_AVAILABLE);
    const jvmtiFrameInfo frames[2] = {};
    EXPECT_EQ(MonitorEvents::framesToSkip(frames, 2), 0);
}

} // namespace
} // namespace bridge
