// SPDX-License-Identifier: Apache-2.0
#include "store/database/store_database.h"

#include "store/database/content_description.h"
#include "store/database/store_schema.h"

#include <algorithm>
#include <utility>

namespace vexil {

namespace {

using Access = SqliteConnection::Access;

// Older uses of an entry are forgotten.
constexpr int kMaxUsages = 100;

constexpr std::string_view kHistory = R"sql(
SELECT e.id, e.kind, e.preview, e.last_copied_at, e.pinned_at IS NOT NULL, e.is_favorite, e.category_id, e.alias,
       e.created_at, e.size, CASE WHEN ?1 THEN e.thumbnail END
FROM entries AS e WHERE e.in_history
ORDER BY e.pinned_at DESC, e.copied_revision DESC LIMIT ?2)sql";

constexpr std::string_view kFavorites = R"sql(
SELECT e.id, e.kind, e.preview, e.last_copied_at, e.pinned_at IS NOT NULL, e.is_favorite, e.category_id, e.alias,
       e.created_at, e.size, CASE WHEN ?1 THEN e.thumbnail END
FROM entries AS e LEFT JOIN categories AS c ON c.id = e.category_id WHERE e.is_favorite
ORDER BY c.id IS NULL, c.sort_order, c.id, e.copied_revision DESC LIMIT ?2)sql";

std::string_view nameOf(ClipboardKind kind) {
    return kind == ClipboardKind::text ? "text" : "image";
}

ClipboardKind kindNamed(std::string_view name) {
    return name == "text" ? ClipboardKind::text : ClipboardKind::image;
}

StoredEntry readEntry(const SqliteStatement& statement, ClipboardScope scope) {
    StoredEntry entry;
    entry.row.id = statement.id(0).value_or(Uuid());
    entry.row.scope = scope;
    entry.row.kind = kindNamed(statement.text(1));
    entry.row.preview = statement.text(2);
    entry.row.lastCopiedAt = statement.date(3);
    entry.row.isPinned = statement.integer(4) != 0;
    entry.row.isFavorite = statement.integer(5) != 0;
    entry.row.categoryID = statement.id(6);
    entry.row.alias = statement.optionalText(7);
    entry.createdAt = statement.date(8);
    entry.size = static_cast<std::uint64_t>(statement.integer(9));
    entry.row.thumbnail = statement.optionalBytes(10);
    return entry;
}

// An upper bound, but for a text full of characters that JSON spells in six: those are folded away in previews.
std::size_t jsonSize(const ClipboardRowSummary& row) {
    constexpr std::size_t kKeysAndScalars = 320;
    return kKeysAndScalars + 2 * row.preview.size() + (row.alias ? 6 * row.alias->size() : 0) +
           (row.thumbnail ? row.thumbnail->size() * 4 / 3 + 4 : 0);
}

std::vector<ClipboardRowSummary> rowsWithin(std::size_t& bytesLeft, std::vector<StoredEntry> entries) {
    std::vector<ClipboardRowSummary> rows;
    rows.reserve(entries.size());
    for (StoredEntry& entry : entries) {
        const std::size_t size = jsonSize(entry.row);
        if (size > bytesLeft)
            break;
        bytesLeft -= size;
        rows.push_back(std::move(entry.row));
    }
    return rows;
}

} // namespace

Result<StoreDatabase, StoreError> StoreDatabase::open(const std::filesystem::path& file, Mode mode,
                                                      std::chrono::milliseconds busyTimeout) {
    auto connection = SqliteConnection::open(file, mode, busyTimeout);
    if (!connection)
        return Failure{connection.error()};
    if (auto prepared = store_schema::prepare(*connection, file); !prepared)
        return Failure{prepared.error()};
    if (mode == Mode::createIfMissing) {
        if (auto made = makePrivate(file); !made)
            return Failure{made.error()};
    }
    return StoreDatabase(std::move(connection).value());
}

