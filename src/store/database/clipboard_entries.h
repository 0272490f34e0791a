// SPDX-License-Identifier: Apache-2.0
// What can be done to the entries of the store.
#pragma once

#include "base/bytes.h"
#include "base/date.h"
#include "base/result.h"
#include "base/uuid.h"
#include "link/clipboard_records.h"
#include "store/database/content_description.h"
#include "store/database/sqlite_connection.h"
#include "store/database/store_error.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace vexil {

enum class EntryChange { done, noSuchEntry, noSuchCategory, notAText };

// A light view on the database, got from StoreDatabase::entries() and used at once. Every change is one transaction, on
// disk when the call returns, and counted as a new revision; one that fails, or is not done, changes nothing.
class ClipboardEntries {
public:
    static constexpr std::size_t kDefaultHistoryLimit = 1000;
    static constexpr std::size_t kMaxHistoryLimit = 1'000'000;
    static constexpr std::size_t kMaxAliasBytes = 4096; // kept by whoever takes an alias from outside

    explicit ClipboardEntries(SqliteConnection& connection) : connection_(connection) {}

    struct Recorded {
        Uuid id;
        bool isNew = false;

        bool operator==(const Recorded&) const = default;
    };
    // Takes in what was copied at `now`. A content that is known moves to the top of the history, keeping its id and
    // all that the person gave it. What the history is then too long by falls out at its end.
    Result<Recorded, StoreError> record(ClipboardKind kind, ByteView content, Date now);

    // How many entries the history keeps besides the pinned and the favorite ones, which never fall out. The limit is
    // kept in the database, so that it holds for every process that records. Lowering it lets go of the oldest at once.
    Result<std::size_t, StoreError> historyLimit();
    Result<Done, StoreError> setHistoryLimit(std::size_t limit);

    // Remembers that the person pasted the entry.
    Result<EntryChange, StoreError> use(const Uuid& id, Date now);
    // `pinnedAt` none unpins. Only what is in the history can be pinned.
    Result<EntryChange, StoreError> pin(const Uuid& id, std::optional<Date> pinnedAt);
    // Files a favorite anew as well; none is no category.
    Result<EntryChange, StoreError> addToFavorites(const Uuid& id, std::optional<Uuid> category);

    // Takes the entry off one list. An entry that is on neither is gone: so is a favorite that has left the history.
    Result<EntryChange, StoreError> remove(const Uuid& id, ClipboardScope scope);
    Result<EntryChange, StoreError> removeEverywhere(const Uuid& id);

    // None takes the alias away.
    Result<EntryChange, StoreError> setAlias(const Uuid& id, const std::optional<std::string>& alias);
    Result<EntryChange, StoreError> setText(const Uuid& id, const std::string& text);
    // Sets alias and category to what is given, none included, and the text where there is one.
    Result<EntryChange, StoreError> edit(const Uuid& id, const std::optional<std::string>& alias,
                                         std::optional<Uuid> category, const std::optional<std::string>& text);

    enum class Clear {
        history,    // all but pinned and favorite entries
        everything, // all entries; categories stay
    };
    // How many entries are gone.
    Result<std::size_t, StoreError> clear(Clear what);

private:
    template <class Work> Result<EntryChange, StoreError> change(const Uuid& id, Work work);
    Result<std::optional<Recorded>, StoreError> moveToTop(const ContentHash& hash, Date now);
    Result<Recorded, StoreError> insert(ClipboardKind kind, ByteView content, const ContentHash& hash,
                                        const ContentDescription& description, Date now);
    Result<EntryChange, StoreError> replaceText(std::int64_t number, const std::string& text);
    Result<bool, StoreError> hasCategory(const std::optional<Uuid>& id);

    SqliteConnection& connection_;
};

} // namespace vexil
