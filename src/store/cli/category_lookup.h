// SPDX-License-Identifier: Apache-2.0
// The one category that a person means.
#pragma once

#include "base/result.h"
#include "link/clipboard_records.h"
#include "store/cli/command_result.h"
#include "store/database/store_database.h"

#include <string>

namespace vexil {

// By its name, in whatever case.
[[nodiscard]] Result<ClipboardCategory, CommandError> findCategory(StoreDatabase& database, const std::string& name);

} // namespace vexil
