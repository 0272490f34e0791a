// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/cli/command_context.h"
#include "store/cli/command_result.h"

#include <chrono>

namespace vexil {

// Has the companion apply the profiles, or take out all that was applied, by way of the process that serves the store,
// and waits up to `patience` to say what came of it. Where nobody serves, or no companion is linked, it fails at once.
CommandResult applyHosts(const CommandContext& context, bool removeAll, std::chrono::seconds patience);

} // namespace vexil
