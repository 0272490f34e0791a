// SPDX-License-Identifier: Apache-2.0
#include "store/cli/line_reader.h"

#include <cstring>
#include <string>

namespace vexil {

namespace {

constexpr std::size_t kPiece = 256U << 10;

} // namespace

Result<std::optional<ByteView>, StoreError> LineReader::next() {
    std::size_t searched = begin_;
    for (;;) {
        const void* newline =
            searched < buffer_.size() ? std::memchr(&buffer_[searched], '\n', buffer_.size() - searched) : nullptr;
        const ByteView rest = ByteView(buffer_).subspan(begin_);
        if (newline != nullptr || (isAtEnd_ && !rest.empty())) {
            const std::size_t length =
                newline != nullptr ? static_cast<std::size_t>(static_cast<const std::uint8_t*>(newline) - rest.data())
                                   : rest.size();
            begin_ += length + (newline != nullptr ? 1 : 0);
            ++lineNumber_;
            return std::optional(rest.first(length));
        }
        if (isAtEnd_)
            return std::optional<ByteView>();
        if (rest.size() > maxLineBytes_)
            return Failure{StoreError{"line " + std::to_string(lineNumber_ + 1) + " is longer than " +
                                      std::to_string(maxLineBytes_) + " bytes"}};
        buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(begin_));
        begin_ = 0;
        searched = buffer_.size();
        const auto count = input_.readSome(buffer_, kPiece);
        if (!count)
            return Failure{count.error()};
        bytesRead_ += *count;
        isAtEnd_ = *count == 0;
    }
}

} // namespace vexil
