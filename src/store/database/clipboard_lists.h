// SPDX-License-Identifier: Apache-2.0
// Looks into the store.
#pragma once

#include "base/bytes.h"
#include "base/result.h"
#include "base/uuid.h"
#include "store/database/sqlite_connection.h"
#include "store/database/store_error.h"
#include "store/database/stored_entry.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace vexil {

// A light view on the database, got from StoreDatabase::lists() and used at once.
class ClipboardLists {
public:
    explicit ClipboardLists(SqliteConnection& connection) : connection_(connection) {}

    // History: pinned entries first, the latest pin leading, then the latest copy first. Favorites: by the order of
    // their categories, those without one last, then the latest copy first.
    Result<std::vector<StoredEntry>, StoreError> entries(const EntryQuery& query);
    // Its row is of the history where it is on both lists. None where there is no such entry.
    Result<std::optional<StoredEntry>, StoreError> entry(const Uuid& id);
    Result<std::optional<StoredContent>, StoreError> content(const Uuid& id);

    // At most `limit` ids whose 36-character form begins with `prefix`, which is in upper case, in ascending order.
    Result<std::vector<Uuid>, StoreError> idsStartingWith(std::string_view prefix, std::size_t limit);

    Result<StoreCounts, StoreError> counts();

    struct EncodedSnapshot {
        std::int64_t revision = 0;
        Bytes json; // of a ClipboardStoreSnapshot
    };
    // At one revision: all categories, all favorites, and of the history all pinned entries and the `historyRows`
    // newest others. It keeps below `maxBytes` by leaving out the last rows: favorites may take two thirds of it, the
    // history the rest. `expectedBytes` is about how long it is going to be; more costs a copy.
    Result<EncodedSnapshot, StoreError> snapshotJson(std::size_t historyRows, std::size_t maxBytes,
                                                     std::size_t expectedBytes);

private:
    SqliteConnection& connection_;
};

} // namespace vexil
