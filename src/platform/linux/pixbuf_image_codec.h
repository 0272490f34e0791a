// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/image_codec.h"

namespace vexil {

// Reads with gdk-pixbuf, but for PNG, the format of screenshots, whose rows go straight from libpng to libjpeg. A file
// that is damaged or cut off counts as one that cannot be read. Turns the image upright where the file says how it was
// taken. WebP needs the loader of the package webp-pixbuf-loader. Holds nothing: any number of threads may share one.
class PixbufImageCodec final : public ImageCodec {
public:
    [[nodiscard]] std::optional<Bytes> toJpeg(ByteView image, double quality) override;
    [[nodiscard]] std::optional<Bytes> toPng(ByteView image) override;
    [[nodiscard]] std::optional<std::string> typeOf(ByteView image) override;
};

} // namespace vexil
