// SPDX-License-Identifier: Apache-2.0
// The one entry that a person means.
#pragma once

#include "base/result.h"
#include "base/uuid.h"
#include "store/cli/command_result.h"
#include "store/database/store_database.h"

#include <string_view>

namespace vexil {

// The entry whose id begins with what was typed, in either case, with or without hyphens. Fails where none or several
// do.
[[nodiscard]] Result<Uuid, CommandError> findEntry(StoreDatabase& database, std::string_view typed);

} // namespace vexil
