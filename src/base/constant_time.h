// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace vexil {

// Compares secrets: the time taken tells whether the lengths are equal, and nothing else.
[[nodiscard]] bool equalInConstantTime(std::string_view a, std::string_view b);

} // namespace vexil
