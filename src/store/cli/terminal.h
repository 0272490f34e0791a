// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>

namespace vexil {

// The terminal that a stream goes to.
struct Terminal {
    static constexpr std::size_t kUsualColumns = 80;

    std::size_t columns = kUsualColumns;
    bool hasColors = false; // and the person wants to see them: NO_COLOR is not set, TERM is not "dumb"

    // None where the descriptor is something else. Looks at the environment.
    static std::optional<Terminal> of(int descriptor);

    bool operator==(const Terminal&) const = default;
};

} // namespace vexil
