// SPDX-License-Identifier: Apache-2.0
// The tables of the store, and how an older file gets them.
#pragma once

#include "base/result.h"
#include "store/database/sqlite_connection.h"
#include "store/database/store_error.h"

#include <cstdint>
#include <filesystem>

namespace vexil::store_schema {

// "VxSt": marks a file as ours.
inline constexpr std::int64_t kApplicationId = 0x56785374;

// The schema that this program reads and writes.
[[nodiscard]] std::int64_t currentVersion();

// Brings the database in `file` up to currentVersion(), each step in one transaction, and sets up the connection for
// durable commits, and to wipe what is deleted. Refuses, and leaves as it is, a file that another program wrote or that
// has a newer schema.
Result<Done, StoreError> prepare(SqliteConnection& connection, const std::filesystem::path& file);
// The same, up to an older version: for tests of the steps in between.
Result<Done, StoreError> prepare(SqliteConnection& connection, const std::filesystem::path& file, std::int64_t version);

} // namespace vexil::store_schema
