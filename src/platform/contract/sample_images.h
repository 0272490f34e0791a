// SPDX-License-Identifier: Apache-2.0
// Image files made on the spot.
#pragma once

#include "base/bytes.h"

#include <cstdint>
#include <functional>
#include <string>

namespace vexil::sample {

struct Color {
    int red, green, blue, alpha = 255;
};
using Picture = std::function<Color(int x, int y)>;

struct PngKind {
    int colorType = 0; // PNG_COLOR_TYPE_...; RGB is taken for grey as its red, for a palette as its index red / 64
    int bitDepth = 8;
    bool isInterlaced = false;
    bool hasTransparentColor = false; // black in RGB and grey, entry 0 of the palette: tRNS
};

Bytes png(int width, int height, const PngKind& kind, const Picture& picture);
// A PNG of that size up to where its pixels would begin.
Bytes pngHeader(std::uint32_t width, std::uint32_t height, bool isInterlaced = false);
// `png` with comments before its pixels, in either form that is compressed, each of which inflates to `size` bytes.
Bytes withComments(const Bytes& png, int comments, std::size_t size);
// A grey JPEG of 16 by 16 in that many scans, up to 65.
Bytes progressiveJpeg(int scans);
// In a format that gdk-pixbuf writes: "jpeg", "tiff", "bmp", "webp".
Bytes file(const std::string& format, int width, int height, const Picture& picture);
// A GIF of 8 by 8, a red frame and a blue one.
Bytes twoFrames();
// `jpeg` with the word of the camera that it was taken in the given EXIF orientation.
Bytes withOrientation(const Bytes& jpeg, std::uint8_t orientation);

// A decoded file, for looking at.
class Decoded {
public:
    explicit Decoded(ByteView image);
    [[nodiscard]] bool isReadable() const { return width > 0; }
    [[nodiscard]] Color at(int x, int y) const;

    int width = 0;
    int height = 0;
    int channels = 0;

private:
    std::size_t stride_ = 0;
    Bytes pixels_;
};

} // namespace vexil::sample
