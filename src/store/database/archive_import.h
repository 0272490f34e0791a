// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/bytes.h"
#include "base/date.h"
#include "base/result.h"
#include "base/uuid.h"
#include "store/database/clipboard_archive.h"
#include "store/database/content_description.h"
#include "store/database/sqlite_connection.h"
#include "store/database/store_error.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vexil {

// Lower-case digits.
[[nodiscard]] std::string hexOf(ByteView bytes);

// Puts archived items into the store, within one transaction of its user's. After a failure the transaction has to be
// rolled back.
class ArchiveImport {
public:
    explicit ArchiveImport(SqliteConnection& connection) : connection_(connection) {}

    Result<Done, StoreError> begin();
    Result<Done, StoreError> take(const ArchivedItem& item);
    // Gives every entry its place in the order of copies.
    Result<ClipboardArchive::Outcome, StoreError> end();

private:
    struct Placed {
        std::int64_t number = 0;
        Date copiedAt;
    };

    Result<Done, StoreError> takeCategory(const ClipboardCategory& category);
    Result<Done, StoreError> takeProfile(const HostsProfile& profile);
    Result<Done, StoreError> takeEntry(const ArchivedEntry& archived);
    Result<bool, StoreError> isKnown(const ArchivedEntry& archived, const ContentHash& hash);
    Result<std::int64_t, StoreError> insert(const ArchivedEntry& archived, const ContentHash& hash);
    Result<Done, StoreError> renumber();

    SqliteConnection& connection_;
    ClipboardArchive::Outcome outcome_;
    std::map<Uuid, Uuid> categories_; // archived to stored
    std::size_t categoryCount_ = 0;
    std::int64_t lastBefore_ = 0; // entries with a higher number are new
    std::vector<Placed> before_;  // both in the order of copies
    std::vector<Placed> added_;
};

} // namespace vexil
