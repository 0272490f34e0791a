// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/bytes.h"

#include <cstdint>
#include <optional>

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
};

} // namespace vexil
