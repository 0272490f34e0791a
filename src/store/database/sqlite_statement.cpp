// SPDX-License-Identifier: Apache-2.0
#include "store/database/sqlite_statement.h"

#include <sqlite3.h>

#include <cassert>
#include <cstring>

namespace vexil {

namespace {

std::string describe(int code, int systemError) {
    switch (code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return "is in use by another program";
    case SQLITE_FULL:
        return "cannot grow: no space is left";
    case SQLITE_NOTADB:
        return "is not a database of vexil-store";
    case SQLITE_CORRUPT:
        return "is damaged; move it away to start with an empty one";
    case SQLITE_READONLY:
        return "cannot be written: it is read-only";
    default:
        break;
    }
    if (systemError != 0)
        return std::string("cannot be used: ") + std::strerror(systemError);
    return std::string("cannot be used: ") + sqlite3_errstr(code);
}

} // namespace

StoreError lastSqliteError(sqlite3* database) {
    const char* path = sqlite3_db_filename(database, "main");
    const int code = sqlite3_extended_errcode(database);
    return {std::string(path != nullptr ? path : "the database") + " " +
            describe(code, sqlite3_system_errno(database))};
}

Result<bool, StoreError> SqliteStatement::step() {
    const int code = sqlite3_step(statement_.get());
    if (code == SQLITE_ROW)
        return true;
    if (code == SQLITE_DONE)
        return false;
    return Failure{lastSqliteError(sqlite3_db_handle(statement_.get()))};
}

Result<Done, StoreError> SqliteStatement::run() {
    for (;;) {
        const auto stepped = step();
        if (!stepped)
            return Failure{stepped.error()};
        if (!*stepped)
            return Done{};
    }
}

bool SqliteStatement::isNull(int column) const {
    return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

std::int64_t SqliteStatement::integer(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

double SqliteStatement::real(int column) const {
    return sqlite3_column_double(statement_.get(), column);
}

std::string_view SqliteStatement::textView(int column) const {
    const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
    if (data == nullptr)
        return {};
    return {data, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

ByteView SqliteStatement::bytesView(int column) const {
    const auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_.get(), column));
    if (data == nullptr)
        return {};
    return {data, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

std::optional<std::string> SqliteStatement::optionalText(int column) const {
    return isNull(column) ? std::nullopt : std::optional(text(column));
}

std::optional<Bytes> SqliteStatement::optionalBytes(int column) const {
    return isNull(column) ? std::nullopt : std::optional(bytes(column));
}

// Binding fails only for an index that the statement does not have, and for a value over SQLite's gigabyte.

void SqliteStatement::bindOne(int index, std::nullopt_t) {
    [[maybe_unused]] const int code = sqlite3_bind_null(statement_.get(), index);
    assert(code == SQLITE_OK);
}

void SqliteStatement::bindOne(int index, std::int64_t value) {
    [[maybe_unused]] const int code = sqlite3_bind_int64(statement_.get(), index, value);
    assert(code == SQLITE_OK);
}

void SqliteStatement::bindOne(int index, double value) {
    [[maybe_unused]] const int code = sqlite3_bind_double(statement_.get(), index, value);
    assert(code == SQLITE_OK);
}

void SqliteStatement::bindOne(int index, std::string_view text) {
    // A view without memory would be bound as NULL.
    const char* data = text.data() != nullptr ? text.data() : "";
    [[maybe_unused]] const int code =
        sqlite3_bind_text64(statement_.get(), index, data, text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    assert(code == SQLITE_OK);
}

void SqliteStatement::bindOne(int index, ByteView bytes) {
    const void* data = bytes.data() != nullptr ? static_cast<const void*>(bytes.data()) : "";
    [[maybe_unused]] const int code = sqlite3_bind_blob64(statement_.get(), index, data, bytes.size(), SQLITE_STATIC);
    assert(code == SQLITE_OK);
}

} // namespace vexil
