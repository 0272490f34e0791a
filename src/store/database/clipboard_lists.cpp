// SPDX-License-Identifier: Apache-2.0
#include "store/database/clipboard_lists.h"

#include "store/database/entry_rows.h"

#include <string>
#include <utility>

namespace vexil {

namespace {

// Parameters: 1 whether thumbnails are wanted, 2 how many rows, 3 the category, 4 what is searched for, 5 an id. Those
// that a statement does not name are not bound, so each list of conditions goes with the statement below that binds it.
constexpr std::string_view kColumns =
    "SELECT e.id, e.kind, e.preview, e.last_copied_at, e.pinned_at IS NOT NULL, e.is_favorite, e.category_id, e.alias, "
    "e.created_at, e.size, e.in_history, CASE WHEN ?1 THEN e.thumbnail END ";

// The contents are read from front to back, which is much faster than one by one in the order of the list; for the few
// entries that have more to find than a text there is an index that holds just that.
constexpr std::string_view kFound =
    "WITH found (number) AS MATERIALIZED ("
    "SELECT entry FROM contents WHERE typeof(data) = 'text' AND contains_folded(data, folded, ?4) UNION "
    "SELECT number FROM entries WHERE (alias IS NOT NULL OR kind = 'image') AND (contains_folded(alias, NULL, ?4) OR "
    "(kind = 'image' AND contains_folded(preview, NULL, ?4)))) ";

std::string sqlFor(const EntryQuery& query) {
    std::string sql;
    if (!query.search.empty())
        sql += kFound;
    sql += kColumns;
    sql +=
        query.search.empty() ? "FROM entries AS e " : "FROM found CROSS JOIN entries AS e ON e.number = found.number ";
    if (query.scope == ClipboardScope::favorites)
        sql += "LEFT JOIN categories AS c ON c.id = e.category_id WHERE e.is_favorite ";
    else
        sql += "WHERE e.in_history ";
    if (query.category)
        sql += "AND e.category_id = ?3 ";
    if (query.scope == ClipboardScope::favorites)
        sql += "ORDER BY c.id IS NULL, c.sort_order, c.id, e.copied_revision DESC ";
    else
        sql += "ORDER BY e.pinned_at DESC, e.copied_revision DESC ";
    return sql + "LIMIT ?2";
}

StoredEntry readEntry(const SqliteStatement& statement, ClipboardScope scope) {
    StoredEntry entry;
    entry.row.id = statement.id(0).value_or(Uuid());
    entry.row.scope = scope;
    entry.row.kind = kindNamed(statement.textView(1));
    entry.row.preview = statement.text(2);
    entry.row.lastCopiedAt = statement.date(3);
    entry.row.isPinned = statement.integer(4) != 0;
    entry.row.isFavorite = statement.integer(5) != 0;
    entry.row.categoryID = statement.id(6);
    entry.row.alias = statement.optionalText(7);
    entry.createdAt = statement.date(8);
    entry.size = static_cast<std::uint64_t>(statement.integer(9));
    entry.isInHistory = statement.integer(10) != 0;
    entry.row.thumbnail = statement.optionalBytes(11);
    return entry;
}

} // namespace

Result<std::vector<StoredEntry>, StoreError> ClipboardLists::entries(const EntryQuery& query) {
    auto statement = connection_.prepare(sqlFor(query));
    if (!statement)
        return Failure{statement.error()};
    statement->bindAt(1, query.withThumbnails);
    statement->bindAt(2, query.limit);
    if (query.category)
        statement->bindAt(3, *query.category);
    if (!query.search.empty())
        statement->bindAt(4, query.search);
    std::vector<StoredEntry> entries;
    for (;;) {
        const auto stepped = statement->step();
        if (!stepped)
            return Failure{stepped.error()};
        if (!*stepped)
            return entries;
        entries.push_back(readEntry(*statement, query.scope));
    }
}

Result<std::optional<StoredEntry>, StoreError> ClipboardLists::entry(const Uuid& id) {
    auto statement = connection_.prepare(std::string(kColumns) + "FROM entries AS e WHERE e.id = ?2", false, id);
    if (!statement)
        return Failure{statement.error()};
    const auto stepped = statement->step();
    if (!stepped)
        return Failure{stepped.error()};
    if (!*stepped)
        return std::optional<StoredEntry>();
    auto entry = readEntry(*statement, ClipboardScope::history);
    if (!entry.isInHistory)
        entry.row.scope = ClipboardScope::favorites;
    return std::optional(std::move(entry));
}

Result<std::optional<StoredContent>, StoreError> ClipboardLists::content(const Uuid& id) {
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
    return std::optional(StoredContent{kindNamed(statement->textView(0)), statement->bytes(1)});
}

Result<std::vector<Uuid>, StoreError> ClipboardLists::idsStartingWith(std::string_view prefix, std::size_t limit) {
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

Result<StoreCounts, StoreError> ClipboardLists::counts() {
    auto statement =
        connection_.prepare("SELECT total(in_history), count(pinned_at), total(is_favorite), total(kind = 'image'), "
                            "(SELECT count(*) FROM categories), total(size) FROM entries");
    if (!statement)
        return Failure{statement.error()};
    const auto stepped = statement->step();
    if (!stepped)
        return Failure{stepped.error()};
    const auto count = [&](int column) { return static_cast<std::uint64_t>(statement->integer(column)); };
    return StoreCounts{.history = count(0),
                       .pinned = count(1),
                       .favorites = count(2),
                       .images = count(3),
                       .categories = count(4),
                       .contentBytes = count(5)};
}

} // namespace vexil
