// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vexil {

class CommandLine;

// add: puts a text or an image into the history, as if it had been copied.
void addAddingCommands(CommandLine& commandLine);

} // namespace vexil
