// SPDX-License-Identifier: Apache-2.0
// The one look into the store that is taken often and has to be fast: from the rows of SQLite straight into JSON.
#include "base/json.h"
#include "store/database/clipboard_categories.h"
#include "store/database/clipboard_lists.h"
#include "store/database/entry_rows.h"

namespace vexil {

namespace {

using Access = SqliteConnection::Access;

constexpr std::string_view kFavorites = R"sql(
SELECT e.id, e.kind, e.preview, e.last_copied_at, e.pinned_at IS NOT NULL, e.is_favorite, e.category_id, e.alias,
       e.thumbnail
FROM entries AS e LEFT JOIN categories AS c ON c.id = e.category_id WHERE e.is_favorite
ORDER BY c.id IS NULL, c.sort_order, c.id, e.copied_revision DESC)sql";

constexpr std::string_view kPinned = R"sql(
SELECT id, kind, preview, last_copied_at, 1, is_favorite, category_id, alias, thumbnail
FROM entries WHERE in_history AND pinned_at IS NOT NULL ORDER BY pinned_at DESC, copied_revision DESC)sql";

constexpr std::string_view kNewest = R"sql(
SELECT id, kind, preview, last_copied_at, 0, is_favorite, category_id, alias, thumbnail
FROM entries WHERE in_history AND pinned_at IS NULL ORDER BY copied_revision DESC LIMIT ?)sql";

// Replaces what `row` holds, in the memory that it has: one record serves all rows.
void readRow(const SqliteStatement& statement, ClipboardRowSummary& row) {
    row.id = statement.id(0).value_or(Uuid());
    row.kind = kindNamed(statement.textView(1));
    row.preview = statement.textView(2);
    row.lastCopiedAt = statement.date(3);
    row.isPinned = statement.integer(4) != 0;
    row.isFavorite = statement.integer(5) != 0;
    row.categoryID = statement.id(6);
    row.alias = statement.optionalText(7);
    const ByteView thumbnail = statement.bytesView(8);
    if (thumbnail.empty())
        row.thumbnail.reset();
    else if (row.thumbnail)
        row.thumbnail->assign(thumbnail.begin(), thumbnail.end());
    else
        row.thumbnail.emplace(thumbnail.begin(), thumbnail.end());
}

class SnapshotWriter {
public:
    SnapshotWriter(Bytes& out, std::size_t expectedSize) : out_(out, expectedSize) {}

    template <class T> void member(std::string_view key, const T& value) {
        begin(key);
        json::writeValue(out_, value);
    }
    void beginRows(std::string_view key, ClipboardScope scope) {
        begin(key);
        out_.punctuation('[');
        row_.scope = scope;
        isFirstRow_ = true;
    }
    // The rows of the statement, until one would end past `maxSize`.
    Result<Done, StoreError> rows(Result<SqliteStatement, StoreError> statement, std::size_t maxSize) {
        if (!statement)
            return Failure{statement.error()};
        for (;;) {
            const auto stepped = statement->step();
            if (!stepped)
                return Failure{stepped.error()};
            if (!*stepped)
                return Done{};
            const std::size_t before = out_.written();
            if (!isFirstRow_)
                out_.punctuation(',');
            readRow(*statement, row_);
            json::writeValue(out_, row_);
            if (out_.written() > maxSize) {
                out_.backTo(before);
                return Done{};
            }
            isFirstRow_ = false;
        }
    }
    void endRows() { out_.punctuation(']'); }
    void end() { out_.punctuation('}'); }

private:
    void begin(std::string_view key) {
        if (isFirst_)
            out_.punctuation('{');
        out_.key(key, isFirst_);
        isFirst_ = false;
    }

    json::Writer out_;
    bool isFirst_ = true;
    bool isFirstRow_ = true;
    ClipboardRowSummary row_;
};

} // namespace

// What must be in comes first, so that the history, of which the rest is never missed, takes what room is left.
Result<ClipboardLists::EncodedSnapshot, StoreError>
ClipboardLists::snapshotJson(std::size_t historyRows, std::size_t maxBytes, std::size_t expectedBytes) {
    return connection_.transaction(Access::read, [&]() -> Result<EncodedSnapshot, StoreError> {
        constexpr std::size_t kEnd = 32; // the keys and brackets behind the last row
        EncodedSnapshot snapshot;
        const auto revision = connection_.number("SELECT revision FROM store");
        if (!revision)
            return Failure{revision.error()};
        snapshot.revision = *revision;
        const auto categories = ClipboardCategories(connection_).list();
        if (!categories)
            return Failure{categories.error()};
        {
            SnapshotWriter out(snapshot.json, expectedBytes);
            out.member("revision", snapshot.revision);
            out.member("categories", *categories);
            out.beginRows("favorites", ClipboardScope::favorites);
            if (auto written = out.rows(connection_.prepare(kFavorites), maxBytes / 3 * 2); !written)
                return Failure{written.error()};
            out.endRows();
            out.beginRows("history", ClipboardScope::history);
            if (auto written = out.rows(connection_.prepare(kPinned), maxBytes - kEnd); !written)
                return Failure{written.error()};
            if (auto written = out.rows(connection_.prepare(kNewest, historyRows), maxBytes - kEnd); !written)
                return Failure{written.error()};
            out.endRows();
            out.end();
        }
        return snapshot;
    });
}

} // namespace vexil
