// SPDX-License-Identifier: Apache-2.0
#include "store/database/byte_count.h"

#include <array>
#include <cstddef>

namespace vexil {

std::string byteCountText(std::uint64_t bytes) {
    if (bytes < 1000)
        return std::to_string(bytes) + " B";
    static constexpr std::array kUnits = {"kB", "MB", "GB", "TB", "PB", "EB"};
    std::size_t unit = 0;
    while (unit + 1 < kUnits.size() && bytes >= 999'950) { // what would round to 1000.0 belongs to the next unit
        bytes /= 1000;
        ++unit;
    }
    const std::uint64_t tenths = (bytes + 50) / 100;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " " + kUnits.at(unit);
}

} // namespace vexil
