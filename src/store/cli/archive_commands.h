// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vexil {

class CommandLine;

// export and import: all of the store as a file, and back.
void addArchiveCommands(CommandLine& commandLine);

} // namespace vexil
