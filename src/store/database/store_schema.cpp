// SPDX-License-Identifier: Apache-2.0
#include "store/database/store_schema.h"

#include <array>
#include <string>

namespace vexil::store_schema {

namespace {

// Dates are seconds since 2001-01-01 UTC, identifiers the 36 characters of a UUID in upper case.
//
// The order of copies is that of copied_revision, the revision in which an entry was copied last, so that a clock that
// is set back cannot bury a new copy. Contents live in a table of their own: an entry's row is rewritten whenever it is
// copied, used or pinned, and lists are read often, both of which would drag megabytes of image along. A text is kept
// as TEXT and an image as BLOB. image_file_name is for images that come from a file.
constexpr const char* kFirstSchema = R"sql(
CREATE TABLE store (
    one      INTEGER PRIMARY KEY CHECK (one = 1),
    revision INTEGER NOT NULL
) STRICT;
INSERT INTO store (one, revision) VALUES (1, 0);

CREATE TABLE categories (
    id         TEXT PRIMARY KEY,
    name       TEXT NOT NULL,
    color_tag  TEXT NOT NULL,
    sort_order INTEGER NOT NULL
) STRICT, WITHOUT ROWID;

CREATE TABLE entries (
    number          INTEGER PRIMARY KEY,
    id              TEXT NOT NULL UNIQUE,
    kind            TEXT NOT NULL CHECK (kind IN ('text', 'image')),
    content_hash    BLOB NOT NULL,
    size            INTEGER NOT NULL,
    created_at      REAL NOT NULL,
    last_copied_at  REAL NOT NULL,
    copied_revision INTEGER NOT NULL,
    in_history      INTEGER NOT NULL,
    pinned_at       REAL,
    is_favorite     INTEGER NOT NULL,
    category_id     TEXT REFERENCES categories (id) ON DELETE SET NULL,
    alias           TEXT,
    image_file_name TEXT,
    preview         TEXT NOT NULL,
    thumbnail       BLOB,
    CHECK (in_history OR is_favorite),
    CHECK (in_history OR pinned_at IS NULL)
) STRICT;
CREATE INDEX entries_by_content ON entries (content_hash);
CREATE INDEX history_order ON entries (pinned_at DESC, copied_revision DESC) WHERE in_history;
CREATE INDEX favorites ON entries (category_id, copied_revision DESC) WHERE is_favorite;

CREATE TABLE contents (
    entry INTEGER PRIMARY KEY REFERENCES entries (number) ON DELETE CASCADE,
    data  ANY NOT NULL
) STRICT;

CREATE TABLE usages (
    entry   INTEGER NOT NULL REFERENCES entries (number) ON DELETE CASCADE,
    used_at REAL NOT NULL
) STRICT;
CREATE INDEX usages_by_entry ON usages (entry, used_at DESC);

PRAGMA application_id = 0x56785374;
PRAGMA user_version = 1;
)sql";

// A loose entry is one that falls out of the history when that grows too long: it is neither pinned nor a favorite.
// They are counted by triggers, whoever changes an entry, because to count them at every copy would take longer than to
// store it. history_order carries is_favorite so that the oldest loose entry is found without a look at the favorites
// before it. A folded copy is what a text is searched by; it is left out where folding is as fast as reading the copy.
constexpr const char* kHistoryLimit = R"sql(
ALTER TABLE store ADD COLUMN history_limit INTEGER NOT NULL DEFAULT 1000;
ALTER TABLE store ADD COLUMN loose_entries INTEGER NOT NULL DEFAULT 0;
UPDATE store SET loose_entries =
    (SELECT count(*) FROM entries WHERE in_history AND pinned_at IS NULL AND NOT is_favorite);

CREATE TRIGGER loose_entry_added AFTER INSERT ON entries
WHEN NEW.in_history AND NEW.pinned_at IS NULL AND NOT NEW.is_favorite
BEGIN UPDATE store SET loose_entries = loose_entries + 1; END;
CREATE TRIGGER loose_entry_deleted AFTER DELETE ON entries
WHEN OLD.in_history AND OLD.pinned_at IS NULL AND NOT OLD.is_favorite
BEGIN UPDATE store SET loose_entries = loose_entries - 1; END;
CREATE TRIGGER entry_changed_lists AFTER UPDATE OF in_history, pinned_at, is_favorite ON entries
BEGIN UPDATE store SET loose_entries = loose_entries
    - (OLD.in_history AND OLD.pinned_at IS NULL AND NOT OLD.is_favorite)
    + (NEW.in_history AND NEW.pinned_at IS NULL AND NOT NEW.is_favorite); END;

DROP INDEX history_order;
CREATE INDEX history_order ON entries (pinned_at DESC, copied_revision DESC, is_favorite) WHERE in_history;

ALTER TABLE contents ADD COLUMN folded TEXT;
CREATE INDEX found_beside_contents ON entries (alias, kind, preview) WHERE alias IS NOT NULL OR kind = 'image';

PRAGMA user_version = 2;
)sql";

