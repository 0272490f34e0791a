// SPDX-License-Identifier: Apache-2.0
// The commands that look into the store. They work beside a running `serve` and without one.
#pragma once

#include "base/result.h"
#include "store/database/store_error.h"
#include "store/database/store_folder.h"

#include <string_view>

namespace vexil {

enum class ListFormat { table, json };

// Prints the history to `output`, a file descriptor; a store that does not exist has none.
Result<Done, StoreError> listHistory(const StoreFolder& folder, ListFormat format, int output);

// Prints the content of the one entry whose id begins with `id`, in either case, with or without hyphens, byte for
// byte. An image is not printed on a terminal.
Result<Done, StoreError> showEntry(const StoreFolder& folder, std::string_view id, int output);

} // namespace vexil
