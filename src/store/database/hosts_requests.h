// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/result.h"
#include "link/hosts_records.h"
#include "store/database/sqlite_connection.h"
#include "store/database/store_error.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace vexil {

// What another process asks the serving one to have the companion do.
struct HostsRequest {
    std::int64_t number = 0;
    bool removeAll = false;
    std::chrono::milliseconds patience{}; // how long the outcome is of interest

    bool operator==(const HostsRequest&) const = default;
};

struct HostsOutcome {
    enum class Kind {
        done,
        failed,       // the companion said why
        notLinked,    // there is no companion
        linkLost,     // while the companion was at it
        nothingHeard, // the companion did not begin
        notFinished,  // the companion began, and was not done when patience ended
        abandoned,    // the serving process ended
    };

    Kind kind = Kind::done;
    std::optional<HostsCompanionState> state; // what the companion said last

    bool operator==(const HostsOutcome&) const = default;
};

// How the command line asks for hosts to be applied, and hears what came of it. A light handle on its connection.
class HostsRequests {
public:
    explicit HostsRequests(SqliteConnection& connection) : connection_(connection) {}

    // The side that asks.
    Result<std::int64_t, StoreError> add(bool removeAll, std::chrono::milliseconds patience);
    // None as long as there is none yet.
    Result<std::optional<HostsOutcome>, StoreError> outcome(std::int64_t number);
    // Forgets the request, whatever became of it.
    Result<Done, StoreError> withdraw(std::int64_t number);

    // The side that serves. Those without an outcome, the oldest first.
    Result<std::vector<HostsRequest>, StoreError> pending();
    // Of a request that was withdrawn nothing is noted.
    Result<Done, StoreError> finish(std::int64_t number, const HostsOutcome& outcome);
    // What was asked of a process that served before comes to nothing; what it finished, nobody came back for.
    Result<Done, StoreError> abandonAll();

private:
    SqliteConnection& connection_;
};

} // namespace vexil
