// SPDX-License-Identifier: Apache-2.0
// History, favorites and categories on disk.
#pragma once

#include "base/bytes.h"
#include "base/date.h"
#include "base/result.h"
#include "base/uuid.h"
#include "link/clipboard_records.h"
#include "store/database/content_description.h"
#include "store/database/sqlite_connection.h"
#include "store/database/store_error.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vexil {

struct StoredEntry {
    ClipboardRowSummary row;
    Date createdAt;
    std::uint64_t size = 0; // of the content, in bytes
};

struct StoredContent {
    ClipboardKind kind = ClipboardKind::text;
    Bytes data; // a text in UTF-8, or the image as it came
};

// Every change is one transaction, on disk when the call returns; one that fails changes nothing. Several processes may
// have the same file open. Used from one thread; a call waits for another process
// for the busy timeout, then fails.
class StoreDatabase {
public:
    using Mode = SqliteConnection::Mode;
    static Result<StoreDatabase, StoreError>
    open(const std::filesystem::path& file, Mode mode,
         std::chrono::milliseconds busyTimeout = SqliteConnection::kBusyTimeout);

    enum class Recorded { added, movedToTop };
    // Takes in what was copied at `now`. A content that is known moves to the top of the history, keeping its id and
    // all that the person gave it.
    Result<Recorded, StoreError> record(ClipboardKind kind, ByteView content, Date now);

    // Raised by every change, by whichever process.
    Result<std::int64_t, StoreError> revision();

    enum class Thumbnails { read, leave };
    // History: pinned entries first, the latest pin leading, then the latest copy first. Favorites: by the order of
    // their categories, those without one last, then the latest copy first.
    Result<std::vector<StoredEntry>, StoreError> entries(ClipboardScope scope, std::size_t limit,
                                                         Thumbnails thumbnails);

    // All of the panel's view at one revision: as entries(), each list cut to `limit`, and both, favorites first, to
    // what fits into about `maxBytes` of JSON.
    Result<ClipboardStoreSnapshot, StoreError> snapshot(std::size_t limit, std::size_t maxBytes);

    // None where there is no such entry.
    Result<std::optional<StoredContent>, StoreError> content(const Uuid& id);

    // At most `limit` ids whose 36-character form begins with `prefix`, which is in upper case, in ascending order.
    Result<std::vector<Uuid>, StoreError> idsStartingWith(std::string_view prefix, std::size_t limit);

    enum class Change { done, noSuchEntry, noSuchCategory, notAText };
    Result<Change, StoreError> use(const Uuid& id, Date now);
    // `pinnedAt` none unpins. Only what is in the history can be pinned.
    Result<Change, StoreError> pin(const Uuid& id, std::optional<Date> pinnedAt);
    Result<Change, StoreError> addToFavorites(const Uuid& id, std::optional<Uuid> categoryID);
    // Takes the entry off one list. An entry that is on neither is gone.
    Result<Change, StoreError> remove(const Uuid& id, ClipboardScope scope);
    // Sets alias and category to what is given, none included, and the text where there is one.
    Result<Change, StoreError> edit(const Uuid& id, const std::optional<std::string>& alias,
                                    std::optional<Uuid> categoryID, const std::optional<std::string>& text);

private:
    explicit StoreDatabase(SqliteConnection connection) : connection_(std::move(connection)) {}

    template <class Work> Result<Change, StoreError> change(const Uuid& id, Work work);
    Result<std::int64_t, StoreError> nextRevision();
    Result<std::optional<std::int64_t>, StoreError> entryWith(const ContentHash& hash);
    Result<Done, StoreError> insert(ClipboardKind kind, ByteView content, const ContentHash& hash, Date now);
    Result<std::vector<ClipboardCategory>, StoreError> categories();
    Result<bool, StoreError> hasCategory(const std::optional<Uuid>& id);
    Result<Change, StoreError> replaceText(std::int64_t number, const std::string& text);

    SqliteConnection connection_;
};

} // namespace vexil
