// SPDX-License-Identifier: Apache-2.0
// The one hosts profile that a person means.
#pragma once

#include "base/result.h"
#include "link/hosts_records.h"
#include "store/cli/command_result.h"
#include "store/database/store_database.h"

#include <optional>
#include <string>

namespace vexil {

// By its name, in whatever case, or else by the beginning of its id. None where there is none; fails where there are
// several.
[[nodiscard]] Result<std::optional<HostsProfile>, CommandError> findProfileIfAny(StoreDatabase& database,
                                                                                 const std::string& typed);
[[nodiscard]] Result<HostsProfile, CommandError> findProfile(StoreDatabase& database, const std::string& typed);

} // namespace vexil
