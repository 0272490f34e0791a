// SPDX-License-Identifier: Apache-2.0
#include "store/cli/entry_lookup.h"

#include "store/cli/id_prefix.h"

#include <string>

namespace vexil {

namespace {

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