Result<StoreDatabase::Recorded, StoreError> StoreDatabase::record(ClipboardKind kind, ByteView content, Date now) {
    const ContentHash hash = contentHash(kind, content);
    return connection_.transaction(Access::write, [&]() -> Result<Recorded, StoreError> {
        const auto known = entryWith(hash);
        if (!known)
            return Failure{known.error()};
        if (!*known) {
            if (auto inserted = insert(kind, content, hash, now); !inserted)
                return Failure{inserted.error()};
            return Recorded::added;
        }
        const auto copied = nextRevision();
        if (!copied)
            return Failure{copied.error()};
        if (auto moved = connection_.run(
                "UPDATE entries SET last_copied_at = ?, copied_revision = ?, in_history = 1 WHERE number = ?", now,
                *copied, **known);
            !moved)
            return Failure{moved.error()};
        return Recorded::movedToTop;
    });
}

Result<std::optional<std::int64_t>, StoreError> StoreDatabase::entryWith(const ContentHash& hash) {
    // Two entries may have come to hold the same text by an edit.
    auto known = connection_.prepare(
        "SELECT number FROM entries WHERE content_hash = ? ORDER BY copied_revision DESC LIMIT 1", ByteView(hash));
    if (!known)
        return Failure{known.error()};
    const auto stepped = known->step();
    if (!stepped)
        return Failure{stepped.error()};
    return *stepped ? std::optional(known->integer(0)) : std::nullopt;
}

Result<Done, StoreError> StoreDatabase::insert(ClipboardKind kind, ByteView content, const ContentHash& hash,
                                               Date now) {
    const auto copied = nextRevision();
    if (!copied)
        return Failure{copied.error()};
    const ContentDescription description = describe(kind, content);
    const auto number = connection_.number(
        "INSERT INTO entries (id, kind, content_hash, size, created_at, last_copied_at, copied_revision, in_history, "
        "is_favorite, preview, thumbnail) VALUES (?1, ?2, ?3, ?4, ?5, ?5, ?6, 1, 0, ?7, ?8) RETURNING number",
        Uuid::random(), nameOf(kind), ByteView(hash), content.size(), now, *copied, description.preview,
        description.thumbnail);
    if (!number)
        return Failure{number.error()};
    constexpr std::string_view kInsert = "INSERT INTO contents (entry, data) VALUES (?, ?)";
    if (kind == ClipboardKind::text)
        return connection_.run(kInsert, *number, textOf(content));
    return connection_.run(kInsert, *number, content);
}

Result<std::int64_t, StoreError> StoreDatabase::nextRevision() {
    return connection_.number("UPDATE store SET revision = revision + 1 RETURNING revision");
}

Result<std::int64_t, StoreError> StoreDatabase::revision() {
    return connection_.number("SELECT revision FROM store");
}

Result<std::vector<StoredEntry>, StoreError> StoreDatabase::entries(ClipboardScope scope, std::size_t limit,
                                                                    Thumbnails thumbnails) {
    auto statement = connection_.prepare(scope == ClipboardScope::history ? kHistory : kFavorites,
                                         thumbnails == Thumbnails::read, limit);
    if (!statement)
        return Failure{statement.error()};
    std::vector<StoredEntry> entries;
    for (;;) {
        const auto stepped = statement->step();
        if (!stepped)
            return Failure{stepped.error()};
        if (!*stepped)
            return entries;
        entries.push_back(readEntry(*statement, scope));
    }
}

Result<std::vector<ClipboardCategory>, StoreError> StoreDatabase::categories() {
    auto statement = connection_.prepare("SELECT id, name, color_tag, sort_order FROM categories "
                                         "ORDER BY sort_order, id");
    if (!statement)
        return Failure{statement.error()};
    std::vector<ClipboardCategory> categories;
    for (;;) {
        const auto stepped = statement->step();
        if (!stepped)
            return Failure{stepped.error()};
        if (!*stepped)
            return categories;
        categories.push_back({.id = statement->id(0).value_or(Uuid()),
                              .name = statement->text(1),
                              .colorTag = statement->text(2),
                              .order = statement->integer(3)});
    }
}

