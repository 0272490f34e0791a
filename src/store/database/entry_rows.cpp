// SPDX-License-Identifier: Apache-2.0
#include "store/database/entry_rows.h"

#include "store/database/folded_search.h"

namespace vexil {

namespace {

Result<std::size_t, StoreError> deleteOldest(SqliteConnection& connection, std::int64_t count) {
    if (count == 0)
        return std::size_t{0};
    // Walks the end of history_order, which holds all that the condition asks for.
    if (auto deleted = connection.run(
            "DELETE FROM entries WHERE number IN (SELECT number FROM entries "
            "WHERE in_history AND pinned_at IS NULL AND NOT is_favorite ORDER BY copied_revision LIMIT ?)",
            count);
        !deleted)
        return Failure{deleted.error()};
    return static_cast<std::size_t>(connection.changedRows());
}

} // namespace

std::string_view nameOf(ClipboardKind kind) {
    return kind == ClipboardKind::text ? "text" : "image";
}

ClipboardKind kindNamed(std::string_view name) {
    return name == "text" ? ClipboardKind::text : ClipboardKind::image;
}

Result<Done, StoreError> raiseRevision(SqliteConnection& connection) {
    return connection.run("UPDATE store SET revision = revision + 1");
}

Result<std::size_t, StoreError> letFallOut(SqliteConnection& connection) {
    const auto excess = connection.number("SELECT max(loose_entries - history_limit, 0) FROM store");
    if (!excess)
        return Failure{excess.error()};
    return deleteOldest(connection, *excess);
}

Result<Done, StoreError> raiseRevisionAndLetFallOut(SqliteConnection& connection) {
    const auto excess =
        connection.number("UPDATE store SET revision = revision + 1 RETURNING max(loose_entries - history_limit, 0)");
    if (!excess)
        return Failure{excess.error()};
    if (const auto deleted = deleteOldest(connection, *excess); !deleted)
        return Failure{deleted.error()};
    return Done{};
}

Result<Done, StoreError> insertContent(SqliteConnection& connection, std::int64_t entry, ClipboardKind kind,
                                       ByteView content) {
    constexpr std::string_view kInsert = "INSERT INTO contents (entry, data, folded) VALUES (?, ?, ?)";
    if (kind == ClipboardKind::image)
        return connection.run(kInsert, entry, content, std::nullopt);
    return connection.run(kInsert, entry, textOf(content), foldedCopy(textOf(content)));
}

Result<Done, StoreError> replaceContent(SqliteConnection& connection, std::int64_t entry, std::string_view text) {
    return connection.run("UPDATE contents SET data = ?, folded = ? WHERE entry = ?", text, foldedCopy(text), entry);
}

} // namespace vexil
