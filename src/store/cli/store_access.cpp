// SPDX-License-Identifier: Apache-2.0
#include "store/cli/store_access.h"

#include <system_error>

namespace vexil {

namespace {

Result<StoreDatabase, CommandError> open(const CommandContext& context, StoreDatabase::Mode mode) {
    auto database = StoreDatabase::open(context.folder.database(), mode);
    if (!database)
        return Failure{CommandError(database.error())};
    return std::move(database).value();
}

} // namespace

Result<std::optional<StoreDatabase>, CommandError> openStoreIfAny(const CommandContext& context) {
    std::error_code error;
    if (std::filesystem::status(context.folder.database(), error).type() == std::filesystem::file_type::not_found)
        return std::optional<StoreDatabase>();
    auto database = open(context, StoreDatabase::Mode::existing);
    if (!database)
        return Failure{database.error()};
    return std::optional(std::move(database).value());
}

Result<StoreDatabase, CommandError> openStore(const CommandContext& context) {
    auto database = openStoreIfAny(context);
    if (!database)
        return Failure{database.error()};
    if (!*database)
        return failure("nothing has been stored yet: there is no " + context.folder.database().string());
    return std::move(**database);
}

Result<StoreDatabase, CommandError> openOrCreateStore(const CommandContext& context) {
    if (const auto created = context.folder.create(); !created)
        return Failure{CommandError(created.error())};
    return open(context, StoreDatabase::Mode::createIfMissing);
}

} // namespace vexil