Result<ClipboardStoreSnapshot, StoreError> StoreDatabase::snapshot(std::size_t limit, std::size_t maxBytes) {
    return connection_.transaction(Access::read, [&]() -> Result<ClipboardStoreSnapshot, StoreError> {
        const auto number = revision();
        if (!number)
            return Failure{number.error()};
        auto favorites = entries(ClipboardScope::favorites, limit, Thumbnails::read);
        if (!favorites)
            return Failure{favorites.error()};
        auto history = entries(ClipboardScope::history, limit, Thumbnails::read);
        if (!history)
            return Failure{history.error()};
        auto sorted = categories();
        if (!sorted)
            return Failure{sorted.error()};
        ClipboardStoreSnapshot snapshot;
        snapshot.revision = *number;
        snapshot.favorites = rowsWithin(maxBytes, std::move(favorites).value());
        snapshot.history = rowsWithin(maxBytes, std::move(history).value());
        snapshot.categories = std::move(sorted).value();
        return snapshot;
    });
}

Result<std::optional<StoredContent>, StoreError> StoreDatabase::content(const Uuid& id) {
    auto statement = connection_.prepare("SELECT e.kind, c.data FROM entries AS e "
                                         "JOIN contents AS c ON c.entry = e.number WHERE e.id = ?",
                                         id);
    if (!statement)
        return Failure{statement.error()};
    const auto stepped = statement->step();
    if (!stepped)
        return Failure{stepped.error()};
    if (!*stepped)
        return std::optional<StoredContent>();
    return std::optional(StoredContent{kindNamed(statement->text(0)), statement->bytes(1)});
}

Result<std::vector<Uuid>, StoreError> StoreDatabase::idsStartingWith(std::string_view prefix, std::size_t limit) {
    // '~' sorts behind every character of an id.
    auto statement = connection_.prepare(
        "SELECT id FROM entries WHERE id >= ?1 AND id < ?1 || '~' ORDER BY id LIMIT ?2", prefix, limit);
    if (!statement)
        return Failure{statement.error()};
    std::vector<Uuid> ids;
    for (;;) {
        const auto stepped = statement->step();
        if (!stepped)
            return Failure{stepped.error()};
        if (!*stepped)
            return ids;
        ids.push_back(statement->id(0).value_or(Uuid()));
    }
}

// Runs `work` with the number of the entry and counts its change, if it is one, as a new revision.
template <class Work> Result<StoreDatabase::Change, StoreError> StoreDatabase::change(const Uuid& id, Work work) {
    return connection_.transaction(Access::write, [&]() -> Result<Change, StoreError> {
        auto found = connection_.prepare("SELECT number FROM entries WHERE id = ?", id);
        if (!found)
            return Failure{found.error()};
        const auto stepped = found->step();
        if (!stepped)
            return Failure{stepped.error()};
        if (!*stepped)
            return Change::noSuchEntry;
        Result<Change, StoreError> changed = work(found->integer(0));
        if (!changed || *changed != Change::done)
            return changed;
        if (const auto counted = nextRevision(); !counted)
            return Failure{counted.error()};
        return changed;
    });
}

Result<StoreDatabase::Change, StoreError> StoreDatabase::use(const Uuid& id, Date now) {
    return change(id, [&](std::int64_t number) -> Result<Change, StoreError> {
        if (auto added = connection_.run("INSERT INTO usages (entry, used_at) VALUES (?, ?)", number, now); !added)
            return Failure{added.error()};
        if (auto trimmed = connection_.run("DELETE FROM usages WHERE entry = ?1 AND rowid NOT IN (SELECT rowid FROM "
                                           "usages WHERE entry = ?1 ORDER BY used_at DESC LIMIT ?2)",
                                           number, kMaxUsages);
            !trimmed)
            return Failure{trimmed.error()};
        return Change::done;
    });
}

