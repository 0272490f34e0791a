// SPDX-License-Identifier: Apache-2.0
// What gdk-pixbuf's loaders do not check: some make up the pixels of a file that is cut off, the one for WebP tells the
// size of an image only when it has allocated it, and the one for JPEG draws the whole image anew for every scan.
#pragma once

#include "base/bytes.h"

#include <cstdint>
#include <optional>

namespace vexil::image_file {

// False where the file ends before its (first) image does. Damage within is left to the decoder.
[[nodiscard]] bool isWholeBmp(ByteView bytes);
[[nodiscard]] bool isWholeGif(ByteView bytes);
[[nodiscard]] bool isWholeWebp(ByteView bytes);

struct JpegOutline {
    bool isWhole = false; // as above
    std::uint64_t scans = 0;
    std::uint64_t pixels = 0; // of one scan
};
[[nodiscard]] JpegOutline outlineOfJpeg(ByteView bytes);

struct Size {
    std::uint32_t width;
    std::uint32_t height;
};
// None where the file does not begin as a WebP does.
[[nodiscard]] std::optional<Size> webpSize(ByteView bytes);

} // namespace vexil::image_file
