// SPDX-License-Identifier: Apache-2.0
// The one look into the store that is taken often and has to be fast: from the rows of SQLite straight into JSON.
#include "base/json.h"
#include "store/database/clipboard_categories.h"
#include "store/database/clipboard_lists.h"
#include "store/database/entry_rows.h"

#include <array>
#include <optional>
#include <string_view>
#include <tuple>

namespace vexil {

namespace json {

// Views are written as what they show.
static void writeValue(Writer& out, std::string_view value) {
    out.string(value);
}
static void writeValue(Writer& out, ByteView value) {
    out.base64(value);
}

} // namespace json

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

// A ClipboardRowSummary in the memory of SQLite: at most until the next step.
struct RowView {
    std::string_view id;
    ClipboardScope scope = ClipboardScope::history;
    ClipboardKind kind = ClipboardKind::text;
    std::string_view preview;
    Date lastCopiedAt;
    bool isPinned = false;
    bool isFavorite = false;
    std::optional<std::string_view> categoryID;
    std::optional<std::string_view> alias;
    std::optional<ByteView> thumbnail;
};
constexpr auto jsonFields(json::Tag<RowView>) {
    using R = RowView;
    return std::tuple{json::Field{"id", &R::id},
                      json::Field{"scope", &R::scope},
                      json::Field{"kind", &R::kind},
                      json::Field{"preview", &R::preview},
                      json::Field{"lastCopiedAt", &R::lastCopiedAt},
                      json::Field{"isPinned", &R::isPinned},
                      json::Field{"isFavorite", &R::isFavorite},
                      json::Field{"categoryID", &R::categoryID},
                      json::Field{"alias", &R::alias},
                      json::Field{"thumbnail", &R::thumbnail}};
}

template <class Record> constexpr auto keysOf() {
    return std::apply([](const auto&... field) { return std::array{field.key...}; }, jsonFields(json::Tag<Record>{}));
}
static_assert(keysOf<RowView>() == keysOf<ClipboardRowSummary>());

template <class View> std::optional<View> unlessNull(View view) {
    return view.data() == nullptr ? std::nullopt : std::optional(view);
}

RowView rowOf(const SqliteStatement& statement, ClipboardScope scope) {
    return {.id = statement.textView(0),
            .scope = scope,
            .kind = kindNamed(statement.textView(1)),
            .preview = statement.textView(2),
            .lastCopiedAt = statement.date(3),
            .isPinned = statement.integer(4) != 0,
            .isFavorite = statement.integer(5) != 0,
            .categoryID = unlessNull(statement.textView(6)),
            .alias = unlessNull(statement.textView(7)),
            .thumbnail = unlessNull(statement.bytesView(8))};
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
        scope_ = scope;
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
            json::writeValue(out_, rowOf(*statement, scope_));
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
    ClipboardScope scope_ = ClipboardScope::history;
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
