// SPDX-License-Identifier: Apache-2.0
#include "store/database/statement_cache.h"

#include <sqlite3.h>

namespace vexil {

StatementCache::~StatementCache() {
    for (const auto& [sql, statement] : waiting_)
        sqlite3_finalize(statement);
}

sqlite3_stmt* StatementCache::take(std::string_view sql) {
    const auto found = waiting_.extract(sql);
    return found.empty() ? nullptr : found.mapped();
}

void StatementCache::giveBack(sqlite3_stmt* statement) {
    sqlite3_reset(statement); // repeats the code of the last step, which was reported there
    sqlite3_clear_bindings(statement);
    // One that was needed twice at a time comes back to find the other.
    if (waiting_.size() >= kMaxWaiting || !waiting_.emplace(sqlite3_sql(statement), statement).second)
        sqlite3_finalize(statement);
}

} // namespace vexil
