// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/date.h"
#include "base/result.h"
#include "link/hosts_records.h"
#include "store/database/sqlite_connection.h"
#include "store/database/store_error.h"

#include <optional>

namespace vexil {

// What the serving process knows of the companion.
struct CompanionStatus {
    std::optional<Date> linkedSince = std::nullopt;    // none while no companion is linked
    std::optional<bool> isHotKeyActive = std::nullopt; // none where it was not said
    std::optional<Date> hostsStateAt = std::nullopt;   // when hostsState was heard
    std::optional<HostsCompanionState> hostsState =
        std::nullopt; // the last that was heard, also from a companion that is gone

    bool operator==(const CompanionStatus&) const = default;
};

// Where the serving process writes that down for others to read. A light handle on its connection. A process that was
// killed leaves what it wrote last, so the record is to be believed only while somebody serves the store.
class CompanionRecord {
public:
    explicit CompanionRecord(SqliteConnection& connection) : connection_(connection) {}

    Result<CompanionStatus, StoreError> read();
    Result<Done, StoreError> write(const CompanionStatus& status);

private:
    SqliteConnection& connection_;
};

} // namespace vexil
