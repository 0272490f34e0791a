// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/bytes.h"

#include <cstdint>
#include <optional>
#include <string>

namespace vexil {

// Called on worker queues, from several threads at once; blocks for as long as the pixels take.
class ImageCodec {
public:
    // Larger images are refused, and so is one wider or higher than JPEG can say, 65,500.
    static constexpr std::uint64_t kMaxPixels = 128'000'000;

    virtual ~ImageCodec() = default;

    // `image` (PNG, TIFF, JPEG, WebP, BMP, GIF; the first frame) as baseline JPEG at `quality` (0 to 1), transparency
    // flattened on white. None where it cannot be read or is too large.
    [[nodiscard]] virtual std::optional<Bytes> toJpeg(ByteView image, double quality) = 0;

    // `image` as PNG with its transparency. None as above.
    [[nodiscard]] virtual std::optional<Bytes> toPng(ByteView image) = 0;

    // Of an image that can be read, as far as that shows without its pixels: its type on a pasteboard, kAnyImage for
    // one that has no type of its own there. None for what is no image, cut off, or too large.
    [[nodiscard]] virtual std::optional<std::string> typeOf(ByteView image) = 0;
};

} // namespace vexil
