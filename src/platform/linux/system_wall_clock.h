// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/wall_clock.h"

namespace vexil {

class SystemWallClock final : public WallClock {
public:
    [[nodiscard]] Date now() const override;
};

} // namespace vexil
