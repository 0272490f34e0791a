// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vexil {

class CommandLine;

// pin, unpin, favorite, unfavorite, alias, edit and delete: what can be done to one entry.
void addEntryCommands(CommandLine& commandLine);

} // namespace vexil
