// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/bytes.h"
#include "base/result.h"
#include "store/cli/command_streams.h"
#include "store/database/store_error.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace vexil {

// Cuts a stream into lines and holds no more than one of them, and a piece of the next.
class LineReader {
public:
    LineReader(const InputStream& input, std::size_t maxLineBytes) : input_(input), maxLineBytes_(maxLineBytes) {}

    // The next line without its newline, valid until the next call; none at the end. A last line without a newline is
    // one too. Fails where a line is longer than the limit.
    Result<std::optional<ByteView>, StoreError> next();

    [[nodiscard]] std::uint64_t lineNumber() const { return lineNumber_; } // of the last line, from 1
    [[nodiscard]] std::uint64_t bytesRead() const { return bytesRead_; }

private:
    const InputStream& input_;
    std::size_t maxLineBytes_;
    Bytes buffer_;
    std::size_t begin_ = 0; // of what was not handed out yet
    bool isAtEnd_ = false;
    std::uint64_t lineNumber_ = 0;
    std::uint64_t bytesRead_ = 0;
};

} // namespace vexil
