// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/bytes.h"
#include "base/date.h"
#include "store/cli/command_streams.h"
#include "store/database/store_folder.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace vexil {

// What a command is given of the world: it looks at nothing else.
struct CommandContext {
    StoreFolder folder;
    InputStream input;
    OutputStream output;
    OutputStream messages; // standard error: what is no part of the result
    std::function<Date()> now;
    std::function<void(std::chrono::milliseconds)> pause; // lets that time go by
    // A JPEG of an image in any format that is known; none where it cannot be read.
    std::function<std::optional<Bytes>(ByteView image)> toJpeg;
    std::string editor;                    // a command of the shell, to which the name of a file is appended
    std::filesystem::path temporaryFolder; // of the system: not private
};

} // namespace vexil
