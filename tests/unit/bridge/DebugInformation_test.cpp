// The two ways to debug information between safepoints, and that neither is left behind.
#include "bridge/DebugInformation.h"

#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakeSwitches.h"

namespace bridge {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DebugInformationTest : public testing::Test {
protected:
    DebugInformationTest() {
        events.SetEventNotificationMode = switchEvent;
        jvmti.functions = &events;
        symbols.flags[1].name = "DebugNonSafepoints";
        asked.clear();
        refuses = false;
    }
    // The switches of the made-up VM as it is now.
    const VmFlags& resolved() {
        const auto lookup = symbols.lookup();
        EXPECT_TRUE(vm.resolve(lookup)) << vm.problem();
        EXPECT_TRUE(flags.resolve(vm, lookup));
        return flags;
    }

    static jvmtiError JNICALL switchEvent(jvmtiEnv*, jvmtiEventMode mode, jvmtiEvent event, jthread,
                                          ...) {
        if (refuses) return JVMTI_ERROR_NOT_AVAILABLE;
        asked.emplace_back(mode, event);
        return JVMTI_ERROR_NONE;
    }

    static inline std::vector<std::pair<jvmtiEventMode, jvmtiEvent>> asked;
    static inline bool refuses = false;
    jvmtiInterface_1_ events{};
    jvmtiEnv jvmti{};
    FakeSwitches symbols;
    VmStructs vm;
    VmFlags flags;
    DebugInformation debugInformation;
};

TEST_F(DebugInformationTest, TheSwitchIsTurnedAndTurnedBackWithoutAnEvent) {
    resolved();
    EXPECT_TRUE(debugInformation.begin(&jvmti, flags));
    EXPECT_TRUE(debugInformation.begin(&jvmti, flags)); // what it found is not forgotten
    EXPECT_THAT(symbols.on, ElementsAre(0, 1, 0, 7));
    debugInformation.end(&jvmti, flags);
    EXPECT_THAT(symbols.on, ElementsAre(0, 0, 0, 7));
    EXPECT_THAT(asked, IsEmpty());
}

TEST_F(DebugInformationTest, ASwitchThatTheUserTurnedStaysOn) {
    symbols.on[1] = 1;
    resolved();
    EXPECT_TRUE(debugInformation.begin(&jvmti, flags));
    debugInformation.end(&jvmti, flags);
    EXPECT_THAT(symbols.on, ElementsAre(0, 1, 0, 7));
    EXPECT_THAT(asked, IsEmpty());
}

TEST_F(DebugInformationTest, WithoutTheSwitchTheEventIsListenedTo) {
    using Asked = std::pair<jvmtiEventMode, jvmtiEvent>;
    EXPECT_TRUE(debugInformation.begin(&jvmti, flags));
    EXPECT_THAT(asked, ElementsAre(Asked(JVMTI_ENABLE, JVMTI_EVENT_COMPILED_METHOD_LOAD)));
    asked.clear();
    debugInformation.end(&jvmti, flags);
    debugInformation.end(&jvmti, flags);
    EXPECT_THAT(asked, ElementsAre(Asked(JVMTI_DISABLE, JVMTI_EVENT_COMPILED_METHOD_LOAD)));
}

TEST_F(DebugInformationTest, AVmWithNeitherIsSaidSo) {
    refuses = true;
    EXPECT_FALSE(debugInformation.begin(&jvmti, flags));
    debugInformation.end(&jvmti, flags);
    refuses = false;
    EXPECT_TRUE(debugInformation.begin(&jvmti, flags));
}

} // namespace
} // namespace bridge
