// SPDX-License-Identifier: Apache-2.0
#include "store/cli/hosts_lookup.h"

#include "store/cli/id_prefix.h"

#include <utility>

namespace vexil {

Result<std::optional<HostsProfile>, CommandError> findProfileIfAny(StoreDatabase& database, const std::string& typed) {
    auto named = database.hostsProfiles().named(typed);
    if (!named)
        return Failure{CommandError(named.error())};
    if (*named)
        return std::move(named).value();
    const auto beginning = canonicalBeginning(typed);
    if (!beginning)
        return std::optional<HostsProfile>();
    auto found = database.hostsProfiles().startingWith(*beginning, 2);
    if (!found)
        return Failure{CommandError(found.error())};
    if (found->size() > 1)
        return failure(typed + " begins the ids of several hosts profiles, such as \"" + found->front().name +
                       "\" and \"" + found->back().name + "\"; give a name");
    return found->empty() ? std::nullopt : std::optional(std::move(found->front()));
}

Result<HostsProfile, CommandError> findProfile(StoreDatabase& database, const std::string& typed) {
    auto found = findProfileIfAny(database, typed);
    if (!found)
        return Failure{found.error()};
    if (!found.value())
        return failure("there is no hosts profile \"" + typed + "\"; see vexil-store hosts list");
    return std::move(*found.value());
}

} // namespace vexil
