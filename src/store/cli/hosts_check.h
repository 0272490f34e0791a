// SPDX-License-Identifier: Apache-2.0
// What is wrong with the lines of hosts profiles, as compilers say it.
#pragma once

#include "hosts/hosts_syntax.h"
#include "store/cli/command_context.h"
#include "store/cli/command_result.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vexil {

// One line for each: `Work:3: invalid host name "bad!name"`.
[[nodiscard]] std::string issueLines(std::string_view source, const std::vector<hosts_syntax::Issue>& issues);

// Prints the issues of the profile that is named so, or else of that file ("-" is standard input), or, where nothing is
// named, of all profiles. Fails where there is any.
CommandResult checkHosts(const CommandContext& context, const std::optional<std::string>& named);

} // namespace vexil
