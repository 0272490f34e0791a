// SPDX-License-Identifier: Apache-2.0
#include "store/cli/status_command.h"

#include "base/json.h"
#include "store/cli/counted.h"
#include "store/cli/local_time.h"
#include "store/cli/store_access.h"
#include "store/cli/table.h"
#include "store/database/byte_count.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>

namespace vexil {

namespace {

constexpr std::size_t kEndlessLine = 1'000'000;

// What is not known is left out.
struct Status {
    bool isServing = false;
    bool isCompanionLinked = false;
    std::optional<Date> linkedSince;
    std::optional<bool> isHotKeyActive;
    std::int64_t history = 0;
    std::int64_t pinned = 0;
    std::int64_t favorites = 0;
    std::int64_t categories = 0;
    std::int64_t images = 0;
    std::int64_t contentBytes = 0;
    std::int64_t bytesOnDisk = 0;
    std::int64_t hostsProfiles = 0;
    std::int64_t enabledHostsProfiles = 0;
    std::optional<Date> hostsStateAt; // when hostsState was heard; the companion that said it may be gone
    std::optional<HostsCompanionState> hostsState;
};
constexpr auto jsonFields(json::Tag<Status>) {
    using R = Status;
    return std::tuple{json::Field{"isServing", &R::isServing},
                      json::Field{"isCompanionLinked", &R::isCompanionLinked},
                      json::Field{"linkedSince", &R::linkedSince},
                      json::Field{"isHotKeyActive", &R::isHotKeyActive},
                      json::Field{"history", &R::history},
                      json::Field{"pinned", &R::pinned},
                      json::Field{"favorites", &R::favorites},
                      json::Field{"categories", &R::categories},
                      json::Field{"images", &R::images},
                      json::Field{"contentBytes", &R::contentBytes},
                      json::Field{"bytesOnDisk", &R::bytesOnDisk},
                      json::Field{"hostsProfiles", &R::hostsProfiles},
                      json::Field{"enabledHostsProfiles", &R::enabledHostsProfiles},
                      json::Field{"hostsStateAt", &R::hostsStateAt},
                      json::Field{"hostsState", &R::hostsState}};
}

// With what SQLite keeps beside it.
std::int64_t bytesOnDisk(const std::filesystem::path& database) {
    std::uintmax_t bytes = 0;
    for (const char* suffix : {"", "-wal", "-shm"}) {
        std::error_code missing;
        const std::uintmax_t size = std::filesystem::file_size(database.string() + suffix, missing);
        bytes += missing ? 0 : size;
    }
    return static_cast<std::int64_t>(bytes);
}

Result<Done, StoreError> readCounts(StoreDatabase& database, Status& status) {
    const auto counts = database.lists().counts();
    if (!counts)
        return Failure{counts.error()};
    status.history = static_cast<std::int64_t>(counts->history);
    status.pinned = static_cast<std::int64_t>(counts->pinned);
    status.favorites = static_cast<std::int64_t>(counts->favorites);
    status.categories = static_cast<std::int64_t>(counts->categories);
    status.images = static_cast<std::int64_t>(counts->images);
    status.contentBytes = static_cast<std::int64_t>(counts->contentBytes);
    const auto hosts = database.hostsProfiles().counts();
    if (!hosts)
        return Failure{hosts.error()};
    status.hostsProfiles = hosts->all;
    status.enabledHostsProfiles = hosts->enabled;
    return Done{};
}

Result<Done, StoreError> readCompanion(StoreDatabase& database, Status& status) {
    auto companion = database.companionRecord().read();
    if (!companion)
        return Failure{companion.error()};
    status.hostsStateAt = companion->hostsStateAt;
    status.hostsState = std::move(companion->hostsState);
    // A process that was killed could not take it back.
    if (!status.isServing)
        return Done{};
    status.isCompanionLinked = companion->linkedSince.has_value();
    status.linkedSince = companion->linkedSince;
    status.isHotKeyActive = companion->isHotKeyActive;
    return Done{};
}

Result<Status, CommandError> readStatus(const CommandContext& context) {
    Status status;
    status.isServing = StoreLock::isHeld(context.folder);
    auto database = openStoreIfAny(context);
    if (!database)
        return Failure{database.error()};
    if (!database.value())
        return status;
    status.bytesOnDisk = bytesOnDisk(context.folder.database());
    if (auto read = readCounts(*database.value(), status); !read)
        return Failure{CommandError(read.error())};
    if (auto read = readCompanion(*database.value(), status); !read)
        return Failure{CommandError(read.error())};
    return status;
}

std::string companionText(const Status& status) {
    if (!status.isCompanionLinked)
        return status.isServing ? "not linked" : "not linked; only vexil-store serve links it";
    return "linked since " + localTime(status.linkedSince.value_or(Date()));
}

std::string hotKeyText(const Status& status) {
    if (!status.isHotKeyActive)
        return "unknown";
    return *status.isHotKeyActive ? "active" : "not active";
}

std::string bytesText(std::int64_t bytes) {
    return byteCountText(static_cast<std::uint64_t>(std::max<std::int64_t>(bytes, 0)));
}

void addHostsRows(Table& table, const Status& status) {
    table.addRow({{{"hosts profiles", TextStyle::faint}},
                  {std::to_string(status.hostsProfiles) + ", " + std::to_string(status.enabledHostsProfiles) +
                   " of them enabled"}});
    if (!status.hostsState)
        return table.addRow({{{"hosts file", TextStyle::faint}}, {"unknown; nothing was heard of it"}});
    const HostsCompanionState& state = *status.hostsState;
    std::string text = state.isInSync ? "in sync" : "not in sync";
    text += ", " + counted(state.appliedHostnameCount, "host name") + " of " +
            counted(state.appliedProfileCount, "profile") + " applied";
    if (state.isApplying)
        text += ", applying";
    if (!status.isCompanionLinked && status.hostsStateAt)
        text += " (as of " + localTime(*status.hostsStateAt) + ")";
    table.addRow({{{"hosts file", TextStyle::faint}}, {std::move(text)}});
    if (state.lastAppliedAt)
        table.addRow({{{"last applied", TextStyle::faint}}, {localTime(*state.lastAppliedAt)}});
    if (state.lastError)
        table.addRow({{{"last error", TextStyle::faint}}, {{*state.lastError, TextStyle::accent}}});
}

Table tableOf(const Status& status) {
    Table table({{}, {}});
    const auto add = [&](const char* what, std::string text) {
        table.addRow({{{what, TextStyle::faint}}, {std::move(text)}});
    };
    add("serve", status.isServing ? "running" : "not running");
    add("companion", companionText(status));
    add("hot key", hotKeyText(status));
    add("history", std::to_string(status.history) + ", " + std::to_string(status.pinned) + " of them pinned");
    add("favorites", std::to_string(status.favorites) + ", in " + counted(status.categories, "category", "categories"));
    add("images", std::to_string(status.images));
    add("size", bytesText(status.contentBytes) + ", " + bytesText(status.bytesOnDisk) + " on disk");
    addHostsRows(table, status);
    return table;
}

CommandResult printStatus(const CommandContext& context, bool asJson) {
    const auto status = readStatus(context);
    if (!status)
        return Failure{status.error()};
    if (!asJson) {
        auto terminal = context.output.terminal();
        if (terminal)
            terminal->columns = kEndlessLine; // which is wrapped: an error is to be read to its end
        return commandResult(context.output.write(tableOf(status.value()).text(terminal)));
    }
    Bytes text;
    json::append(text, status.value());
    text.push_back('\n');
    return commandResult(context.output.write(text));
}

} // namespace

void addStatusCommand(CommandLine& commandLine) {
    auto asJson = std::make_shared<bool>(false);
    CLI::App& command =
        commandLine.addCommand("status", "Print what is stored and what is linked",
                               [asJson](CommandContext& context) { return printStatus(context, *asJson); });
    addFlag(command, "--json", *asJson, "Print an object instead of a table");
}

} // namespace vexil
