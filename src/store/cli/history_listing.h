// SPDX-License-Identifier: Apache-2.0
// Entries as the command line prints them.
#pragma once

#include "base/bytes.h"
#include "link/clipboard_records.h"
#include "store/cli/table.h"
#include "store/database/stored_entry.h"

#include <vector>

namespace vexil {

// One line an entry: the beginning of its id, long enough to tell all of `entries` apart; ^ where it is pinned and *
// where it is a favorite; its kind, its size, when it was copied last in local time, then its category, its alias and
// its preview.
[[nodiscard]] Table historyTable(const std::vector<StoredEntry>& entries,
                                 const std::vector<ClipboardCategory>& categories);

// An array with one object a line. Dates are seconds since 2001-01-01 UTC, as on the link.
[[nodiscard]] Bytes historyJson(const std::vector<StoredEntry>& entries,
                                const std::vector<ClipboardCategory>& categories);

} // namespace vexil
