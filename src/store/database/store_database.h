// SPDX-License-Identifier: Apache-2.0
// History, favorites and categories on disk.
#pragma once

#include "base/result.h"
#include "store/database/clipboard_archive.h"
#include "store/database/clipboard_categories.h"
#include "store/database/clipboard_entries.h"
#include "store/database/clipboard_lists.h"
#include "store/database/companion_record.h"
#include "store/database/hosts_profiles.h"
#include "store/database/hosts_requests.h"
#include "store/database/sqlite_connection.h"
#include "store/database/store_error.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <utility>

namespace vexil {

// The open database, and the way to what it holds. Several processes may have the same file open. Used from one thread;
// a call waits for another process for the busy timeout, then fails.
class StoreDatabase {
public:
    using Mode = SqliteConnection::Mode;
    static Result<StoreDatabase, StoreError>
    open(const std::filesystem::path& file, Mode mode,
         std::chrono::milliseconds busyTimeout = SqliteConnection::kBusyTimeout);

    // Views, to be used at once: one that was kept does not follow the database when it is moved.
    [[nodiscard]] ClipboardEntries entries() { return ClipboardEntries(connection_); }
    [[nodiscard]] ClipboardLists lists() { return ClipboardLists(connection_); }
    [[nodiscard]] ClipboardCategories categories() { return ClipboardCategories(connection_); }
    [[nodiscard]] ClipboardArchive archive() { return ClipboardArchive(connection_); }
    [[nodiscard]] HostsProfiles hostsProfiles() { return HostsProfiles(connection_); }
    [[nodiscard]] HostsRequests hostsRequests() { return HostsRequests(connection_); }
    [[nodiscard]] CompanionRecord companionRecord() { return CompanionRecord(connection_); }

    // Raised by every change of entries and categories, by whichever process.
    Result<std::int64_t, StoreError> revision();

    // Another number whenever something else than this object has changed the file. Only compares what is in memory
    // that the processes share, without a look at the disk.
    Result<std::int64_t, StoreError> dataVersion();

private:
    explicit StoreDatabase(SqliteConnection connection) : connection_(std::move(connection)) {}

    SqliteConnection connection_;
};

} // namespace vexil
