// SPDX-License-Identifier: Apache-2.0
#include "store/database/companion_record.h"

#include "store/database/json_column.h"

namespace vexil {

Result<CompanionStatus, StoreError> CompanionRecord::read() {
    auto statement =
        connection_.prepare("SELECT linked_since, hot_key_active, hosts_state_at, hosts_state FROM companion");
    if (!statement)
        return Failure{statement.error()};
    const auto stepped = statement->step();
    if (!stepped)
        return Failure{stepped.error()};
    CompanionStatus status;
    if (!statement->isNull(0))
        status.linkedSince = statement->date(0);
    if (!statement->isNull(1))
        status.isHotKeyActive = statement->integer(1) != 0;
    if (!statement->isNull(2))
        status.hostsStateAt = statement->date(2);
    status.hostsState = recordOf<HostsCompanionState>(statement->optionalText(3));
    return status;
}

Result<Done, StoreError> CompanionRecord::write(const CompanionStatus& status) {
    return connection_.run("UPDATE companion SET linked_since = ?, hot_key_active = ?, hosts_state_at = ?, "
                           "hosts_state = ?",
                           status.linkedSince, status.isHotKeyActive, status.hostsStateAt, jsonOf(status.hostsState));
}

} // namespace vexil
