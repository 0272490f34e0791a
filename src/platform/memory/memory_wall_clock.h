// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/wall_clock.h"

#include <atomic>

namespace vexil {

// Stands still until it is set.
class MemoryWallClock final : public WallClock {
public:
    // 2025-06-15 12:00:00 UTC, a day like any other.
    static constexpr Date kStart = Date::fromUnixSeconds(1'749'988'800);

    [[nodiscard]] Date now() const override { return {seconds_.load()}; }

    void set(Date date) { seconds_.store(date.secondsSinceReference); }
    // Backwards too.
    void jump(double seconds) { seconds_.store(seconds_.load() + seconds); }

private:
    std::atomic<double> seconds_ = kStart.secondsSinceReference;
};

} // namespace vexil
