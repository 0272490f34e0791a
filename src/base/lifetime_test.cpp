// SPDX-License-Identifier: Apache-2.0
#include "base/lifetime.h"

#include <gtest/gtest.h>

#include <optional>

namespace vexil {
namespace {

TEST(LifetimeTest, AGuardedCallableRunsWhileTheOwnerLives) {
    const Lifetime lifetime;
    int calls = 0;
    auto callback = lifetime.guard([&](int by) { calls += by; });
    callback(2);
    callback(3);
    EXPECT_EQ(calls, 5);
}

TEST(LifetimeTest, AGuardedCallableDoesNothingOnceTheOwnerIsGone) {
    std::optional<Lifetime> lifetime(std::in_place);
    int calls = 0;
    auto callback = lifetime->guard([&] { ++calls; });
    lifetime.reset();
    callback();
    EXPECT_EQ(calls, 0);
}

TEST(LifetimeTest, AQueryAnswersAnEmptyValueOnceTheOwnerIsGone) {
    std::optional<Lifetime> lifetime(std::in_place);
    auto query = lifetime->guard([] { return true; });
    EXPECT_TRUE(query());
    lifetime.reset();
    EXPECT_FALSE(query());
}

TEST(LifetimeTest, RenewingSilencesOnlyWhatWasGuardedBefore) {
    Lifetime lifetime;
    int before = 0;
    int after = 0;
    auto old = lifetime.guard([&] { ++before; });
    lifetime.renew();
    auto fresh = lifetime.guard([&] { ++after; });
    old();
    fresh();
    EXPECT_EQ(before, 0);
    EXPECT_EQ(after, 1);
}

} // namespace
} // namespace vexil
