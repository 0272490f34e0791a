// SPDX-License-Identifier: Apache-2.0
#include "store/cli/store_command_line.h"

#include "store/cli/listing_commands.h"

namespace vexil {

void addStoreCommands(CommandLine& commandLine) {
    commandLine.startSection("Entries");
    addListingCommands(commandLine);
}

} // namespace vexil
