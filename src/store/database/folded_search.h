// SPDX-License-Identifier: Apache-2.0
// Search in texts without regard to case.
#pragma once

#include "base/result.h"
#include "store/database/sqlite_connection.h"
#include "store/database/store_error.h"

#include <optional>
#include <string>
#include <string_view>

namespace vexil {

// What is kept beside a text to search it by; none where the text is ASCII, which folds so fast that it is done in
// passing.
[[nodiscard]] std::optional<std::string> foldedCopy(std::string_view text);

// Gives the connection the SQL function contains_folded(text, copy, wanted): whether `text`, whose foldedCopy() is
// `copy`, contains `wanted` in any case. Where there is no copy, `text` is folded on the spot. NULL contains nothing.
Result<Done, StoreError> addFoldedSearch(SqliteConnection& connection);

} // namespace vexil
