// SPDX-License-Identifier: Apache-2.0
#include "store/cli/entry_lookup.h"

#include <optional>
#include <string>

namespace vexil {

namespace {

// The beginning of an id in its canonical form; none where no id begins like that.
std::optional<std::string> canonicalBeginning(std::string_view typed) {
    std::string canonical;
    for (const char c : typed) {
        if (c == '-')
            continue;
        if (std::string_view("0123456789abcdefABCDEF").find(c) == std::string_view::npos)
            return std::nullopt;
        const std::size_t length = canonical.size();
        if (length == 8 || length == 13 || length == 18 || length == 23)
            canonical.push_back('-');
        canonical.push_back(c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c);
    }
    if (canonical.empty() || canonical.size() > Uuid::kTextLength)
        return std::nullopt;
    return canonical;
}

Failure<CommandError> noEntry(std::string_view typed) {
    return failure("no entry has the id " + std::string(typed) + "; see vexil-store list");
}

} // namespace

Result<Uuid, CommandError> findEntry(StoreDatabase& database, std::string_view typed) {
    const auto beginning = canonicalBeginning(typed);
    if (!beginning)
        return noEntry(typed);
    const auto ids = database.lists().idsStartingWith(*beginning, 2);
    if (!ids)
        return Failure<CommandError>{ids.error()};
    if (ids->empty())
        return noEntry(typed);
    if (ids->size() > 1)
        return failure(std::string(typed) + " begins the ids of several entries, such as " + ids->front().toString() +
                       " and " + ids->back().toString() + "; give more of it");
    return ids->front();
}

} // namespace vexil
