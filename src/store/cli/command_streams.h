// SPDX-License-Identifier: Apache-2.0
// Where a command reads and writes.
#pragma once

#include "base/bytes.h"
#include "base/result.h"
#include "store/cli/terminal.h"
#include "store/database/store_error.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vexil {

// A descriptor that somebody else closes, and what is known of it. Unbuffered: what was written is out.
class OutputStream {
public:
    OutputStream(int descriptor, std::optional<Terminal> terminal) : descriptor_(descriptor), terminal_(terminal) {}

    // Whoever writes to a terminal sees to it that nothing in there commands it.
    [[nodiscard]] const std::optional<Terminal>& terminal() const { return terminal_; }

    Result<Done, StoreError> write(ByteView bytes) const;
    Result<Done, StoreError> write(std::string_view text) const { return write(bytesOf(text)); }

private:
    int descriptor_;
    std::optional<Terminal> terminal_;
};

class InputStream {
public:
    InputStream(int descriptor, bool isTerminal) : descriptor_(descriptor), isTerminal_(isTerminal) {}

    [[nodiscard]] bool isTerminal() const { return isTerminal_; }

    // Appends to `buffer` what there is, at most `limit` bytes; waits for the first of them. 0 is the end.
    Result<std::size_t, StoreError> readSome(Bytes& buffer, std::size_t limit) const;
    // Up to the end. Fails where there is more than `limit`.
    [[nodiscard]] Result<Bytes, StoreError> readAll(std::size_t limit) const;
    // What a person types on a terminal up to return, without it.
    [[nodiscard]] Result<std::string, StoreError> readLine() const;

private:
    int descriptor_;
    bool isTerminal_;
};

} // namespace vexil
