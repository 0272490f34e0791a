// SPDX-License-Identifier: Apache-2.0
// What the views on the entries share. All of it is called within a transaction.
#pragma once

#include "base/bytes.h"
#include "base/result.h"
#include "link/clipboard_records.h"
#include "store/database/sqlite_connection.h"
#include "store/database/store_error.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vexil {

[[nodiscard]] std::string_view nameOf(ClipboardKind kind);
[[nodiscard]] ClipboardKind kindNamed(std::string_view name);

// Counts a change of entries or categories, after it was made.
Result<Done, StoreError> raiseRevision(SqliteConnection& connection);

// Deletes what the history is too long by; how many entries that are.
Result<std::size_t, StoreError> letFallOut(SqliteConnection& connection);

// Both, in less time.
Result<Done, StoreError> raiseRevisionAndLetFallOut(SqliteConnection& connection);

// The content of a new entry, and what it is searched by.
Result<Done, StoreError> insertContent(SqliteConnection& connection, std::int64_t entry, ClipboardKind kind,
                                       ByteView content);
Result<Done, StoreError> replaceContent(SqliteConnection& connection, std::int64_t entry, std::string_view text);

} // namespace vexil
