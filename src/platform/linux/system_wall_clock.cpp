// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/system_wall_clock.h"

#include <chrono>

namespace vexil {

Date SystemWallClock::now() const {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return Date::fromUnixSeconds(std::chrono::duration<double>(sinceEpoch).count());
}

} // namespace vexil
