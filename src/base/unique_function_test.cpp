// SPDX-License-Identifier: Apache-2.0
#include "base/unique_function.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

TEST(UniqueFunctionTest, HoldsACallableThatCannotBeCopied) {
    UniqueFunction<int(int)> add = [by = std::make_unique<int>(4)](int to) { return to + *by; };
    EXPECT_EQ(add(3), 7);
    auto moved = std::move(add);
    EXPECT_EQ(moved(1), 5);
}

TEST(UniqueFunctionTest, IsEmptyUntilGivenSomething) {
    Task task;
    EXPECT_FALSE(task);
    task = [] {};
    EXPECT_TRUE(task);
    task = nullptr;
    EXPECT_FALSE(task);
}

TEST(UniqueFunctionTest, DestroysItsCallableWithItself) {
    auto watched = std::make_shared<int>(0);
    {
        const Task task = [watched] {};
        EXPECT_EQ(watched.use_count(), 2);
    }
    EXPECT_EQ(watched.use_count(), 1);
}

} // namespace
} // namespace vexil
