// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/cli/command_line.h"

namespace vexil {

void addStatusCommand(CommandLine& commandLine);

} // namespace vexil
