// SPDX-License-Identifier: Apache-2.0
#include "store/cli/entry_commands.h"

#include "base/text.h"
#include "store/cli/category_lookup.h"
#include "store/cli/command_line.h"
#include "store/cli/content_input.h"
#include "store/cli/entry_lookup.h"
#include "store/cli/store_access.h"
#include "store/cli/text_editor.h"
#include "store/database/clipboard_categories.h"
#include "store/database/clipboard_entries.h"
#include "store/database/clipboard_lists.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace vexil {

namespace {

// What a command is about: the entry that was named, and the store that it is in.
struct Target {
    StoreDatabase database;
    Uuid id;
    std::string typed;
};

Result<Target, CommandError> findTarget(const CommandContext& context, const std::string& typed) {
    auto database = openStore(context);
    if (!database)
        return Failure{database.error()};
    const auto id = findEntry(*database, typed);
    if (!id)
        return Failure{id.error()};
    return Target{std::move(database).value(), *id, typed};
}

// `missing` is why the entry, which was there a moment ago, cannot be changed that way.
CommandResult outcomeOf(const Result<EntryChange, StoreError>& change, const Target& target,
                        const std::string& missing) {
    if (!change)
        return Failure{CommandError(change.error())};
    switch (*change) {
    case EntryChange::noSuchEntry:
        return failure(target.typed + " " + missing);
    case EntryChange::noSuchCategory:
        return failure("the category has just been deleted");
    case EntryChange::notAText:
        return failure(target.typed + " is an image, it has no text to edit");
    case EntryChange::done:
        break;
    }
    return Done{};
}

constexpr const char* kJustDeleted = "has just been deleted";

CommandResult pin(const CommandContext& context, const std::string& typed, bool isPinned) {
    auto target = findTarget(context, typed);
    if (!target)
        return Failure{target.error()};
    return outcomeOf(target->database.entries().pin(target->id, isPinned ? std::optional(context.now()) : std::nullopt),
                     *target, "is not in the history, and only what is there can be pinned");
}

struct FavoriteOptions {
    std::string id;
    std::optional<std::string> category;
    bool withoutCategory = false;
};

// The category that the entry is to be filed under.
Result<std::optional<Uuid>, CommandError> categoryFor(Target& target, const FavoriteOptions& options) {
    if (options.withoutCategory)
        return std::optional<Uuid>();
    if (options.category) {
        const auto category = findCategory(target.database, *options.category);
        if (!category)
            return Failure{category.error()};
        return std::optional(category.value().id);
    }
    const auto entry = target.database.lists().entry(target.id);
    if (!entry)
        return Failure{CommandError(entry.error())};
    const auto& found = entry.value();
    return found ? found->row.categoryID : std::nullopt;
}

CommandResult favorite(const CommandContext& context, const FavoriteOptions& options) {
    if (options.category && options.withoutCategory)
        return usageFailure("give either --category or --no-category");
    auto target = findTarget(context, options.id);
    if (!target)
        return Failure{target.error()};
    const auto category = categoryFor(*target, options);
    if (!category)
        return Failure{category.error()};
    return outcomeOf(target->database.entries().addToFavorites(target->id, *category), *target, kJustDeleted);
}

CommandResult remove(const CommandContext& context, const std::string& typed, std::optional<ClipboardScope> scope) {
    auto target = findTarget(context, typed);
    if (!target)
        return Failure{target.error()};
    ClipboardEntries entries = target->database.entries();
    if (!scope)
        return outcomeOf(entries.removeEverywhere(target->id), *target, kJustDeleted);
    return outcomeOf(entries.remove(target->id, *scope), *target,
                     *scope == ClipboardScope::history ? "is not in the history" : "is not a favorite");
}

struct DeleteOptions {
    std::string id;
    std::optional<std::string> from;
};

CommandResult deleteEntry(const CommandContext& context, const DeleteOptions& options) {
    if (!options.from)
        return remove(context, options.id, std::nullopt);
    if (*options.from == "history")
        return remove(context, options.id, ClipboardScope::history);
    if (*options.from == "favorites")
        return remove(context, options.id, ClipboardScope::favorites);
    return usageFailure("--from takes history or favorites");
}

struct AliasOptions {
    std::string id;
    std::optional<std::string> name;
    bool isRemoved = false;
};

CommandResult alias(const CommandContext& context, const AliasOptions& options) {
    if (options.isRemoved == options.name.has_value())
        return usageFailure("give either a name or --remove");
    if (options.name && (options.name->empty() || !text::isValidUtf8(*options.name)))
        return usageFailure("an alias is a text in UTF-8 and not empty; --remove takes one away");
    if (options.name && options.name->size() > ClipboardEntries::kMaxAliasBytes)
        return usageFailure("an alias has at most " + std::to_string(ClipboardEntries::kMaxAliasBytes) + " bytes");
    auto target = findTarget(context, options.id);
    if (!target)
        return Failure{target.error()};
    return outcomeOf(target->database.entries().setAlias(target->id, options.name), *target, kJustDeleted);
}

struct EditOptions {
    std::string id;
    std::optional<std::string> text;
};

CommandResult edit(const CommandContext& context, const EditOptions& options) {
    auto target = findTarget(context, options.id);
    if (!target)
        return Failure{target.error()};
    const auto content = target->database.lists().content(target->id);
    if (!content)
        return Failure{CommandError(content.error())};
    const auto& found = content.value();
    if (!found)
        return failure(options.id + " " + kJustDeleted);
    if (found->kind == ClipboardKind::image)
        return outcomeOf(EntryChange::notAText, *target, kJustDeleted);
    const auto replace = [&](const std::string& text) -> CommandResult {
        if (auto checked = checkText(text); !checked)
            return checked;
        return outcomeOf(target->database.entries().setText(target->id, text), *target, kJustDeleted);
    };
    if (!options.text)
        return editText(context, textOf(found->data), "entry.txt", replace);
    const auto text = textArgument(context, *options.text);
    if (!text)
        return Failure{text.error()};
    return *text == textOf(found->data) ? Done{} : replace(*text);
}

void addIdTo(CLI::App& command, std::string& id) {
    addArgument(command, "ID", id, "The id of the entry, or enough of its beginning");
}

// A command that takes an id and nothing else.
CLI::App& addForEntry(CommandLine& commandLine, const std::string& name, const std::string& description,
                      std::function<CommandResult(CommandContext&, const std::string&)> run) {
    auto id = std::make_shared<std::string>();
    CLI::App& command = commandLine.addCommand(
        name, description, [id, run = std::move(run)](CommandContext& context) { return run(context, *id); });
    addIdTo(command, *id);
    return command;
}

void addFavoriteCommand(CommandLine& commandLine) {
    auto options = std::make_shared<FavoriteOptions>();
    CLI::App& command =
        commandLine.addCommand("favorite", "Keep an entry among the favorites",
                               [options](CommandContext& context) { return favorite(context, *options); });
    addIdTo(command, options->id);
    addOption(command, "--category", "NAME", options->category, "File it under this category");
    addFlag(command, "--no-category", options->withoutCategory, "File it under none");
}

void addAliasCommand(CommandLine& commandLine) {
    auto options = std::make_shared<AliasOptions>();
    CLI::App& command = commandLine.addCommand("alias", "Give an entry a name, or take it away",
                                               [options](CommandContext& context) { return alias(context, *options); });
    addIdTo(command, options->id);
    addArgument(command, "NAME", options->name, "The name, which is shown and searched with the text");
    addFlag(command, "--remove", options->isRemoved, "Take the name away");
}

void addEditCommand(CommandLine& commandLine) {
    auto options = std::make_shared<EditOptions>();
    CLI::App& command = commandLine.addCommand("edit", "Change the text of an entry",
                                               [options](CommandContext& context) { return edit(context, *options); });
    addIdTo(command, options->id);
    addArgument(command, "TEXT", options->text, "The new text; - reads standard input");
    addRemarks(command, "Without a text the editor opens that VISUAL or EDITOR names.");
}

void addDeleteCommand(CommandLine& commandLine) {
    auto options = std::make_shared<DeleteOptions>();
    CLI::App& command =
        commandLine.addCommand("delete", "Delete an entry, from the history and the favorites",
                               [options](CommandContext& context) { return deleteEntry(context, *options); });
    addIdTo(command, options->id);
    addOption(command, "--from", "LIST", options->from, "Only from this list: history or favorites");
}

} // namespace

void addEntryCommands(CommandLine& commandLine) {
    addForEntry(commandLine, "pin", "Keep an entry at the top of the history",
                [](CommandContext& context, const std::string& id) { return pin(context, id, true); });
    addForEntry(commandLine, "unpin", "Let an entry go down the history again",
                [](CommandContext& context, const std::string& id) { return pin(context, id, false); });
    addFavoriteCommand(commandLine);
    CLI::App& unfavorite = addForEntry(
        commandLine, "unfavorite", "Take an entry off the favorites",
        [](CommandContext& context, const std::string& id) { return remove(context, id, ClipboardScope::favorites); });
    addRemarks(unfavorite, "One that has left the history as well is gone then.");
    addAliasCommand(commandLine);
    addEditCommand(commandLine);
    addDeleteCommand(commandLine);
}

} // namespace vexil
