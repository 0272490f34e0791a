// SPDX-License-Identifier: Apache-2.0
#include "base/constant_time.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

TEST(ConstantTimeTest, TellsEqualFromUnequal) {
    EXPECT_TRUE(equalInConstantTime("", ""));
    EXPECT_TRUE(equalInConstantTime("secret", "secret"));
    EXPECT_FALSE(equalInConstantTime("secret", "secreT"));
    EXPECT_FALSE(equalInConstantTime("secret", "secret "));
    EXPECT_FALSE(equalInConstantTime("secret", ""));
}

} // namespace
} // namespace vexil
