// SPDX-License-Identifier: Apache-2.0
// A prepared statement with its values, and the values of its current row.
#pragma once

#include "base/bytes.h"
#include "base/date.h"
#include "base/result.h"
#include "base/uuid.h"
#include "store/database/statement_cache.h"
#include "store/database/store_error.h"

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;

namespace vexil {

// What went wrong last on `database`, as a sentence.
[[nodiscard]] StoreError lastSqliteError(sqlite3* database);

// Not shared between threads; ends before its connection does. Columns count from 0. A column of another type than
// asked for is converted as SQLite does, NULL to zero or nothing.
class SqliteStatement {
public:
    // Goes into `cache` when it is no longer used.
    SqliteStatement(sqlite3_stmt* statement, StatementCache& cache) : statement_(statement, GiveBack{&cache}) {}

    // Binds the parameters in order, all of them. Text is copied; bytes are not, and must live until the last step.
    template <class... Values> void bind(const Values&... values) {
        int index = 0;
        (bindOne(++index, values), ...);
    }

    // One parameter, counted from 1.
    template <class Value> void bindAt(int index, const Value& value) { bindOne(index, value); }

    // True where there is a row to read, false at the end.
    Result<bool, StoreError> step();
    // For a statement whose rows, if any, do not matter.
    Result<Done, StoreError> run();

    [[nodiscard]] bool isNull(int column) const;
    [[nodiscard]] std::int64_t integer(int column) const;
    [[nodiscard]] double real(int column) const;
    [[nodiscard]] std::string text(int column) const { return std::string(textView(column)); }
    [[nodiscard]] Bytes bytes(int column) const { return copyOf(bytesView(column)); }
    // Valid until the next step.
    [[nodiscard]] std::string_view textView(int column) const;
    [[nodiscard]] ByteView bytesView(int column) const;

    [[nodiscard]] Date date(int column) const { return Date{real(column)}; }
    [[nodiscard]] std::optional<std::string> optionalText(int column) const;
    [[nodiscard]] std::optional<Bytes> optionalBytes(int column) const;
    [[nodiscard]] std::optional<Uuid> id(int column) const { return Uuid::parse(textView(column)); }

private:
    struct GiveBack {
        StatementCache* cache;
        void operator()(sqlite3_stmt* statement) const { cache->giveBack(statement); }
    };

    void bindOne(int index, std::nullopt_t);
    void bindOne(int index, std::int64_t value);
    void bindOne(int index, double value);
    void bindOne(int index, std::string_view text);
    void bindOne(int index, ByteView bytes);
    void bindOne(int index, const Bytes& bytes) { bindOne(index, ByteView(bytes)); }
    void bindOne(int index, Date date) { bindOne(index, date.secondsSinceReference); }
    void bindOne(int index, const Uuid& id) { bindOne(index, std::string_view(id.toString())); }
    template <std::integral Integer> void bindOne(int index, Integer value) {
        bindOne(index, static_cast<std::int64_t>(value));
    }
    template <class Value> void bindOne(int index, const std::optional<Value>& value) {
        if (value)
            bindOne(index, *value);
        else
            bindOne(index, std::nullopt);
    }

    std::unique_ptr<sqlite3_stmt, GiveBack> statement_;
};

} // namespace vexil
