// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/unique_function.h"
#include "store/cli/command_context.h"
#include "store/cli/command_result.h"

#include <string>
#include <string_view>

namespace vexil {

// Lets the person edit `text` in an editor, in a private file called `fileName`, and hands what came of it to `apply`.
// Nothing is applied, and it is no failure, where the text is the same as before; a newline that the editor has put at
// the end of a text without one does not count. An editor that fails changes nothing. Where the new text is not UTF-8,
// or `apply` fails, the file is kept and the error says where: it may be the work of an hour.
CommandResult editText(const CommandContext& context, std::string_view text, const std::string& fileName,
                       UniqueFunction<CommandResult(const std::string& edited)> apply);

} // namespace vexil
