// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/result.h"
#include "store/database/sqlite_statement.h"
#include "store/database/statement_cache.h"
#include "store/database/store_error.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>
#include <type_traits>

namespace vexil {

// Leaves a database, and the files that SQLite has put beside it, to their owner alone.
Result<Done, StoreError> makePrivate(const std::filesystem::path& database);

// One connection to one SQLite file. Used from one thread at a time.
class SqliteConnection {
public:
    enum class Mode { existing, createIfMissing };
    // How long a statement waits for another program before it gives up.
    static constexpr std::chrono::milliseconds kBusyTimeout{2000};

    // A new file is readable by its owner only, as are the files that SQLite puts beside it. Of one that is there
    // nothing is read or changed yet.
    static Result<SqliteConnection, StoreError> open(const std::filesystem::path& file, Mode mode,
                                                     std::chrono::milliseconds busyTimeout = kBusyTimeout);

    // `sql` may hold several statements, without parameters.
    Result<Done, StoreError> execute(const char* sql) const;

    // The statement with all of its parameters bound; see SqliteStatement::bind for how long bytes must live. It is
    // compiled once: the same text is found again.
    template <class... Values>
    Result<SqliteStatement, StoreError> prepare(std::string_view sql, const Values&... values) {
        auto statement = compile(sql);
        if (statement)
            statement->bind(values...);
        return statement;
    }

    template <class... Values> Result<Done, StoreError> run(std::string_view sql, const Values&... values) {
        auto statement = prepare(sql, values...);
        if (!statement)
            return Failure{statement.error()};
        return statement->run();
    }

    // The first column of the only row.
    template <class... Values> Result<std::int64_t, StoreError> number(std::string_view sql, const Values&... values) {
        auto statement = prepare(sql, values...);
        if (!statement)
            return Failure{statement.error()};
        const auto stepped = statement->step();
        if (!stepped)
            return Failure{stepped.error()};
        const std::int64_t value = statement->integer(0);
        if (auto ended = statement->run(); !ended)
            return Failure{ended.error()};
        return value;
    }

    // For what has no place here; it remains the connection's.
    [[nodiscard]] sqlite3* handle() const { return opened_->database.get(); }

    // Rows that the last statement changed.
    [[nodiscard]] int changedRows() const;

    enum class Access { read, write };
    // Runs `work`, which returns a Result, on one state of the database. All that it changes is kept, or, where it or
    // the commit fails, nothing.
    template <class Work> std::invoke_result_t<Work&> transaction(Access access, Work work) {
        if (auto begun = run(access == Access::write ? "BEGIN IMMEDIATE" : "BEGIN"); !begun)
            return Failure{begun.error()};
        auto result = work();
        if (!result) {
            rollBack();
            return result;
        }
        if (auto committed = run("COMMIT"); !committed) {
            rollBack();
            return Failure{committed.error()};
        }
        return result;
    }

private:
    struct Close {
        void operator()(sqlite3* database) const;
    };
    struct Opened {
        std::unique_ptr<sqlite3, Close> database;
        StatementCache statements; // end before the database
    };

    explicit SqliteConnection(sqlite3* database) : opened_(std::make_unique<Opened>()) {
        opened_->database.reset(database);
    }

    Result<SqliteStatement, StoreError> compile(std::string_view sql);
    void rollBack() const;

    std::unique_ptr<Opened> opened_;
};

} // namespace vexil
