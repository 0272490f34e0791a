// SPDX-License-Identifier: Apache-2.0
// The code points of a text, one by one.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace vexil::text {

// The point that begins at `at`, which moves on to the next one; none at the end. An ill-formed sequence counts as one
// U+FFFD for each of its longest parts that could have begun a point.
[[nodiscard]] std::optional<char32_t> nextPoint(std::string_view utf8, std::size_t& at);

} // namespace vexil::text
