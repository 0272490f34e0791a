// SPDX-License-Identifier: Apache-2.0
#include "store/database/sqlite_connection.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <string>

namespace vexil {

namespace {

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

StoreError unusable(const std::filesystem::path& file, int error) {
    return {file.string() + " cannot be used: " + std::strerror(error)};
}

// SQLite gives the files beside the database the mode of the database, so it is enough to make this one first. A file
// that is there already is left as it is: it may be another program's. SQLite would open one that cannot be written
// all the same, and fail at the first copy.
Result<Done, StoreError> createIfMissing(const std::filesystem::path& file) {
    const int made = ::open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerOnly);
    if (made >= 0)
        ::close(made);
    else if (errno != EEXIST || ::faccessat(AT_FDCWD, file.c_str(), R_OK | W_OK, AT_EACCESS) != 0)
        return Failure{unusable(file, errno)};
    return Done{};
}

} // namespace

Result<Done, StoreError> makePrivate(const std::filesystem::path& database) {
    for (const char* suffix : {"", "-wal", "-shm"}) {
        const std::filesystem::path file = database.string() + suffix;
        if (::chmod(file.c_str(), kOwnerOnly) != 0 && errno != ENOENT)
            return Failure{unusable(file, errno)};
    }
    return Done{};
}

void SqliteConnection::Close::operator()(sqlite3* database) const {
    [[maybe_unused]] const int code = sqlite3_close(database);
    assert(code == SQLITE_OK); // a statement outlived its connection
}

Result<SqliteConnection, StoreError> SqliteConnection::open(const std::filesystem::path& file, Mode mode,
                                                            std::chrono::milliseconds busyTimeout) {
    if (mode == Mode::createIfMissing) {
        if (auto created = createIfMissing(file); !created)
            return Failure{created.error()};
    }
    sqlite3* database = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    const int code = sqlite3_open_v2(file.c_str(), &database, flags, nullptr);
    SqliteConnection connection(database);
    if (code != SQLITE_OK) {
        const int systemError = database != nullptr ? sqlite3_system_errno(database) : ENOMEM;
        const char* reason = systemError != 0 ? std::strerror(systemError) : sqlite3_errstr(code);
        return Failure{StoreError{file.string() + " cannot be opened: " + reason}};
    }
    sqlite3_busy_timeout(database, static_cast<int>(busyTimeout.count()));
    return connection;
}

Result<Done, StoreError> SqliteConnection::execute(const char* sql) const {
    if (sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        return Failure{lastSqliteError(handle())};
    return Done{};
}

int SqliteConnection::changedRows() const {
    return sqlite3_changes(handle());
}

Result<SqliteStatement, StoreError> SqliteConnection::compile(std::string_view sql) {
    if (sqlite3_stmt* statement = opened_->statements.take(sql); statement != nullptr)
        return SqliteStatement(statement, opened_->statements);
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v3(handle(), sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &statement,
                           nullptr) != SQLITE_OK)
        return Failure{lastSqliteError(handle())};
    return SqliteStatement(statement, opened_->statements);
}

void SqliteConnection::rollBack() const {
    // After some failures SQLite has rolled back already.
    if (sqlite3_get_autocommit(handle()) == 0)
        sqlite3_exec(handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

} // namespace vexil
