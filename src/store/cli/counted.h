// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <string>

namespace vexil {

// "1 category", "2 categories".
template <std::integral Count>
[[nodiscard]] std::string counted(Count count, const std::string& one, const std::string& many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// "1 host name", "2 host names".
template <std::integral Count> [[nodiscard]] std::string counted(Count count, const std::string& one) {
    return counted(count, one, one + "s");
}

} // namespace vexil
