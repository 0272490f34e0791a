// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>

namespace vexil {

// The system's generator for secrets.
class SecureRandom {
public:
    virtual ~SecureRandom() = default;

    // Fills all of `out`, or returns false and leaves `out` unspecified. Never blocks for long. Any thread.
    [[nodiscard]] virtual bool fill(std::span<std::uint8_t> out) = 0;
};

} // namespace vexil
