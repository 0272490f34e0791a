// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vexil {

class CommandLine;

// Every command that needs no more than the store's folder.
void addStoreCommands(CommandLine& commandLine);

} // namespace vexil
