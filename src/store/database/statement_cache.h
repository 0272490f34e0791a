// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string_view>
#include <unordered_map>

struct sqlite3_stmt;

namespace vexil {

// Compiled statements of one connection that wait to be used again: to compile one costs more than to run it.
class StatementCache {
public:
    // The program has fewer than that; what is composed beyond it is compiled each time.
    static constexpr std::size_t kMaxWaiting = 128;

    StatementCache() = default;
    ~StatementCache();
    StatementCache(const StatementCache&) = delete;
    StatementCache& operator=(const StatementCache&) = delete;

    // Null where none with this text waits. The caller has to give it back.
    [[nodiscard]] sqlite3_stmt* take(std::string_view sql);
    // Ends the statement's run and forgets its values.
    void giveBack(sqlite3_stmt* statement);

private:
    std::unordered_map<std::string_view, sqlite3_stmt*> waiting_; // the keys are kept by SQLite with the statements
};

} // namespace vexil
