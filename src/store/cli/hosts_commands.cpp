// SPDX-License-Identifier: Apache-2.0
#include "store/cli/hosts_commands.h"

#include "base/text_columns.h"
#include "hosts/hosts_syntax.h"
#include "store/cli/content_input.h"
#include "store/cli/hosts_apply.h"
#include "store/cli/hosts_check.h"
#include "store/cli/hosts_listing.h"
#include "store/cli/hosts_lookup.h"
#include "store/cli/store_access.h"
#include "store/cli/text_editor.h"
#include "store/database/byte_count.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace vexil {

namespace {

using Change = Result<HostsProfileChange, StoreError>;

constexpr std::size_t kUsualWait = 60; // seconds
constexpr std::size_t kLongestWait = 3600;

// What the commands below `hosts` take, each of them some of it.
struct HostsOptions {
    std::string name;
    std::string newName;
    std::optional<std::string> source; // a file, or what is to be checked
    bool isDisabled = false;
    bool asJson = false;
    std::optional<std::size_t> waitSeconds;
};

CommandResult outcomeOf(const Change& change) {
    if (!change)
        return Failure{CommandError(change.error())};
    switch (*change) {
    case HostsProfileChange::noSuchProfile:
        return failure("the hosts profile has just been deleted");
    case HostsProfileChange::nameTaken:
        return failure("another hosts profile has that name; names differ by more than case");
    case HostsProfileChange::badName:
        return failure("that is no name for a hosts profile: it has 1 to " +
                       std::to_string(HostsProfiles::kMaxNameBytes) +
                       " bytes, no control characters, and no blanks but single ones between words");
    case HostsProfileChange::badContent:
        return failure("the lines are not a text in UTF-8");
    case HostsProfileChange::tooLarge:
        return failure("all hosts profiles together would be longer than " + byteCountText(HostsProfiles::kMaxBytes) +
                       ", which is more than the link to Vexil Shortcut carries; delete or shorten one");
    case HostsProfileChange::alreadySo:
    case HostsProfileChange::done:
        break;
    }
    return Done{};
}

// A line that makes no sense is kept, and said.
CommandResult warn(const CommandContext& context, const std::string& name, std::string_view content) {
    return commandResult(context.messages.write(issueLines(name, hosts_syntax::parse(content).issues)));
}

CommandResult list(const CommandContext& context, const HostsOptions& options) {
    auto database = openStoreIfAny(context);
    if (!database)
        return Failure{database.error()};
    HostsSnapshot snapshot;
    if (auto& store = database.value()) {
        auto read = store->hostsProfiles().snapshot();
        if (!read)
            return Failure{CommandError(read.error())};
        snapshot = std::move(read).value();
    }
    if (options.asJson)
        return commandResult(context.output.write(hostsJson(snapshot.profiles)));
    return commandResult(context.output.write(hostsTable(snapshot.profiles).text(context.output.terminal())));
}

CommandResult show(const CommandContext& context, const HostsOptions& options) {
    auto database = openStore(context);
    if (!database)
        return Failure{database.error()};
    const auto profile = findProfile(*database, options.name);
    if (!profile)
        return Failure{profile.error()};
    const std::string& content = profile->content;
    if (!context.output.terminal())
        return commandResult(context.output.write(content));
    std::string visible = text::withVisibleControls(content, text::LineBreaks::keep);
    if (!visible.empty() && !visible.ends_with('\n'))
        visible.push_back('\n');
    return commandResult(context.output.write(visible));
}

CommandResult add(const CommandContext& context, const HostsOptions& options) {
    std::string content;
    if (options.source) {
        const auto read = readNamed(context, *options.source, HostsProfiles::kMaxBytes);
        if (!read)
            return Failure{read.error()};
        content = textOf(*read);
    }
    auto database = openOrCreateStore(context);
    if (!database)
        return Failure{database.error()};
    auto added = outcomeOf(
        database->hostsProfiles().add({Uuid::random(), options.name, content, !options.isDisabled, context.now()}));
    return added ? warn(context, options.name, content) : added;
}

// Finds the profile that is named and does `work` with it.
template <class Work> CommandResult withNamed(const CommandContext& context, const std::string& name, Work work) {
    auto database = openStore(context);
    if (!database)
        return Failure{database.error()};
    const auto profile = findProfile(*database, name);
    if (!profile)
        return Failure{profile.error()};
    return work(*database, profile.value());
}

CommandResult edit(const CommandContext& context, const HostsOptions& options) {
    return withNamed(context, options.name, [&](StoreDatabase& database, const HostsProfile& profile) {
        return editText(context, profile.content, "hosts", [&](const std::string& edited) {
            auto kept = outcomeOf(database.hostsProfiles().setContent(profile.id, edited, context.now()));
            return kept ? warn(context, profile.name, edited) : kept;
        });
    });
}

using Options = std::shared_ptr<HostsOptions>;
using Work = CommandResult (*)(const CommandContext&, const HostsOptions&);
using Edit = Change (*)(HostsProfiles, const Uuid&, const HostsOptions&, Date now);

// Makes the commands below `hosts`.
class HostsGroup {
public:
    explicit HostsGroup(CommandLine& commandLine)
        : commandLine_(commandLine),
          group_(commandLine.addGroup("hosts", "Keep hosts profiles, and have them applied")) {}

