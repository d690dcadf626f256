#include "bridge/ClassTypes.h"

#include <gtest/gtest.h>

namespace bridge {
namespace {

TEST(ClassTypes, whatWasPutIsFoundAndNothingElse) {
    ClassTypes types;
    EXPECT_EQ(ClassTypes::kUnknown, types.find(1));
    types.put(1, JVMPI_NORMAL_OBJECT);
    types.put(4095, JVMPI_LONG);
    types.put(4096, JVMPI_CLASS);
    EXPECT_EQ(JVMPI_NORMAL_OBJECT, types.find(1));
    EXPECT_EQ(JVMPI_LONG, types.find(4095));
    EXPECT_EQ(JVMPI_CLASS, types.find(4096));
    EXPECT_EQ(ClassTypes::kUnknown, types.find(2));
    EXPECT_EQ(ClassTypes::kUnknown, types.find(8192));
}

TEST(ClassTypes, idsBeyondTheLastPageAreNotKept) {
    ClassTypes types;
    types.put(ClassTypes::kMost - 1, JVMPI_INT);
    types.put(ClassTypes::kMost, JVMPI_INT);
    EXPECT_EQ(JVMPI_INT, types.find(ClassTypes::kMost - 1));
    EXPECT_EQ(ClassTypes::kUnknown, types.find(ClassTypes::kMost));
    EXPECT_EQ(ClassTypes::kUnknown, types.find(0x3fffffff));
}

} // namespace
} // namespace bridge
