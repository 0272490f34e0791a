// SPDX-License-Identifier: Apache-2.0
#include "store/database/store_database.h"

#include "store/database/folded_search.h"
#include "store/database/store_schema.h"

namespace vexil {

Result<StoreDatabase, StoreError> StoreDatabase::open(const std::filesystem::path& file, Mode mode,
                                                      std::chrono::milliseconds busyTimeout) {
    auto connection = SqliteConnection::open(file, mode, busyTimeout);
    if (!connection)
        return Failure{connection.error()};
    if (auto prepared = store_schema::prepare(*connection, file); !prepared)
        return Failure{prepared.error()};
    if (auto added = addFoldedSearch(*connection); !added)
        return Failure{added.error()};
    if (mode == Mode::createIfMissing) {
        if (auto made = makePrivate(file); !made)
            return Failure{made.error()};
    }
    return StoreDatabase(std::move(connection).value());
}

Result<std::int64_t, StoreError> StoreDatabase::revision() {
    return connection_.number("SELECT revision FROM store");
}

Result<std::int64_t, StoreError> StoreDatabase::dataVersion() {
    return connection_.number("PRAGMA data_version");
}

} // namespace vexil
