// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace vexil {

// For a person to read: "999 B", "1.0 kB", "12.6 MB"; a kilobyte has 1,000 bytes.
[[nodiscard]] std::string byteCountText(std::uint64_t bytes);

} // namespace vexil
