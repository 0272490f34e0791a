// SPDX-License-Identifier: Apache-2.0
#include "store/database/folded_search.h"

#include "base/text_folding.h"
#include "base/text_search.h"

#include <sqlite3.h>

#include <algorithm>
#include <memory>

namespace vexil {

namespace {

// Copies are kept from one run of the program to the next, so they cannot depend on its locale.
constexpr auto kRules = text::CaseRules::common;

std::string_view textOf(sqlite3_value* value) {
    const auto* data = reinterpret_cast<const char*>(sqlite3_value_text(value));
    if (data == nullptr)
        return {};
    return {data, static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

template <class T> void destroy(void* object) {
    const std::unique_ptr<T> destroyed(static_cast<T*>(object));
}

// The query of the running statement, folded at its first row. Null where there is no memory left.
const text::Query* queryOf(sqlite3_context* context, sqlite3_value* wanted) {
    constexpr int kWanted = 2; // the parameter that it goes with
    auto* query = static_cast<text::Query*>(sqlite3_get_auxdata(context, kWanted));
    if (query == nullptr) {
        sqlite3_set_auxdata(context, kWanted, std::make_unique<text::Query>(textOf(wanted), kRules).release(),
                            destroy<text::Query>);
        query = static_cast<text::Query*>(sqlite3_get_auxdata(context, kWanted));
    }
    return query;
}

void containsFolded(sqlite3_context* context, int, sqlite3_value** values) {
    const text::Query* query = queryOf(context, values[2]);
    if (query == nullptr) {
        sqlite3_result_error_nomem(context);
        return;
    }
    bool isIn = false;
    if (sqlite3_value_type(values[1]) != SQLITE_NULL) {
        isIn = query->isIn(textOf(values[1]));
    } else if (sqlite3_value_type(values[0]) != SQLITE_NULL) {
        auto& folded = *static_cast<std::string*>(sqlite3_user_data(context));
        folded.clear();
        text::appendFolded(folded, textOf(values[0]), kRules);
        isIn = query->isIn(folded);
    }
    sqlite3_result_int(context, isIn ? 1 : 0);
}

} // namespace

std::optional<std::string> foldedCopy(std::string_view text) {
    if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; }))
        return std::nullopt;
    return text::fold(text, kRules);
}

Result<Done, StoreError> addFoldedSearch(SqliteConnection& connection) {
    auto room = std::make_unique<std::string>(); // SQLite destroys it, also where it fails
    const int code = sqlite3_create_function_v2(connection.handle(), "contains_folded", 3,
                                                SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY, room.release(),
                                                containsFolded, nullptr, nullptr, destroy<std::string>);
    if (code != SQLITE_OK)
        return Failure{lastSqliteError(connection.handle())};
    return Done{};
}

} // namespace vexil
