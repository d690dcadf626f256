#include "bridge/ExactMethods.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bridge/Interface.h"

namespace bridge {
namespace {

using testing::IsEmpty;

TEST(ExactMethods, masksStandForWholeNames) {
    EXPECT_TRUE(ExactMethods::matches("com/x/A", "com/x/A"));
    EXPECT_FALSE(ExactMethods::matches("com/x/A", "com/x/AB"));
    EXPECT_TRUE(ExactMethods::matches("com/*", "com/x/y/A$B"));
    EXPECT_TRUE(ExactMethods::matches("get?", "getX"));
    EXPECT_FALSE(ExactMethods::matches("get?", "get"));
    EXPECT_TRUE(ExactMethods::matches("<init>", "<init>"));
    EXPECT_TRUE(ExactMethods::matches("*", "lambda$0"));
}

TEST(ExactMethods, optionsNameClassesAndMethods) {
    Options options;
    ASSERT_EQ("", options.parse("exact=com.x.A:run+com.y.*+B:get*"));
    ASSERT_EQ(3u, options.exact().size());
    EXPECT_EQ("com/x/A", options.exact()[0].type);
    EXPECT_EQ("run", options.exact()[0].method);
    EXPECT_EQ("com/y/*", options.exact()[1].type);
    EXPECT_EQ("*", options.exact()[1].method);
    EXPECT_EQ("get*", options.exact()[2].method);
}

TEST(ExactMethods, aMaskWithoutClassOrMethodIsWrong) {
    for (const char* text : {"exact=", "exact=:run", "exact=A:", "exact=A+"}) {
        Options options;
        EXPECT_THAT(options.parse(text),
                    testing::HasSubstr("give masks of CLASS or CLASS:METHOD joined by '+'"))
            << text;
    }
}

TEST(ExactMethods, nothingIsListedBeforeItIsCalled) {
    ExactMethods::choose({{"a/*", "run"}});
    char run[] = "run", stop[] = "stop", signature[] = "()V";
    ClassDescription type;
    type.name = "a/B";
    long places[2] = {};
    type.methods.push_back({run, signature, -1, -1, reinterpret_cast<jmethodID>(&places[0])});
    type.methods.push_back({stop, signature, -1, -1, reinterpret_cast<jmethodID>(&places[1])});
    ExactMethods::add(type);
    EXPECT_THAT(ExactMethods::lines(), IsEmpty());
    EXPECT_FALSE(ExactMethods::isOn()) << "before a collection asks for it";
}

// Without its capability the VM gives no method events, and the bridge says so.
TEST(ExactMethods, methodEventsAreNotAvailableWithoutTheOption) {
    for (const jint type :
         {JVMPI_EVENT_METHOD_ENTRY, JVMPI_EVENT_METHOD_ENTRY2, JVMPI_EVENT_METHOD_EXIT}) {
        EXPECT_EQ(JVMPI_NOT_AVAILABLE, events().enable(type)) << type;
        EXPECT_FALSE(events().isEnabled(type)) << type;
    }
}

} // namespace
} // namespace bridge
