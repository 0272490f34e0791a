// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/cli/command_line.h"

namespace vexil {

// list and show: what is in the store.
void addListingCommands(CommandLine& commandLine);

} // namespace vexil
