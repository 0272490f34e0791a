// SPDX-License-Identifier: Apache-2.0
#include "store/cli/category_commands.h"

#include "base/json.h"
#include "store/cli/category_lookup.h"
#include "store/cli/command_line.h"
#include "store/cli/json_lines.h"
#include "store/cli/store_access.h"
#include "store/cli/table.h"
#include "store/database/clipboard_categories.h"
#include "store/database/clipboard_lists.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

namespace vexil {

namespace {

struct ListedCategory {
    Uuid id;
    std::string name;
    std::string colorTag;
    std::int64_t order = 0;
    std::int64_t favorites = 0; // that are filed under it
};
constexpr auto jsonFields(json::Tag<ListedCategory>) {
    using R = ListedCategory;
    return std::tuple{json::Field{"id", &R::id}, json::Field{"name", &R::name}, json::Field{"colorTag", &R::colorTag},
                      json::Field{"order", &R::order}, json::Field{"favorites", &R::favorites}};
}

Result<std::vector<ListedCategory>, StoreError> readCategories(StoreDatabase& database) {
    const auto categories = database.categories().list();
    if (!categories)
        return Failure{categories.error()};
    const auto favorites = database.lists().entries({.scope = ClipboardScope::favorites});
    if (!favorites)
        return Failure{favorites.error()};
    std::unordered_map<Uuid, std::int64_t> counts;
    for (const StoredEntry& favorite : *favorites) {
        if (favorite.row.categoryID)
            ++counts[*favorite.row.categoryID];
    }
    std::vector<ListedCategory> listed;
    for (const ClipboardCategory& category : *categories)
        listed.push_back({category.id, category.name, category.colorTag, category.order, counts[category.id]});
    return listed;
}

std::string tableOf(const std::vector<ListedCategory>& categories, const std::optional<Terminal>& terminal) {
    using Align = Table::Column::Align;
    Table table({{.align = Align::right}, {}, {}, {}});
    for (const ListedCategory& category : categories) {
        const std::string count = std::to_string(category.favorites);
        table.addRow({{{std::to_string(category.order + 1), TextStyle::faint}},
                      {{category.name, TextStyle::strong}},
                      {{category.colorTag, TextStyle::accent}},
                      {{count + (category.favorites == 1 ? " favorite" : " favorites"), TextStyle::faint}}});
    }
    return table.text(terminal);
}

CommandResult listCategories(const CommandContext& context, bool asJson) {
    auto database = openStoreIfAny(context);
    if (!database)
        return Failure{database.error()};
    std::vector<ListedCategory> categories;
    if (auto& store = database.value()) {
        auto read = readCategories(*store);
        if (!read)
            return Failure{CommandError(read.error())};
        categories = std::move(read).value();
    }
    if (asJson)
        return commandResult(context.output.write(jsonArrayOfLines(categories)));
    return commandResult(context.output.write(tableOf(categories, context.output.terminal())));
}

CommandResult outcomeOf(const Result<CategoryChange, StoreError>& change) {
    if (!change)
        return Failure{CommandError(change.error())};
    switch (*change) {
    case CategoryChange::noSuchCategory:
        return failure("the category has just been deleted");
    case CategoryChange::nameTaken:
        return failure("another category has that name; names differ by more than case");
    case CategoryChange::badName:
        return failure("that is no name for a category: it has 1 to " +
                       std::to_string(ClipboardCategories::kMaxNameBytes) +
                       " bytes, no control characters, and no blanks at its ends");
    case CategoryChange::badColor:
        return failure("that is no color tag: it has up to " + std::to_string(ClipboardCategories::kMaxColorBytes) +
                       " bytes and no control characters");
    case CategoryChange::tooMany:
        return failure("there are " + std::to_string(ClipboardCategories::kMaxCategories) +
                       " categories, which is as many as there can be");
    case CategoryChange::done:
        break;
    }
    return Done{};
}

// What the commands below `category` take, each of them some of it.
struct CategoryOptions {
    std::string name;
    std::string newName;
    std::string colorTag;
    std::size_t position = 1;
    bool asJson = false;
};

// Finds the category that is named and does `change` to it.
template <class Change>
CommandResult changeNamed(const CommandContext& context, const std::string& name, Change change) {
    auto database = openStore(context);
    if (!database)
        return Failure{database.error()};
    const auto category = findCategory(*database, name);
    if (!category)
        return Failure{category.error()};
    return outcomeOf(change(database->categories(), category.value().id));
}

CommandResult addCategory(const CommandContext& context, const CategoryOptions& options) {
    auto database = openOrCreateStore(context);
    if (!database)
        return Failure{database.error()};
    return outcomeOf(database->categories().add(options.name, options.colorTag));
}

void addChangingCommands(CommandLine& commandLine, CLI::App& group) {
    const auto addNamed = [&](const std::string& name, const std::string& description,
                              auto change) -> std::pair<CLI::App&, std::shared_ptr<CategoryOptions>> {
        auto options = std::make_shared<CategoryOptions>();
        CLI::App& command =
            commandLine.addCommand(group, name, description, [options, change](CommandContext& context) {
                return changeNamed(context, options->name, [&](ClipboardCategories categories, const Uuid& id) {
                    return change(categories, id, *options);
                });
            });
        addArgument(command, "NAME", options->name, "The name of the category");
        return {command, options};
    };
    const auto [renaming, renamed] =
        addNamed("rename", "Give a category another name",
                 [](ClipboardCategories& categories, const Uuid& id, const CategoryOptions& options) {
                     return categories.rename(id, options.newName);
                 });
    addArgument(renaming, "NEW", renamed->newName, "Its new name");
    const auto [coloring, colored] =
        addNamed("color", "Give a category another color tag",
                 [](ClipboardCategories& categories, const Uuid& id, const CategoryOptions& options) {
                     return categories.recolor(id, options.colorTag);
                 });
    addArgument(coloring, "TAG", colored->colorTag, "Its new color tag");
    const auto [moving, moved] =
        addNamed("move", "Put a category elsewhere in the order",
                 [](ClipboardCategories& categories, const Uuid& id, const CategoryOptions& options) {
                     return categories.move(id, options.position - 1);
                 });
    addArgument(moving, "POSITION", moved->position, "Its new place, from 1; too high a number is the end");
    addNamed(
        "delete", "Delete a category; its favorites stay, under none",
        [](ClipboardCategories& categories, const Uuid& id, const CategoryOptions&) { return categories.remove(id); });
}

} // namespace

void addCategoryCommands(CommandLine& commandLine) {
    CLI::App& group = commandLine.addGroup("category", "List and change the categories of favorites");
    auto listed = std::make_shared<CategoryOptions>();
    CLI::App& listing =
        commandLine.addCommand(group, "list", "Print the categories in their order",
                               [listed](CommandContext& context) { return listCategories(context, listed->asJson); });
    addFlag(listing, "--json", listed->asJson, "Print an array of objects instead of a table");
    auto added = std::make_shared<CategoryOptions>();
    CLI::App& adding =
        commandLine.addCommand(group, "add", "Add a category behind the others",
                               [added](CommandContext& context) { return addCategory(context, *added); });
    addArgument(adding, "NAME", added->name, "The name of the category");
    addOption(adding, "--color", "TAG", added->colorTag, "A word for its color, such as red");
    addChangingCommands(commandLine, group);
}

} // namespace vexil
