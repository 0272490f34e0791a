// SPDX-License-Identifier: Apache-2.0
#include "store/database/clipboard_entries.h"

#include "store/database/entry_rows.h"

#include <algorithm>
#include <utility>

namespace vexil {

namespace {

using Access = SqliteConnection::Access;

// Older uses of an entry are forgotten.
constexpr int kMaxUsages = 100;

} // namespace

Result<ClipboardEntries::Recorded, StoreError> ClipboardEntries::record(ClipboardKind kind, ByteView content,
                                                                        Date now) {
    const ContentHash hash = contentHash(kind, content);
    // A thumbnail takes so long that the database is not kept locked for it.
    std::optional<ContentDescription> description;
    if (kind == ClipboardKind::image) {
        const auto known = connection_.number("SELECT count(*) FROM entries WHERE content_hash = ?", ByteView(hash));
        if (!known)
            return Failure{known.error()};
        if (*known == 0)
            description = describe(kind, content);
    }
    return connection_.transaction(Access::write, [&]() -> Result<Recorded, StoreError> {
        auto known = moveToTop(hash, now);
        if (!known)
            return Failure{known.error()};
        if (!*known && !description)
            description = describe(kind, content);
        auto recorded = *known ? Result<Recorded, StoreError>(**known) : insert(kind, content, hash, *description, now);
        if (!recorded)
            return recorded;
        if (auto counted = raiseRevisionAndLetFallOut(connection_); !counted)
            return Failure{counted.error()};
        return recorded;
    });
}

// None where the content is not known.
Result<std::optional<ClipboardEntries::Recorded>, StoreError> ClipboardEntries::moveToTop(const ContentHash& hash,
                                                                                          Date now) {
    // Two entries may have come to hold the same text by an edit.
    auto known = connection_.prepare(
        "SELECT number, id FROM entries WHERE content_hash = ? ORDER BY copied_revision DESC LIMIT 1", ByteView(hash));
    if (!known)
        return Failure{known.error()};
    const auto stepped = known->step();
    if (!stepped)
        return Failure{stepped.error()};
    if (!*stepped)
        return std::optional<Recorded>();
    if (auto moved = connection_.run("UPDATE entries SET last_copied_at = ?, copied_revision = (SELECT revision + 1 "
                                     "FROM store), in_history = 1 WHERE number = ?",
                                     now, known->integer(0));
        !moved)
        return Failure{moved.error()};
    return std::optional(Recorded{known->id(1).value_or(Uuid()), false});
}

Result<ClipboardEntries::Recorded, StoreError> ClipboardEntries::insert(ClipboardKind kind, ByteView content,
                                                                        const ContentHash& hash,
                                                                        const ContentDescription& description,
                                                                        Date now) {
    const Uuid id = Uuid::random();
    const auto number = connection_.number(
        "INSERT INTO entries (id, kind, content_hash, size, created_at, last_copied_at, copied_revision, in_history, "
        "is_favorite, preview, thumbnail) VALUES (?1, ?2, ?3, ?4, ?5, ?5, (SELECT revision + 1 FROM store), 1, 0, ?6, "
        "?7) RETURNING number",
        id, nameOf(kind), ByteView(hash), content.size(), now, description.preview, description.thumbnail);
    if (!number)
        return Failure{number.error()};
    if (auto kept = insertContent(connection_, *number, kind, content); !kept)
        return Failure{kept.error()};
    return Recorded{id, true};
}

Result<std::size_t, StoreError> ClipboardEntries::historyLimit() {
    const auto limit = connection_.number("SELECT history_limit FROM store");
    if (!limit)
        return Failure{limit.error()};
    return static_cast<std::size_t>(*limit);
}

Result<Done, StoreError> ClipboardEntries::setHistoryLimit(std::size_t limit) {
    return connection_.transaction(Access::write, [&]() -> Result<Done, StoreError> {
        if (auto set = connection_.run("UPDATE store SET history_limit = ?", std::min(limit, kMaxHistoryLimit)); !set)
            return set;
        const auto fallen = letFallOut(connection_);
        if (!fallen)
            return Failure{fallen.error()};
        return *fallen == 0 ? Done{} : raiseRevision(connection_);
    });
}

// Runs `work` with the number of the entry and counts its change, if it is one, as a new revision.
template <class Work> Result<EntryChange, StoreError> ClipboardEntries::change(const Uuid& id, Work work) {
    return connection_.transaction(Access::write, [&]() -> Result<EntryChange, StoreError> {
        auto found = connection_.prepare("SELECT number FROM entries WHERE id = ?", id);
        if (!found)
            return Failure{found.error()};
        const auto stepped = found->step();
        if (!stepped)
            return Failure{stepped.error()};
        if (!*stepped)
            return EntryChange::noSuchEntry;
        Result<EntryChange, StoreError> changed = work(found->integer(0));
        if (!changed || *changed != EntryChange::done)
            return changed;
        if (const auto counted = raiseRevision(connection_); !counted)
            return Failure{counted.error()};
        return changed;
    });
}

Result<EntryChange, StoreError> ClipboardEntries::use(const Uuid& id, Date now) {
    return change(id, [&](std::int64_t number) -> Result<EntryChange, StoreError> {
        if (auto added = connection_.run("INSERT INTO usages (entry, used_at) VALUES (?, ?)", number, now); !added)
            return Failure{added.error()};
        if (auto trimmed = connection_.run("DELETE FROM usages WHERE entry = ?1 AND rowid NOT IN (SELECT rowid FROM "
                                           "usages WHERE entry = ?1 ORDER BY used_at DESC LIMIT ?2)",
                                           number, kMaxUsages);
            !trimmed)
            return Failure{trimmed.error()};
        return EntryChange::done;
    });
}

Result<EntryChange, StoreError> ClipboardEntries::pin(const Uuid& id, std::optional<Date> pinnedAt) {
    return change(id, [&](std::int64_t number) -> Result<EntryChange, StoreError> {
        if (auto pinned =
                connection_.run("UPDATE entries SET pinned_at = ? WHERE number = ? AND in_history", pinnedAt, number);
            !pinned)
            return Failure{pinned.error()};
        return connection_.changedRows() == 1 ? EntryChange::done : EntryChange::noSuchEntry;
    });
}

Result<EntryChange, StoreError> ClipboardEntries::addToFavorites(const Uuid& id, std::optional<Uuid> category) {
    return change(id, [&](std::int64_t number) -> Result<EntryChange, StoreError> {
        const auto exists = hasCategory(category);
        if (!exists)
            return Failure{exists.error()};
        if (!*exists)
            return EntryChange::noSuchCategory;
        if (auto added = connection_.run("UPDATE entries SET is_favorite = 1, category_id = ? WHERE number = ?",
                                         category, number);
            !added)
            return Failure{added.error()};
        return EntryChange::done;
    });
}

Result<EntryChange, StoreError> ClipboardEntries::remove(const Uuid& id, ClipboardScope scope) {
    // Only one of these finds the entry: it is gone with its last list.
    constexpr std::string_view kDeleteHistory =
        "DELETE FROM entries WHERE number = ? AND in_history AND NOT is_favorite";
    constexpr std::string_view kLeaveHistory =
        "UPDATE entries SET in_history = 0, pinned_at = NULL WHERE number = ? AND in_history";
    constexpr std::string_view kDeleteFavorite =
        "DELETE FROM entries WHERE number = ? AND is_favorite AND NOT in_history";
    constexpr std::string_view kLeaveFavorites =
        "UPDATE entries SET is_favorite = 0, category_id = NULL WHERE number = ? AND is_favorite";
    const bool isHistory = scope == ClipboardScope::history;
    return change(id, [&](std::int64_t number) -> Result<EntryChange, StoreError> {
        for (const auto& sql :
             {isHistory ? kDeleteHistory : kDeleteFavorite, isHistory ? kLeaveHistory : kLeaveFavorites}) {
            if (auto removed = connection_.run(sql, number); !removed)
                return Failure{removed.error()};
            if (connection_.changedRows() == 1)
                return EntryChange::done;
        }
        return EntryChange::noSuchEntry;
    });
}

Result<EntryChange, StoreError> ClipboardEntries::removeEverywhere(const Uuid& id) {
    return change(id, [&](std::int64_t number) -> Result<EntryChange, StoreError> {
        if (auto removed = connection_.run("DELETE FROM entries WHERE number = ?", number); !removed)
            return Failure{removed.error()};
        return EntryChange::done;
    });
}

Result<EntryChange, StoreError> ClipboardEntries::setAlias(const Uuid& id, const std::optional<std::string>& alias) {
    return change(id, [&](std::int64_t number) -> Result<EntryChange, StoreError> {
        if (auto set = connection_.run("UPDATE entries SET alias = ? WHERE number = ?", alias, number); !set)
            return Failure{set.error()};
        return EntryChange::done;
    });
}

Result<EntryChange, StoreError> ClipboardEntries::setText(const Uuid& id, const std::string& text) {
    return change(id, [&](std::int64_t number) { return replaceText(number, text); });
}

Result<EntryChange, StoreError> ClipboardEntries::edit(const Uuid& id, const std::optional<std::string>& alias,
                                                       std::optional<Uuid> category,
                                                       const std::optional<std::string>& text) {
    return change(id, [&](std::int64_t number) -> Result<EntryChange, StoreError> {
        const auto exists = hasCategory(category);
        if (!exists)
            return Failure{exists.error()};
        if (!*exists)
            return EntryChange::noSuchCategory;
        if (text) {
            auto replaced = replaceText(number, *text);
            if (!replaced || *replaced != EntryChange::done)
                return replaced;
        }
        if (auto edited = connection_.run("UPDATE entries SET alias = ?, category_id = ? WHERE number = ?", alias,
                                          category, number);
            !edited)
            return Failure{edited.error()};
        return EntryChange::done;
    });
}

Result<EntryChange, StoreError> ClipboardEntries::replaceText(std::int64_t number, const std::string& text) {
    const ContentHash hash = contentHash(ClipboardKind::text, bytesOf(text));
    if (auto edited =
            connection_.run("UPDATE entries SET content_hash = ?, size = ?, preview = ? "
                            "WHERE number = ? AND kind = 'text'",
                            ByteView(hash), text.size(), describe(ClipboardKind::text, bytesOf(text)).preview, number);
        !edited)
        return Failure{edited.error()};
    if (connection_.changedRows() != 1)
        return EntryChange::notAText;
    if (auto edited = replaceContent(connection_, number, text); !edited)
        return Failure{edited.error()};
    return EntryChange::done;
}

Result<bool, StoreError> ClipboardEntries::hasCategory(const std::optional<Uuid>& id) {
    if (!id)
        return true;
    const auto count = connection_.number("SELECT count(*) FROM categories WHERE id = ?", *id);
    if (!count)
        return Failure{count.error()};
    return *count != 0;
}

Result<std::size_t, StoreError> ClipboardEntries::clear(Clear what) {
    auto cleared = connection_.transaction(Access::write, [&]() -> Result<std::size_t, StoreError> {
        if (auto deleted =
                connection_.run(what == Clear::everything
                                    ? "DELETE FROM entries"
                                    : "DELETE FROM entries WHERE in_history AND pinned_at IS NULL AND NOT is_favorite");
            !deleted)
            return Failure{deleted.error()};
        const auto gone = static_cast<std::size_t>(connection_.changedRows());
        if (gone > 0) {
            if (auto counted = raiseRevision(connection_); !counted)
                return Failure{counted.error()};
        }
        return gone;
    });
    // What was deleted is overwritten in the database, but still stands in the log. A reader elsewhere may keep the log
    // from being emptied; then the next one who empties it does that.
    if (cleared)
        (void)connection_.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    return cleared;
}

} // namespace vexil
