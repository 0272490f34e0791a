// SPDX-License-Identifier: Apache-2.0
// What the store needs to know of a JPEG that it keeps.
#pragma once

#include "base/bytes.h"

#include <cstdint>
#include <optional>

namespace vexil {

struct PixelSize {
    std::uint32_t width = 0;
    std::uint32_t height = 0;

    bool operator==(const PixelSize&) const = default;
};

// From the header alone. None where the bytes are no JPEG.
[[nodiscard]] std::optional<PixelSize> jpegSize(ByteView jpeg);

// A smaller JPEG, at most kThumbnailEdge pixels wide and high and kMaxThumbnailBytes long. None where the image cannot
// be decoded, or is one that would cost too much: over kMaxThumbnailSource pixels, or coded in several scans, of which
// the decoder would have to hold all coefficients at once.
inline constexpr std::uint32_t kThumbnailEdge = 96;
inline constexpr std::size_t kMaxThumbnailBytes = 4096;
inline constexpr std::uint64_t kMaxThumbnailSource = 128'000'000;
[[nodiscard]] std::optional<Bytes> jpegThumbnail(ByteView jpeg);

} // namespace vexil
