// SPDX-License-Identifier: Apache-2.0
#include "store/cli/listing_commands.h"

#include "base/text_columns.h"
#include "store/cli/category_lookup.h"
#include "store/cli/command_line.h"
#include "store/cli/entry_lookup.h"
#include "store/cli/history_listing.h"
#include "store/cli/store_access.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vexil {

namespace {

struct ListOptions {
    bool onlyFavorites = false;
    std::optional<std::string> category;
    std::string search;
    std::optional<std::size_t> limit;
    bool asJson = false;
};

struct Listing {
    std::vector<StoredEntry> entries;
    std::vector<ClipboardCategory> categories;
};

Result<EntryQuery, CommandError> queryOf(StoreDatabase& database, const ListOptions& options) {
    EntryQuery query{.search = options.search, .limit = options.limit.value_or(EntryQuery::kNoLimit)};
    if (options.onlyFavorites || options.category)
        query.scope = ClipboardScope::favorites;
    if (options.category) {
        const auto category = findCategory(database, *options.category);
        if (!category)
            return Failure{category.error()};
        query.category = category.value().id;
    }
    return query;
}

Result<Listing, CommandError> readListing(StoreDatabase& database, const ListOptions& options) {
    const auto query = queryOf(database, options);
    if (!query)
        return Failure{query.error()};
    auto entries = database.lists().entries(*query);
    if (!entries)
        return Failure{CommandError(entries.error())};
    auto categories = database.categories().list();
    if (!categories)
        return Failure{CommandError(categories.error())};
    return Listing{std::move(entries).value(), std::move(categories).value()};
}

CommandResult list(const CommandContext& context, const ListOptions& options) {
    auto database = openStoreIfAny(context);
    if (!database)
        return Failure{database.error()};
    Listing listing;
    if (auto& store = database.value()) {
        auto read = readListing(*store, options);
        if (!read)
            return Failure{read.error()};
        listing = std::move(read).value();
    }
    if (options.asJson)
        return commandResult(context.output.write(historyJson(listing.entries, listing.categories)));
    const Table table = historyTable(listing.entries, listing.categories);
    return commandResult(context.output.write(table.text(context.output.terminal())));
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
    CLI::App& listing = commandLine.addCommand("list", "Print the history, or the favorites",
                                               [options](CommandContext& context) { return list(context, *options); });
    addFlag(listing, "--favorites", options->onlyFavorites, "Favorites, in the order of their categories");
    addOption(listing, "--category", "NAME", options->category, "Favorites that are filed under this category");
    addOption(listing, "--search", "TEXT", options->search, "Entries whose text or alias contains this, in any case");
    addOption(listing, "--limit", "N", options->limit, "At most so many entries");
    addFlag(listing, "--json", options->asJson, "Print an array of objects instead of a table");
    addRemarks(listing, "Pinned entries (^) come first, then the latest copy; * marks a favorite.\n\n"
                        "Examples:\n"
                        "  vexil-store list --search invoice --limit 5\n"
                        "  vexil-store list --favorites --json");

    auto id = std::make_shared<std::string>();
    CLI::App& showing = commandLine.addCommand("show", "Print the text or the image of one entry",
                                               [id](CommandContext& context) { return show(context, *id); });
    addArgument(showing, "ID", *id, "The id of the entry, or enough of its beginning");
    addRemarks(showing, "Examples:\n"
                        "  vexil-store show 3F2A\n"
                        "  vexil-store show 3F2A > picture.jpg");
}

} // namespace vexil
