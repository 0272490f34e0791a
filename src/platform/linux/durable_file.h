// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/bytes.h"

#include <filesystem>

namespace vexil {

// Gives the file new contents all at once, for its owner alone. True when they are safe on the disk; false leaves the
// old file, or its absence, as it was, but for a disk that breaks in the last step. Folders that are missing are made,
// for the owner alone. A symbolic link stays one: what it names is replaced.
[[nodiscard]] bool replaceFileDurably(const std::filesystem::path& file, ByteView contents);

} // namespace vexil
