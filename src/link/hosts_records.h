// SPDX-License-Identifier: Apache-2.0
// What the two ends tell each other about hosts mappings. Keys on the wire are the names of the members.
#pragma once

#include "base/date.h"
#include "base/json_fields.h"
#include "base/uuid.h"

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace vexil {

// One named group of mappings.
struct HostsProfile {
    Uuid id;
    std::string name;
    std::string content;    // lines in the syntax of a hosts file
    bool isEnabled = false; // only enabled profiles are written
    Date updatedAt;

    bool operator==(const HostsProfile&) const = default;
};
constexpr auto jsonFields(json::Tag<HostsProfile>) {
    using R = HostsProfile;
    return std::tuple{json::Field{"id", &R::id}, json::Field{"name", &R::name}, json::Field{"content", &R::content},
                      json::Field{"isEnabled", &R::isEnabled}, json::Field{"updatedAt", &R::updatedAt}};
}

struct HostsSnapshot {
    std::int64_t revision = 0;
    std::vector<HostsProfile> profiles; // all of them, in the main application's order

    bool operator==(const HostsSnapshot&) const = default;
};
constexpr auto jsonFields(json::Tag<HostsSnapshot>) {
    using R = HostsSnapshot;
    return std::tuple{json::Field{"revision", &R::revision}, json::Field{"profiles", &R::profiles}};
}

struct HostsApplyCommand {
    bool removeAll = false; // take every mapping out instead of writing the profiles

    bool operator==(const HostsApplyCommand&) const = default;
};
constexpr auto jsonFields(json::Tag<HostsApplyCommand>) {
    return std::tuple{json::Field{"removeAll", &HostsApplyCommand::removeAll}};
}

struct HostsCompanionState {
    bool isInSync = false; // the file holds exactly what the current profiles would produce
    std::int64_t appliedHostnameCount = 0;
    std::int64_t appliedProfileCount = 0;
    std::optional<Date> lastAppliedAt = std::nullopt;    // last success of this run
    std::optional<std::string> lastError = std::nullopt; // last failure, worded for the user
    bool isApplying = false;

    bool operator==(const HostsCompanionState&) const = default;
};
constexpr auto jsonFields(json::Tag<HostsCompanionState>) {
    using R = HostsCompanionState;
    return std::tuple{json::Field{"isInSync", &R::isInSync},
                      json::Field{"appliedHostnameCount", &R::appliedHostnameCount},
                      json::Field{"appliedProfileCount", &R::appliedProfileCount},
                      json::Field{"lastAppliedAt", &R::lastAppliedAt},
                      json::Field{"lastError", &R::lastError},
                      json::Field{"isApplying", &R::isApplying}};
}

} // namespace vexil