    std::pair<CLI::App&, Options> add(const std::string& name, const std::string& description, Work work) const {
        auto options = std::make_shared<HostsOptions>();
        CLI::App& command =
            commandLine_.addCommand(group_, name, description,
                                    [options, work](const CommandContext& context) { return work(context, *options); });
        return {command, options};
    }

    // With the name of a profile as its first argument.
    std::pair<CLI::App&, Options> addNamed(const std::string& name, const std::string& description, Work work) const {
        const auto [command, options] = add(name, description, work);
        addArgument(command, "NAME", options->name, "The name of the profile, or the beginning of its id");
        return {command, options};
    }

    std::pair<CLI::App&, Options> addEdit(const std::string& name, const std::string& description, Edit edit) const {
        auto options = std::make_shared<HostsOptions>();
        CLI::App& command =
            commandLine_.addCommand(group_, name, description, [options, edit](const CommandContext& context) {
                return withNamed(context, options->name, [&](StoreDatabase& database, const HostsProfile& profile) {
                    return outcomeOf(edit(database.hostsProfiles(), profile.id, *options, context.now()));
                });
            });
        addArgument(command, "NAME", options->name, "The name of the profile, or the beginning of its id");
        return {command, options};
    }

private:
    CommandLine& commandLine_;
    CLI::App& group_;
};

void addLooking(const HostsGroup& group) {
    const auto [listing, listed] = group.add("list", "Print the hosts profiles in their order", list);
    addFlag(listing, "--json", listed->asJson, "Print an array of objects instead of a table");
    group.addNamed("show", "Print the lines of a profile", show);
    const auto [checking, checked] = group.add(
        "check", "Print what is wrong in a profile or a file",
        [](const CommandContext& context, const HostsOptions& options) { return checkHosts(context, options.source); });
    addArgument(checking, "NAME", checked->source, "A profile, else a file or -; without, all profiles");
}

void addChanging(const HostsGroup& group) {
    const auto [adding, added] = group.add("add", "Add a profile behind the others", add);
    addArgument(adding, "NAME", added->name, "The name of the profile");
    addArgument(adding, "FILE", added->source, "Where its lines are; - is standard input; none without");
    addFlag(adding, "--disabled", added->isDisabled, "Leave it out of what is applied");
    group.addNamed("edit", "Edit the lines of a profile in $VISUAL or $EDITOR", edit);
    group.addEdit("enable", "Have a profile applied",
                  [](HostsProfiles profiles, const Uuid& id, const HostsOptions&, Date now) {
                      return profiles.setEnabled(id, true, now);
                  });
    group.addEdit("disable", "Leave a profile out of what is applied",
                  [](HostsProfiles profiles, const Uuid& id, const HostsOptions&, Date now) {
                      return profiles.setEnabled(id, false, now);
                  });
    const auto [renaming, renamed] =
        group.addEdit("rename", "Give a profile another name",
                      [](HostsProfiles profiles, const Uuid& id, const HostsOptions& options, Date now) {
                          return profiles.rename(id, options.newName, now);
                      });
    addArgument(renaming, "NEW", renamed->newName, "Its new name");
    group.addEdit("delete", "Delete a profile", [](HostsProfiles profiles, const Uuid& id, const HostsOptions&, Date) {
        return profiles.remove(id);
    });
}

template <bool RemoveAll> CommandResult apply(const CommandContext& context, const HostsOptions& options) {
    const std::size_t seconds = options.waitSeconds.value_or(kUsualWait);
    if (seconds > kLongestWait)
        return usageFailure("--wait takes up to " + std::to_string(kLongestWait) + " seconds");
    return applyHosts(context, RemoveAll, std::chrono::seconds(seconds));
}

void addApplying(const HostsGroup& group) {
    constexpr auto kWaitHelp = "How long to wait for the outcome; 60 without";
    const auto [applying, applied] =
        group.add("apply", "Have the enabled profiles written to the hosts file", apply<false>);
    addOption(applying, "--wait", "SECONDS", applied->waitSeconds, kWaitHelp);
    const auto [removing, removed] =
        group.add("remove-all", "Have all of it taken out of the hosts file again", apply<true>);
    addOption(removing, "--wait", "SECONDS", removed->waitSeconds, kWaitHelp);
}

} // namespace

void addHostsCommands(CommandLine& commandLine) {
    const HostsGroup group(commandLine);
    addLooking(group);
    addChanging(group);
    addApplying(group);
}

} // namespace vexil
