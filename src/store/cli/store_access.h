// SPDX-License-Identifier: Apache-2.0
// The database of the store, opened for one command. All of this works beside a running `serve` and without one.
#pragma once

#include "base/result.h"
#include "store/cli/command_context.h"
#include "store/cli/command_result.h"
#include "store/database/store_database.h"

#include <optional>

namespace vexil {

// None where nothing was ever stored.
[[nodiscard]] Result<std::optional<StoreDatabase>, CommandError> openStoreIfAny(const CommandContext& context);

// For commands that make no sense without a store.
[[nodiscard]] Result<StoreDatabase, CommandError> openStore(const CommandContext& context);

// Makes what is missing.
[[nodiscard]] Result<StoreDatabase, CommandError> openOrCreateStore(const CommandContext& context);

} // namespace vexil
