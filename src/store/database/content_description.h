// SPDX-License-Identifier: Apache-2.0
// What the store derives from a content when it takes it in.
#pragma once

#include "base/bytes.h"
#include "link/clipboard_records.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace vexil {

inline constexpr std::size_t kMaxPreviewCharacters = 200;
inline constexpr std::size_t kMaxPreviewBytes = 4096; // 200 characters of stacked marks have no end otherwise

// SHA-256 of the kind's name, a zero byte and the content: equal where a copy repeats an older one.
using ContentHash = std::array<std::uint8_t, 32>;
[[nodiscard]] ContentHash contentHash(ClipboardKind kind, ByteView content);

struct ContentDescription {
    std::string preview; // one line
    std::optional<Bytes> thumbnail;
};
// `content` is a text in UTF-8, or an image, which is taken as it is even where it cannot be read.
[[nodiscard]] ContentDescription describe(ClipboardKind kind, ByteView content);

} // namespace vexil
