// SPDX-License-Identifier: Apache-2.0
#include "store/cli/hosts_check.h"

#include "base/text.h"
#include "base/text_columns.h"
#include "store/cli/content_input.h"
#include "store/cli/hosts_lookup.h"
#include "store/cli/store_access.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

namespace vexil {

namespace {

using hosts_syntax::Issue;

constexpr std::size_t kMaxFileBytes = 64U << 20;

struct Checked {
    std::string name;
    std::string content;
};

std::string textOfIssue(const Issue& issue) {
    switch (issue.kind) {
    case Issue::Kind::invalidAddress:
        return "invalid address \"" + issue.field + "\"";
    case Issue::Kind::invalidHostname:
        return "invalid host name \"" + issue.field + "\"";
    case Issue::Kind::missingHostname:
        break;
    }
    return "no host name after the address";
}

Result<Checked, CommandError> readChecked(const CommandContext& context, const std::string& file) {
    std::error_code unknown; // is told by reading
    if (file != "-" && std::filesystem::status(file, unknown).type() == std::filesystem::file_type::not_found)
        return failure("there is neither a hosts profile nor a file \"" + file + "\"");
    const auto content = readNamed(context, file, kMaxFileBytes);
    if (!content)
        return Failure{content.error()};
    Checked checked{file == "-" ? "standard input" : file, std::string(textOf(*content))};
    if (!text::isValidUtf8(checked.content))
        return failure(checked.name + " is not a text in UTF-8");
    return checked;
}

// All profiles, or the one that is named so, if any.
Result<std::vector<Checked>, CommandError> storedProfiles(const CommandContext& context,
                                                          const std::optional<std::string>& named) {
    std::vector<Checked> profiles;
    auto database = openStoreIfAny(context);
    if (!database)
        return Failure{database.error()};
    if (!database.value())
        return profiles;
    StoreDatabase& store = *database.value();
    if (named) {
        auto found = findProfileIfAny(store, *named);
        if (!found)
            return Failure{found.error()};
        if (auto& profile = found.value())
            profiles.push_back({std::move(profile->name), std::move(profile->content)});
        return profiles;
    }
    auto snapshot = store.hostsProfiles().snapshot();
    if (!snapshot)
        return Failure{CommandError(snapshot.error())};
    for (HostsProfile& profile : snapshot->profiles)
        profiles.push_back({std::move(profile.name), std::move(profile.content)});
    return profiles;
}

} // namespace

std::string issueLines(std::string_view source, const std::vector<Issue>& issues) {
    std::string lines;
    for (const Issue& issue : issues) {
        const std::string line = std::string(source) + ":" + std::to_string(issue.line) + ": " + textOfIssue(issue);
        lines += text::withVisibleControls(line) + "\n";
    }
    return lines;
}

CommandResult checkHosts(const CommandContext& context, const std::optional<std::string>& named) {
    auto sources = storedProfiles(context, named);
    if (!sources)
        return Failure{sources.error()};
    if (named && sources->empty()) {
        auto file = readChecked(context, *named);
        if (!file)
            return Failure{file.error()};
        sources->push_back(std::move(file).value());
    }
    std::size_t count = 0;
    for (const Checked& source : sources.value()) {
        const auto parsed = hosts_syntax::parse(source.content);
        count += parsed.issues.size();
        if (auto written = context.output.write(issueLines(source.name, parsed.issues)); !written)
            return Failure{CommandError(written.error())};
    }
    if (count > 0)
        return failure(count == 1 ? "found 1 issue" : "found " + std::to_string(count) + " issues");
    return Done{};
}

} // namespace vexil
