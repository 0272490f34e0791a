// SPDX-License-Identifier: Apache-2.0
// Hosts profiles as the command line prints them.
#pragma once

#include "base/bytes.h"
#include "link/hosts_records.h"
#include "store/cli/table.h"

#include <vector>

namespace vexil {

// One line a profile: its name, whether it is enabled, how many host names it maps and how many issues its lines have.
[[nodiscard]] Table hostsTable(const std::vector<HostsProfile>& profiles);

// An array with one object a line, contents included. Dates are seconds since 2001-01-01 UTC, as on the link.
[[nodiscard]] Bytes hostsJson(const std::vector<HostsProfile>& profiles);

} // namespace vexil
