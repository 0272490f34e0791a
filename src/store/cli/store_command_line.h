// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/cli/command_line.h"

namespace vexil {

// Every command that needs no more than the store's folder.
void addStoreCommands(CommandLine& commandLine);

} // namespace vexil
