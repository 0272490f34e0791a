// SPDX-License-Identifier: Apache-2.0
// Standard base64 (RFC 4648, section 4) with padding and without line breaks.
#pragma once

#include "base/bytes.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vexil::base64 {

[[nodiscard]] constexpr std::size_t encodedSize(std::size_t byteCount) {
    return (byteCount + 2) / 3 * 4;
}

// Writes exactly encodedSize(bytes.size()) characters to `out`.
void encodeTo(std::uint8_t* out, ByteView bytes);

[[nodiscard]] std::string encode(ByteView bytes);

// None for anything but what encode() writes: missing padding, other alphabets, white space and stray bits in the last
// character are all refused, so that one value has one spelling.
[[nodiscard]] std::optional<Bytes> decode(std::string_view text);

} // namespace vexil::base64
