// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/image_file_checks.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string_view>

namespace vexil::image_file {

namespace {

// Reads numbers at an offset; zero beyond the end.
class Fields {
public:
    explicit Fields(ByteView file) : file_(file) {}

    [[nodiscard]] std::size_t size() const { return file_.size(); }
    [[nodiscard]] std::uint32_t byte(std::size_t at) const { return at < file_.size() ? file_[at] : 0; }
    [[nodiscard]] std::uint32_t big16(std::size_t at) const { return byte(at) << 8 | byte(at + 1); }
    [[nodiscard]] std::uint32_t little16(std::size_t at) const { return byte(at) | byte(at + 1) << 8; }
    [[nodiscard]] std::uint32_t little24(std::size_t at) const { return little16(at) | byte(at + 2) << 16; }
    [[nodiscard]] std::uint32_t little32(std::size_t at) const { return little16(at) | little16(at + 2) << 16; }
    [[nodiscard]] bool holds(std::size_t at, std::string_view text) const {
        return at <= file_.size() && textOf(file_.subspan(at)).starts_with(text);
    }

private:
    ByteView file_;
};

// Past the entropy-coded bytes at `at`, where FF is followed by 00, another FF or a restart marker.
std::size_t afterScan(const Fields& file, std::size_t at) {
    for (; at + 1 < file.size(); ++at) {
        const std::uint32_t next = file.byte(at + 1);
        const bool isInScan = next == 0x00 || next == 0xFF || (next >= 0xD0 && next <= 0xD7);
        if (file.byte(at) == 0xFF && !isInScan)
            return at;
    }
    return file.size();
}

// Past a chain of GIF's sub-blocks; beyond the end of the file where that is cut off.
std::size_t afterSubBlocks(const Fields& file, std::size_t at) {
    while (at < file.size() && file.byte(at) != 0)
        at += 1 + file.byte(at);
    return at + 1;
}

// The segment that tells of the size of a JPEG; the three left out are tables and an extension.
bool isFrameOfJpeg(std::uint32_t marker) {
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

std::size_t colorTableBytes(std::uint32_t flags) {
    return (flags & 0x80) != 0 ? std::size_t{3} << ((flags & 7) + 1) : 0;
}

} // namespace

JpegOutline outlineOfJpeg(ByteView bytes) {
    const Fields file(bytes);
    JpegOutline outline;
    std::size_t at = 2; // after the start of the image
    while (at + 1 < file.size()) {
        const std::uint32_t marker = file.byte(at + 1);
        if (file.byte(at) != 0xFF || marker == 0xFF) {
            ++at; // fill bytes, and rubbish that decoders skip
            continue;
        }
        if (marker == 0xD9) {
            outline.isWhole = true;
            return outline;
        }
        if (isFrameOfJpeg(marker))
            outline.pixels = std::max(outline.pixels, std::uint64_t{file.big16(at + 5)} * file.big16(at + 7));
        const bool hasLength = marker != 0x00 && marker != 0x01 && !(marker >= 0xD0 && marker <= 0xD8);
        at += 2 + (hasLength ? std::max(file.big16(at + 2), 2U) : 0);
        if (marker == 0xDA) {
            ++outline.scans;
            at = afterScan(file, at);
        }
    }
    return outline;
}

bool isWholeBmp(ByteView bytes) {
    constexpr std::uint32_t kBitmapCoreHeader = 12;
    const Fields file(bytes);
    if (file.size() < 30)
        return false;
    const bool isCore = file.little32(14) == kBitmapCoreHeader;
    const std::uint32_t compression = isCore ? 0 : file.little32(30);
    if (compression == 1 || compression == 2) // run lengths: only the file itself says how long it is
        return file.size() >= file.little32(2);
    const std::uint64_t width = isCore ? file.little16(18) : file.little32(18);
    const auto signedHeight = static_cast<std::int32_t>(isCore ? file.little16(20) : file.little32(22));
    const auto height = static_cast<std::uint64_t>(std::llabs(signedHeight)); // negative: from the top down
    const std::uint64_t bitsPerPixel = isCore ? file.little16(24) : file.little16(28);
    const std::uint64_t bytesPerRow = (width * bitsPerPixel + 31) / 32 * 4;
    const std::uint64_t room = file.size() - std::min<std::uint64_t>(file.size(), file.little32(10));
    return height == 0 || bytesPerRow <= room / height;
}

bool isWholeGif(ByteView bytes) {
    constexpr std::uint32_t kExtension = 0x21;
    constexpr std::uint32_t kImage = 0x2C;
    const Fields file(bytes);
    std::size_t at = 13 + colorTableBytes(file.byte(10));
    while (at < file.size() && file.byte(at) == kExtension)
        at = afterSubBlocks(file, at + 2);
    if (at >= file.size() || file.byte(at) != kImage)
        return false;
    return afterSubBlocks(file, at + 11 + colorTableBytes(file.byte(at + 9))) <= file.size();
}

bool isWholeWebp(ByteView bytes) {
    return bytes.size() >= 12 && std::uint64_t{Fields(bytes).little32(4)} + 8 <= bytes.size();
}

std::optional<Size> webpSize(ByteView bytes) {
    const Fields file(bytes);
    if (file.holds(12, "VP8X"))
        return Size{file.little24(24) + 1, file.little24(27) + 1};
    if (file.holds(12, "VP8L") && file.byte(20) == 0x2F)
        return Size{(file.little32(21) & 0x3FFF) + 1, (file.little32(21) >> 14 & 0x3FFF) + 1};
    if (file.holds(12, "VP8 ") && file.holds(23, "\x9D\x01\x2A"))
        return Size{file.little16(26) & 0x3FFF, file.little16(28) & 0x3FFF};
    return std::nullopt;
}

} // namespace vexil::image_file
