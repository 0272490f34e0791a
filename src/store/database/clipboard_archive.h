// SPDX-License-Identifier: Apache-2.0
// All that the store holds, on its way out of it and back.
#pragma once

#include "base/result.h"
#include "base/unique_function.h"
#include "link/clipboard_records.h"
#include "link/hosts_records.h"
#include "store/database/sqlite_connection.h"
#include "store/database/store_error.h"

#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

namespace vexil {

// An entry with its content, and all that the person gave it.
struct ArchivedEntry {
    ClipboardEntry entry; // its hash in lower-case hexadecimal digits
    bool isInHistory = true;

    bool operator==(const ArchivedEntry&) const = default;
};
using ArchivedItem = std::variant<ClipboardCategory, HostsProfile, ArchivedEntry>;

// A light view on the database, got from StoreDatabase::archive() and used at once.
class ClipboardArchive {
public:
    explicit ClipboardArchive(SqliteConnection& connection) : connection_(connection) {}

    struct Size {
        std::uint64_t entries = 0;
        std::uint64_t contentBytes = 0;
    };
    // Hands out the store as it is at one moment: its size, then every category and every hosts profile in order,
    // then every entry, the one that was copied longest ago first. Ends with the first failure of `onBegin` or
    // `onItem`. One content is held at a time.
    Result<Done, StoreError> read(UniqueFunction<Result<Done, StoreError>(Size)> onBegin,
                                  UniqueFunction<Result<Done, StoreError>(const ArchivedItem&)> onItem);

    struct Outcome {
        std::uint64_t added = 0;         // entries
        std::uint64_t known = 0;         // entries whose id or content was there already: they stay as they are
        std::uint64_t fellOut = 0;       // entries that the history had no room for
        std::uint64_t categories = 0;    // added; one whose id or name was there already is the one that was there
        std::uint64_t hostsProfiles = 0; // the same of these

        bool operator==(const Outcome&) const = default;
    };
    // Takes in what `next` gives, until it gives none. All or nothing: a failure of `next`, or an item that makes no
    // sense, leaves the store as it was. Categories come before the entries that are filed under them, and entries in
    // the order in which they were copied, which stays; between those that are there they go by their date. Meanwhile
    // no other process can record.
    Result<Outcome, StoreError> write(UniqueFunction<Result<std::optional<ArchivedItem>, StoreError>()> next);

private:
    SqliteConnection& connection_;
};

} // namespace vexil
