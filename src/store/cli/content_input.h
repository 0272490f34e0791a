// SPDX-License-Identifier: Apache-2.0
// Contents that a person gives on the command line.
#pragma once

#include "base/bytes.h"
#include "base/result.h"
#include "store/cli/command_context.h"
#include "store/cli/command_result.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace vexil {

// What one message of the link can carry, with room for what goes with it.
inline constexpr std::size_t kMaxContentBytes = 15U << 20;

// The content of `file`, or of standard input where it is "-".
[[nodiscard]] Result<Bytes, CommandError> readNamed(const CommandContext& context, const std::string& file,
                                                    std::size_t limit);

// Refuses a text that no entry can hold: an empty one, and what is not UTF-8.
[[nodiscard]] CommandResult checkText(std::string_view text);

// The text itself, or that of standard input where it is "-"; checked.
[[nodiscard]] Result<std::string, CommandError> textArgument(const CommandContext& context, const std::string& given);

} // namespace vexil
