// SPDX-License-Identifier: Apache-2.0
#include "base/json_writer.h"

#include "base/base64.h"
#include "base/text.h"

#include <algorithm>
#include <cassert>
#include <charconv>
#include <cmath>

namespace vexil::json {

namespace {

constexpr std::size_t kLongestNumber = 32; // of std::to_chars for 64-bit integers and shortest doubles

constexpr std::uint64_t kOnes = 0x0101010101010101;
constexpr std::uint64_t kHighBits = 0x8080808080808080;

// Not zero if any byte of `word` is below `bound` (1 to 128).
constexpr std::uint64_t bytesBelow(std::uint64_t word, std::uint64_t bound) {
    return (word - kOnes * bound) & ~word & kHighBits;
}

// True where none of eight bytes is a control character, a quote or a backslash.
bool isPlain(std::uint64_t word) {
    return (bytesBelow(word, 0x20) | bytesBelow(word ^ (kOnes * '"'), 1) | bytesBelow(word ^ (kOnes * '\\'), 1)) == 0;
}

bool needsEscape(std::uint8_t c) {
    return c < 0x20 || c == '"' || c == '\\';
}

bool isAscii(std::string_view text) {
    std::uint64_t all = 0;
    std::size_t i = 0;
    for (; i + sizeof all <= text.size(); i += sizeof all) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data() + i, sizeof word);
        all |= word;
    }
    for (; i < text.size(); ++i)
        all |= static_cast<std::uint8_t>(text[i]);
    return (all & kHighBits) == 0;
}

} // namespace

Writer::Writer(Bytes& out, std::size_t expectedSize) : out_(out), start_(out.size()) {
    out.resize(start_ + expectedSize);
    put_ = out.data() + start_;
    end_ = out.data() + out.size();
}

Writer::~Writer() {
    out_.resize(static_cast<std::size_t>(put_ - out_.data()));
}

void Writer::grow(std::size_t size) {
    const auto used = static_cast<std::size_t>(put_ - out_.data());
    out_.resize(used + std::max(size, used / 2));
    put_ = out_.data() + used;
    end_ = out_.data() + out_.size();
}

void Writer::word(std::string_view text) {
    room(text.size());
    put_ = std::copy(text.begin(), text.end(), put_);
}

void Writer::null() {
    word("null");
}

void Writer::boolean(bool value) {
    word(value ? "true" : "false");
}

void Writer::integer(std::int64_t value) {
    room(kLongestNumber);
    auto* const text = reinterpret_cast<char*>(put_);
    put_ += std::to_chars(text, text + kLongestNumber, value).ptr - text;
}

void Writer::number(double value) {
    assert(std::isfinite(value));
    room(kLongestNumber);
    auto* const text = reinterpret_cast<char*>(put_);
    put_ += std::to_chars(text, text + kLongestNumber, std::isfinite(value) ? value : 0.0).ptr - text;
}

void Writer::uuid(const Uuid& value) {
    room(Uuid::kTextLength + 2);
    *put_++ = '"';
    value.writeTo(reinterpret_cast<char*>(put_));
    put_ += Uuid::kTextLength;
    *put_++ = '"';
}

void Writer::base64(ByteView value) {
    const std::size_t size = base64::encodedSize(value.size());
    room(size + 2);
    *put_++ = '"';
    base64::encodeTo(put_, value);
    put_ += size;
    *put_++ = '"';
}

void Writer::encoded(ByteView json) {
    room(json.size());
    if (!json.empty())
        std::memcpy(put_, json.data(), json.size());
    put_ += json.size();
}

void Writer::string(std::string_view value) {
    if (isAscii(value) || text::isValidUtf8(value))
        escaped(value);
    else
        escaped(text::repairedUtf8(value));
}

void Writer::escaped(std::string_view utf8) {
    room(utf8.size() + 2);
    *put_++ = '"';
    const auto* in = reinterpret_cast<const std::uint8_t*>(utf8.data());
    const auto* const end = in + utf8.size();
    // Everything up to `end` fits as it is; an escape makes room for itself and for what is then left.
    while (in != end) {
        std::uint64_t word = 0;
        if (static_cast<std::size_t>(end - in) >= sizeof word) {
            std::memcpy(&word, in, sizeof word);
            if (isPlain(word)) {
                std::memcpy(put_, &word, sizeof word);
                put_ += sizeof word;
                in += sizeof word;
                continue;
            }
        }
        const std::ptrdiff_t step = std::min<std::ptrdiff_t>(end - in, sizeof word);
        for (const auto* const stop = in + step; in != stop; ++in) {
            if (!needsEscape(*in)) {
                *put_++ = *in;
                continue;
            }
            room(static_cast<std::size_t>(end - in) + 6);
            escape(*in);
        }
    }
    *put_++ = '"';
}

void Writer::escape(std::uint8_t c) {
    constexpr std::string_view kHex = "0123456789abcdef";
    *put_++ = '\\';
    switch (c) {
    case '\n':
        *put_++ = 'n';
        return;
    case '\r':
        *put_++ = 'r';
        return;
    case '\t':
        *put_++ = 't';
        return;
    case '"':
    case '\\':
        *put_++ = c;
        return;
    default:
        for (const char digit : {'u', '0', '0', kHex[c >> 4], kHex[c & 0xF]})
            *put_++ = static_cast<std::uint8_t>(digit);
    }
}

} // namespace vexil::json
