// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/cli/command_line.h"

namespace vexil {

void addHostsCommands(CommandLine& commandLine);

} // namespace vexil
