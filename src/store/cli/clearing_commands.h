// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vexil {

class CommandLine;

// clear: deletes many entries at once, and asks before.
void addClearingCommands(CommandLine& commandLine);

} // namespace vexil
