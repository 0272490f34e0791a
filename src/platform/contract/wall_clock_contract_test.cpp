// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/system_wall_clock.h"
#include "platform/memory/memory_wall_clock.h"

#include <gtest/gtest.h>

#include <ctime>

namespace vexil {
namespace {

template <class T> class WallClockContract : public testing::Test {
protected:
    T clock;
};

using Implementations = testing::Types<MemoryWallClock, SystemWallClock>;
TYPED_TEST_SUITE(WallClockContract, Implementations);

TYPED_TEST(WallClockContract, TellsATimeOfThisCentury) {
    EXPECT_GT(this->clock.now(), Date::fromUnixSeconds(1'700'000'000));
    EXPECT_LT(this->clock.now(), Date::fromUnixSeconds(4'102'444'800));
}

TEST(SystemWallClockTest, AgreesWithTheSystemToFractionsOfASecond) {
    timespec before{};
    clock_gettime(CLOCK_REALTIME, &before);
    const double unixSeconds = SystemWallClock().now().unixSeconds();
    timespec after{};
    clock_gettime(CLOCK_REALTIME, &after);
    const auto seconds = [](const timespec& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    constexpr double kRounding = 1e-6;
    EXPECT_GE(unixSeconds, seconds(before) - kRounding);
    EXPECT_LE(unixSeconds, seconds(after) + kRounding);
}

TEST(MemoryWallClockTest, StandsStillUntilItIsSet) {
    MemoryWallClock clock;
    EXPECT_EQ(clock.now(), MemoryWallClock::kStart);
    clock.jump(-1.5);
    EXPECT_EQ(clock.now().unixSeconds(), MemoryWallClock::kStart.unixSeconds() - 1.5);
    clock.set(Date{12});
    EXPECT_EQ(clock.now(), Date{12});
}

} // namespace
} // namespace vexil
