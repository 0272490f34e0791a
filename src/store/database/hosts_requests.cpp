// SPDX-License-Identifier: Apache-2.0
#include "store/database/hosts_requests.h"

#include "store/database/json_column.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace vexil {

namespace {

using Kind = HostsOutcome::Kind;

// In the order of the enumeration.
constexpr std::array<std::string_view, 7> kKindNames = {"done",         "failed",      "notLinked", "linkLost",
                                                        "nothingHeard", "notFinished", "abandoned"};

std::string_view nameOf(Kind kind) {
    return kKindNames.at(static_cast<std::size_t>(kind));
}

Kind kindNamed(std::string_view name) {
    const auto* found = std::find(kKindNames.begin(), kKindNames.end(), name);
    return found == kKindNames.end() ? Kind::abandoned : static_cast<Kind>(found - kKindNames.begin());
}

} // namespace

Result<std::int64_t, StoreError> HostsRequests::add(bool removeAll, std::chrono::milliseconds patience) {
    return connection_.number("INSERT INTO hosts_requests (remove_all, patience_ms) VALUES (?, ?) RETURNING number",
                              removeAll, patience.count());
}

Result<std::optional<HostsOutcome>, StoreError> HostsRequests::outcome(std::int64_t number) {
    auto statement = connection_.prepare("SELECT outcome, hosts_state FROM hosts_requests WHERE number = ?", number);
    if (!statement)
        return Failure{statement.error()};
    const auto stepped = statement->step();
    if (!stepped)
        return Failure{stepped.error()};
    if (!*stepped)
        return std::optional(HostsOutcome{Kind::abandoned, std::nullopt});
    if (statement->isNull(0))
        return std::optional<HostsOutcome>();
    return std::optional(
        HostsOutcome{kindNamed(statement->text(0)), recordOf<HostsCompanionState>(statement->optionalText(1))});
}

Result<Done, StoreError> HostsRequests::withdraw(std::int64_t number) {
    return connection_.run("DELETE FROM hosts_requests WHERE number = ?", number);
}

Result<std::vector<HostsRequest>, StoreError> HostsRequests::pending() {
    auto statement = connection_.prepare(
        "SELECT number, remove_all, patience_ms FROM hosts_requests WHERE outcome IS NULL ORDER BY number");
    if (!statement)
        return Failure{statement.error()};
    std::vector<HostsRequest> requests;
    for (;;) {
        const auto stepped = statement->step();
        if (!stepped)
            return Failure{stepped.error()};
        if (!*stepped)
            return requests;
        requests.push_back(
            {statement->integer(0), statement->integer(1) != 0, std::chrono::milliseconds(statement->integer(2))});
    }
}

Result<Done, StoreError> HostsRequests::finish(std::int64_t number, const HostsOutcome& outcome) {
    return connection_.run("UPDATE hosts_requests SET outcome = ?, hosts_state = ? WHERE number = ?",
                           nameOf(outcome.kind), jsonOf(outcome.state), number);
}

Result<Done, StoreError> HostsRequests::abandonAll() {
    return connection_.transaction(SqliteConnection::Access::write, [&]() -> Result<Done, StoreError> {
        if (auto forgotten = connection_.run("DELETE FROM hosts_requests WHERE outcome IS NOT NULL"); !forgotten)
            return forgotten;
        return connection_.run("UPDATE hosts_requests SET outcome = ?", nameOf(Kind::abandoned));
    });
}

} // namespace vexil
