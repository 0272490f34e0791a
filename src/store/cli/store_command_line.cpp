// SPDX-License-Identifier: Apache-2.0
#include "store/cli/store_command_line.h"

#include "store/cli/adding_commands.h"
#include "store/cli/archive_commands.h"
#include "store/cli/category_commands.h"
#include "store/cli/clearing_commands.h"
#include "store/cli/command_line.h"
#include "store/cli/entry_commands.h"
#include "store/cli/hosts_commands.h"
#include "store/cli/listing_commands.h"
#include "store/cli/status_command.h"

namespace vexil {

void addStoreCommands(CommandLine& commandLine) {
    commandLine.startSection("Entries");
    addListingCommands(commandLine);
    addAddingCommands(commandLine);
    addEntryCommands(commandLine);
    addCategoryCommands(commandLine);
    commandLine.startSection("The whole store");
    addClearingCommands(commandLine);
    addArchiveCommands(commandLine);
    commandLine.startSection("Vexil Shortcut");
    addStatusCommand(commandLine);
    addHostsCommands(commandLine);
}

} // namespace vexil
