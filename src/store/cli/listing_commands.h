// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vexil {

class CommandLine;

// list and show: what is in the store.
void addListingCommands(CommandLine& commandLine);

} // namespace vexil
