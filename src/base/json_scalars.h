// SPDX-License-Identifier: Apache-2.0
// The scalar tokens of JSON. Each function takes one whole token, without white space around it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vexil::json {

// By grammar, whatever its range.
[[nodiscard]] bool isNumber(std::string_view token);

// None where the token is no number, or its value is not integral or does not fit. Exact: never goes through a double.
[[nodiscard]] std::optional<std::int64_t> integerOf(std::string_view token);

// None where the token is no number, or its value is too large, or not zero and too small, for a double.
[[nodiscard]] std::optional<double> doubleOf(std::string_view token);

// Replaces `text` by the inside of a string with its escapes resolved. False for an escape that JSON does not know and
// for half a surrogate pair.
[[nodiscard]] bool unescape(std::string_view inside, std::string& text);

} // namespace vexil::json
