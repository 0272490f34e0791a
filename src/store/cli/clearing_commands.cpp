// SPDX-License-Identifier: Apache-2.0
#include "store/cli/clearing_commands.h"

#include "store/cli/command_line.h"
#include "store/cli/store_access.h"
#include "store/database/clipboard_entries.h"

#include <memory>
#include <string>

namespace vexil {

namespace {

struct ClearOptions {
    bool isEverything = false;
    bool isAgreed = false;
};

// Done where the person agrees.
CommandResult ask(const CommandContext& context, const std::string& question) {
    if (auto asked = context.messages.write(question + " [y/N] "); !asked)
        return Failure{CommandError(asked.error())};
    const auto answer = context.input.readLine();
    if (!answer)
        return Failure{CommandError(answer.error())};
    if (*answer == "y" || *answer == "Y" || *answer == "yes")
        return Done{};
    return failure("nothing is deleted");
}

CommandResult clear(const CommandContext& context, const ClearOptions& options) {
    if (!options.isAgreed && !context.input.isTerminal())
        return usageFailure("there is nobody to ask whether to delete; say --yes to do so");
    auto database = openStore(context);
    if (!database)
        return Failure{database.error()};
    if (!options.isAgreed) {
        if (auto agreed =
                ask(context, options.isEverything ? "Delete all entries, pinned and favorite ones too?"
                                                  : "Delete the history but for pinned and favorite entries?");
            !agreed)
            return agreed;
    }
    const auto deleted = database->entries().clear(options.isEverything ? ClipboardEntries::Clear::everything
                                                                        : ClipboardEntries::Clear::history);
    if (!deleted)
        return Failure{CommandError(deleted.error())};
    return commandResult(
        context.output.write("deleted " + std::to_string(*deleted) + (*deleted == 1 ? " entry\n" : " entries\n")));
}

} // namespace

void addClearingCommands(CommandLine& commandLine) {
    auto options = std::make_shared<ClearOptions>();
    CLI::App& command = commandLine.addCommand("clear", "Delete the history but for pinned and favorite entries",
                                               [options](CommandContext& context) { return clear(context, *options); });
    addFlag(command, "--all", options->isEverything, "Delete pinned and favorite entries too");
    addFlag(command, "--yes", options->isAgreed, "Do not ask, as is needed without a terminal");
}

} // namespace vexil
