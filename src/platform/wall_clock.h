// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/date.h"

namespace vexil {

// The time of day that a person would read off. It may jump; waiting is done with MainQueue.
class WallClock {
public:
    virtual ~WallClock() = default;
    [[nodiscard]] virtual Date now() const = 0; // any thread
};

} // namespace vexil
