// SPDX-License-Identifier: Apache-2.0
// Rows as people fill them, for measures of the panel.
#pragma once

#include "link/clipboard_records.h"

#include <cstddef>
#include <vector>

namespace vexil::bench {

// Previews of about `characters` characters; five of nine are ASCII, the others are of as many scripts. Another seed
// makes other rows, with other ids.
[[nodiscard]] std::vector<ClipboardRowSummary> sampleRows(std::size_t count, std::size_t characters, unsigned seed = 1);

} // namespace vexil::bench