// Profiles are unique by their folded names; their sizes are those that they have in a snapshot. hosts_state is the
// JSON of what the companion said. The companion's one row is written by the process that serves, as are the outcomes
// of requests; requests come from others.
constexpr const char* kHosts = R"sql(
ALTER TABLE store ADD COLUMN hosts_revision INTEGER NOT NULL DEFAULT 0;

CREATE TABLE hosts_profiles (
    id          TEXT PRIMARY KEY,
    name        TEXT NOT NULL,
    folded_name TEXT NOT NULL UNIQUE,
    content     TEXT NOT NULL,
    is_enabled  INTEGER NOT NULL,
    updated_at  REAL NOT NULL,
    size        INTEGER NOT NULL,
    sort_order  INTEGER NOT NULL
) STRICT;

CREATE TABLE companion (
    one            INTEGER PRIMARY KEY CHECK (one = 1),
    linked_since   REAL,
    hot_key_active INTEGER,
    hosts_state_at REAL,
    hosts_state    TEXT
) STRICT;
INSERT INTO companion (one) VALUES (1);

CREATE TABLE hosts_requests (
    number      INTEGER PRIMARY KEY AUTOINCREMENT,
    remove_all  INTEGER NOT NULL,
    patience_ms INTEGER NOT NULL,
    outcome     TEXT,
    hosts_state TEXT
) STRICT;

PRAGMA user_version = 3;
)sql";

// The step at index n leads from schema n to n + 1, and sets user_version itself.
constexpr std::array kSteps = {kFirstSchema, kHistoryLimit, kHosts};

StoreError foreign(const std::filesystem::path& file) {
    return {file.string() + " is a database of another program"};
}

// Whether the file is new or ours, asked before anything is written.
Result<std::int64_t, StoreError> versionOf(SqliteConnection& connection, const std::filesystem::path& file) {
    const auto application = connection.number("PRAGMA application_id");
    if (!application)
        return Failure{application.error()};
    const auto tables = connection.number("SELECT count(*) FROM sqlite_schema");
    if (!tables)
        return Failure{tables.error()};
    const bool isNew = *application == 0 && *tables == 0;
    if (*application != kApplicationId && !isNew)
        return Failure{foreign(file)};
    const auto version = connection.number("PRAGMA user_version");
    if (!version)
        return Failure{version.error()};
    if (*version > currentVersion())
        return Failure{StoreError{file.string() + " was written by a newer vexil-store (schema " +
                                  std::to_string(*version) + "; this one reads up to " +
                                  std::to_string(currentVersion()) + ")"}};
    if (*version < 0 || (*version == 0) != isNew)
        return Failure{foreign(file)};
    return *version;
}

// SQLite reports a journal mode that cannot be had by the one that it keeps, and not as an error.
Result<Done, StoreError> writeAhead(SqliteConnection& connection, const std::filesystem::path& file) {
    auto statement = connection.prepare("PRAGMA journal_mode = WAL");
    if (!statement)
        return Failure{statement.error()};
    const auto stepped = statement->step();
    if (!stepped)
        return Failure{stepped.error()};
    const std::string mode = statement->text(0);
    if (mode != "wal")
        return Failure{StoreError{file.string() + " cannot be given a write-ahead log: its journal mode remains \"" +
                                  mode + "\""}};
    return statement->run();
}

// What is deleted is overwritten as well: among the copies there will be secrets.
constexpr const char* kSettings = "PRAGMA synchronous = FULL; PRAGMA foreign_keys = ON; PRAGMA secure_delete = ON";

} // namespace

std::int64_t currentVersion() {
    return static_cast<std::int64_t>(kSteps.size());
}

Result<Done, StoreError> prepare(SqliteConnection& connection, const std::filesystem::path& file) {
    return prepare(connection, file, currentVersion());
}

Result<Done, StoreError> prepare(SqliteConnection& connection, const std::filesystem::path& file,
                                 std::int64_t version) {
    const auto found =
        connection.transaction(SqliteConnection::Access::read, [&] { return versionOf(connection, file); });
    if (!found)
        return Failure{found.error()};
    if (auto logged = writeAhead(connection, file); !logged)
        return logged;
    if (auto set = connection.execute(kSettings); !set)
        return set;
    if (*found >= version)
        return Done{};
    return connection.transaction(SqliteConnection::Access::write, [&]() -> Result<Done, StoreError> {
        const auto before = versionOf(connection, file); // another process may have been faster
        if (!before)
            return Failure{before.error()};
        for (std::int64_t step = *before; step < version; ++step) {
            if (auto done = connection.execute(kSteps.at(static_cast<std::size_t>(step))); !done)
                return done;
        }
        return Done{};
    });
}

} // namespace vexil::store_schema
