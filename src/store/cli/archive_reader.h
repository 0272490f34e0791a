// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/result.h"
#include "store/cli/command_streams.h"
#include "store/cli/line_reader.h"
#include "store/database/clipboard_archive.h"
#include "store/database/store_error.h"

#include <cstdint>
#include <optional>

namespace vexil {

// The items of an export, one after the other, from a stream that outlives the reader.
class ArchiveReader {
public:
    // An image of the largest size, in base64, and all that goes with it.
    static constexpr std::size_t kMaxLineBytes = 64U << 20;

    explicit ArchiveReader(const InputStream& input) : lines_(input, kMaxLineBytes) {}

    // None at the end, which has been seen to be the end of a whole export. Fails at the first line that is wrong, at
    // whatever follows the end, and at a file that stops before it.
    Result<std::optional<ArchivedItem>, StoreError> next();

    [[nodiscard]] std::uint64_t lineNumber() const { return lines_.lineNumber(); }
    [[nodiscard]] std::uint64_t bytesRead() const { return lines_.bytesRead(); }

private:
    Result<Done, StoreError> readHeader();
    Result<std::optional<ArchivedItem>, StoreError> finish(std::int64_t expectedItems);

    LineReader lines_;
    std::int64_t items_ = 0;
};

} // namespace vexil
