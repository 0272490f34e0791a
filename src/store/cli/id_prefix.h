// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vexil {

// What a person typed of an id, in either case, with or without hyphens, as the beginning of its 36-character form in
// upper case; none where no id begins like that.
[[nodiscard]] std::optional<std::string> canonicalBeginning(std::string_view typed);

} // namespace vexil
