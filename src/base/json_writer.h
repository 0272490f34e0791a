// SPDX-License-Identifier: Apache-2.0
// Puts JSON values at the end of a buffer.
#pragma once

#include "base/bytes.h"
#include "base/uuid.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace vexil::json {

// What it writes is valid JSON in valid UTF-8, whatever it is given: ill-formed text is repaired with U+FFFD. The
// caller owns the order of keys, values and punctuation. The buffer is complete once the writer is destroyed.
class Writer {
public:
    // About `expectedSize` bytes are going to be written; more costs a copy.
    Writer(Bytes& out, std::size_t expectedSize);
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    void punctuation(char c) {
        room(1);
        *put_++ = static_cast<std::uint8_t>(c);
    }
    // A key in its quotes, with the comma before it and the colon after it; `text` needs no escapes.
    void key(std::string_view text, bool isFirst) {
        room(text.size() + 4);
        if (!isFirst)
            *put_++ = ',';
        *put_++ = '"';
        std::memcpy(put_, text.data(), text.size());
        put_ += text.size();
        *put_++ = '"';
        *put_++ = ':';
    }
    void null();
    void boolean(bool value);
    void integer(std::int64_t value);
    // JSON has no infinity and no NaN: passing one is a broken invariant, asserted, and written as 0.
    void number(double value);
    void string(std::string_view value);
    void uuid(const Uuid& value);
    void base64(ByteView value);
    // A value that is JSON already.
    void encoded(ByteView json);

    // How much was written so far, and the way back to where that much was.
    [[nodiscard]] std::size_t written() const { return static_cast<std::size_t>(put_ - out_.data()) - start_; }
    void backTo(std::size_t written) { put_ = out_.data() + start_ + written; }

private:
    void room(std::size_t size) {
        if (static_cast<std::size_t>(end_ - put_) < size)
            grow(size);
    }
    void grow(std::size_t size);
    void word(std::string_view text);
    void escaped(std::string_view utf8);
    void escape(std::uint8_t c);

    Bytes& out_;
    std::size_t start_;
    std::uint8_t* put_ = nullptr;
    std::uint8_t* end_ = nullptr;
};

} // namespace vexil::json