Result<StoreDatabase::Change, StoreError> StoreDatabase::pin(const Uuid& id, std::optional<Date> pinnedAt) {
    return change(id, [&](std::int64_t number) -> Result<Change, StoreError> {
        if (auto pinned =
                connection_.run("UPDATE entries SET pinned_at = ? WHERE number = ? AND in_history", pinnedAt, number);
            !pinned)
            return Failure{pinned.error()};
        return connection_.changedRows() == 1 ? Change::done : Change::noSuchEntry;
    });
}

Result<StoreDatabase::Change, StoreError> StoreDatabase::addToFavorites(const Uuid& id,
                                                                        std::optional<Uuid> categoryID) {
    return change(id, [&](std::int64_t number) -> Result<Change, StoreError> {
        const auto exists = hasCategory(categoryID);
        if (!exists)
            return Failure{exists.error()};
        if (!*exists)
            return Change::noSuchCategory;
        if (auto added = connection_.run("UPDATE entries SET is_favorite = 1, category_id = ? WHERE number = ?",
                                         categoryID, number);
            !added)
            return Failure{added.error()};
        return Change::done;
    });
}

Result<StoreDatabase::Change, StoreError> StoreDatabase::remove(const Uuid& id, ClipboardScope scope) {
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
    return change(id, [&](std::int64_t number) -> Result<Change, StoreError> {
        for (const auto& sql :
             {isHistory ? kDeleteHistory : kDeleteFavorite, isHistory ? kLeaveHistory : kLeaveFavorites}) {
            if (auto removed = connection_.run(sql, number); !removed)
                return Failure{removed.error()};
            if (connection_.changedRows() == 1)
                return Change::done;
        }
        return Change::noSuchEntry;
    });
}

Result<StoreDatabase::Change, StoreError> StoreDatabase::edit(const Uuid& id, const std::optional<std::string>& alias,
                                                              std::optional<Uuid> categoryID,
                                                              const std::optional<std::string>& text) {
    return change(id, [&](std::int64_t number) -> Result<Change, StoreError> {
        const auto exists = hasCategory(categoryID);
        if (!exists)
            return Failure{exists.error()};
        if (!*exists)
            return Change::noSuchCategory;
        if (text) {
            auto replaced = replaceText(number, *text);
            if (!replaced || *replaced != Change::done)
                return replaced;
        }
        if (auto edited = connection_.run("UPDATE entries SET alias = ?, category_id = ? WHERE number = ?", alias,
                                          categoryID, number);
            !edited)
            return Failure{edited.error()};
        return Change::done;
    });
}

Result<StoreDatabase::Change, StoreError> StoreDatabase::replaceText(std::int64_t number, const std::string& text) {
    const ContentHash hash = contentHash(ClipboardKind::text, bytesOf(text));
    if (auto edited =
            connection_.run("UPDATE entries SET content_hash = ?, size = ?, preview = ? "
                            "WHERE number = ? AND kind = 'text'",
                            ByteView(hash), text.size(), describe(ClipboardKind::text, bytesOf(text)).preview, number);
        !edited)
        return Failure{edited.error()};
    if (connection_.changedRows() != 1)
        return Change::notAText;
    if (auto edited = connection_.run("UPDATE contents SET data = ? WHERE entry = ?", text, number); !edited)
        return Failure{edited.error()};
    return Change::done;
}

Result<bool, StoreError> StoreDatabase::hasCategory(const std::optional<Uuid>& id) {
    if (!id)
        return true;
    const auto count = connection_.number("SELECT count(*) FROM categories WHERE id = ?", *id);
    if (!count)
        return Failure{count.error()};
    return *count != 0;
}

} // namespace vexil
