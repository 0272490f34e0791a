// SPDX-License-Identifier: Apache-2.0
#include "store/cli/listing_commands.h"

#include "base/text_columns.h"
#include "store/cli/entry_lookup.h"
#include "store/cli/history_listing.h"
#include "store/cli/store_access.h"

#include <memory>
#include <string>
#include <vector>

namespace vexil {

namespace {

struct ListOptions {
    bool asJson = false;
};

CommandResult list(const CommandContext& context, const ListOptions& options) {
    auto database = openStoreIfAny(context);
    if (!database)
        return Failure{database.error()};
    std::vector<StoredEntry> history;
    if (*database) {
        auto read = (*database)->lists().entries({});
        if (!read)
            return Failure{read.error()};
        history = std::move(read).value();
    }
    if (options.asJson)
        return commandResult(context.output.write(historyJson(history)));
    return commandResult(context.output.write(historyTable(history).text(context.output.terminal())));
}

CommandResult show(const CommandContext& context, const std::string& typed) {
    auto database = openStore(context);
    if (!database)
        return Failure{database.error()};
    const auto id = findEntry(*database, typed);
    if (!id)
        return Failure{id.error()};
    const auto content = database->lists().content(*id);
    if (!content)
        return Failure{content.error()};
    if (!*content)
        return failure("the entry " + typed + " has just been deleted");
    const StoredContent& found = **content;
    if (!context.output.terminal())
        return commandResult(context.output.write(found.data));
    if (found.kind == ClipboardKind::image)
        return failure(typed + " is an image; write it to a file: vexil-store show " + typed + " > picture.jpg");
    // What was copied from a web page is not to command the terminal.
    std::string visible = text::withVisibleControls(textOf(found.data), text::LineBreaks::keep);
    if (!visible.ends_with('\n'))
        visible.push_back('\n');
    return commandResult(context.output.write(visible));
}

} // namespace

void addListingCommands(CommandLine& commandLine) {
    auto options = std::make_shared<ListOptions>();
    CLI::App& listing = commandLine.addCommand("list", "Print the history, pinned entries first",
                                               [options](CommandContext& context) { return list(context, *options); });
    listing.add_flag("--json", options->asJson, "Print an array of objects instead of a table");

    auto id = std::make_shared<std::string>();
    CLI::App& showing = commandLine.addCommand("show", "Print the text or the image of one entry",
                                               [id](CommandContext& context) { return show(context, *id); });
    showing.add_option("ID", *id, "The id of the entry, or enough of its beginning")->required()->option_text(" ");
}

} // namespace vexil
