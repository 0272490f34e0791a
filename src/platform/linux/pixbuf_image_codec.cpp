// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/pixbuf_image_codec.h"

#include "platform/linux/image_file_checks.h"
#include "platform/linux/jpeg_writer.h"
#include "platform/linux/pixbuf_loading.h"
#include "platform/linux/png_rows.h"
#include "platform/linux/png_writer.h"
#include "platform/pasteboard.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>

namespace vexil {

namespace {

constexpr std::uint32_t kRowsAtOnce = 16; // of one JPEG block row with halved colour

bool isTooLarge(std::uint64_t width, std::uint64_t height) {
    return width > JpegWriter::kMaxDimension || height > JpegWriter::kMaxDimension ||
           width * height > ImageCodec::kMaxPixels;
}

// Blends RGBA pixels with white, in place.
void flatten(std::uint8_t* pixels, std::size_t count) {
    std::uint8_t least = 0xFF;
    for (std::size_t i = 0; i < count; ++i)
        least = std::min(least, pixels[4 * i + 3]);
    if (least == 0xFF)
        return;
    for (std::uint8_t* pixel = pixels; pixel != pixels + 4 * count; pixel += 4) {
        const unsigned alpha = pixel[3];
        for (int channel = 0; channel < 3; ++channel)
            pixel[channel] = static_cast<std::uint8_t>((pixel[channel] * alpha + 255 * (255 - alpha) + 127) / 255);
    }
}

std::optional<Bytes> jpegOf(PngRows& png, int quality) {
    if (!png.startRows())
        return std::nullopt;
    JpegWriter jpeg;
    const auto layout = png.hasAlpha() ? JpegWriter::Pixels::rgbx : JpegWriter::Pixels::rgb;
    if (!jpeg.start(png.width(), png.height(), layout, quality))
        return std::nullopt;
    Bytes rows(png.bytesPerRow() * kRowsAtOnce);
    for (std::uint32_t done = 0; done < png.height();) {
        const std::uint32_t count = std::min(kRowsAtOnce, png.height() - done);
        if (!png.readRows(rows.data(), count))
            return std::nullopt;
        if (png.hasAlpha())
            flatten(rows.data(), std::size_t{png.width()} * count);
        if (!jpeg.writeRows(rows.data(), png.bytesPerRow(), count))
            return std::nullopt;
        done += count;
    }
    return png.finish() ? jpeg.finish() : std::nullopt;
}

std::optional<Bytes> jpegOf(const GdkPixbuf* image, int quality) {
    const auto width = static_cast<std::uint32_t>(gdk_pixbuf_get_width(image));
    const auto height = static_cast<std::uint32_t>(gdk_pixbuf_get_height(image));
    const bool hasAlpha = gdk_pixbuf_get_has_alpha(image) != FALSE;
    const auto stride = static_cast<std::size_t>(gdk_pixbuf_get_rowstride(image));
    const std::uint8_t* pixels = gdk_pixbuf_read_pixels(image);
    JpegWriter jpeg;
    if (!jpeg.start(width, height, hasAlpha ? JpegWriter::Pixels::rgbx : JpegWriter::Pixels::rgb, quality))
        return std::nullopt;
    if (!hasAlpha)
        return jpeg.writeRows(pixels, stride, height) ? jpeg.finish() : std::nullopt;
    Bytes row(std::size_t{4} * width);
    for (std::uint32_t y = 0; y < height; ++y) {
        std::memcpy(row.data(), pixels + y * stride, row.size());
        flatten(row.data(), width);
        if (!jpeg.writeRows(row.data(), row.size(), 1))
            return std::nullopt;
    }
    return jpeg.finish();
}

std::optional<Bytes> pngOf(PngRows& png) {
    if (!png.startRows())
        return std::nullopt;
    PngWriter writer;
    if (!writer.start(png.width(), png.height(), png.hasAlpha() ? PngWriter::Pixels::rgba : PngWriter::Pixels::rgb))
        return std::nullopt;
    Bytes row(png.bytesPerRow());
    for (std::uint32_t y = 0; y < png.height(); ++y) {
        if (!png.readRows(row.data(), 1) || !writer.writeRows(row.data(), row.size(), 1))
            return std::nullopt;
    }
    return png.finish() ? writer.finish() : std::nullopt;
}

std::optional<Bytes> pngOf(const GdkPixbuf* image) {
    const auto width = static_cast<std::uint32_t>(gdk_pixbuf_get_width(image));
    const auto height = static_cast<std::uint32_t>(gdk_pixbuf_get_height(image));
    const auto stride = static_cast<std::size_t>(gdk_pixbuf_get_rowstride(image));
    const bool hasAlpha = gdk_pixbuf_get_has_alpha(image) != FALSE;
    PngWriter writer;
    if (!writer.start(width, height, hasAlpha ? PngWriter::Pixels::rgba : PngWriter::Pixels::rgb))
        return std::nullopt;
    return writer.writeRows(gdk_pixbuf_read_pixels(image), stride, height) ? writer.finish() : std::nullopt;
}

} // namespace

std::optional<Bytes> PixbufImageCodec::toJpeg(ByteView image, double quality) {
    const int percent = static_cast<int>(std::lround(std::clamp(quality, 0.01, 1.0) * 100));
    if (PngRows png(image); png.open()) {
        const bool isRefused = isTooLarge(png.width(), png.height());
        return isRefused ? std::nullopt : jpegOf(png, percent);
    }
    const PixbufPointer pixbuf = loadPixbuf(image, isTooLarge);
    return pixbuf ? jpegOf(pixbuf.get(), percent) : std::nullopt;
}

std::optional<Bytes> PixbufImageCodec::toPng(ByteView image) {
    if (PngRows png(image); png.open())
        return isTooLarge(png.width(), png.height()) ? std::nullopt : pngOf(png);
    const PixbufPointer pixbuf = loadPixbuf(image, isTooLarge);
    return pixbuf ? pngOf(pixbuf.get()) : std::nullopt;
}

std::optional<std::string> PixbufImageCodec::typeOf(ByteView image) {
    if (PngRows png(image); png.open())
        return isTooLarge(png.width(), png.height()) ? std::nullopt : std::optional<std::string>(pasteboard_type::kPng);
    const char* const format = readableFormat(image);
    if (format == nullptr)
        return std::nullopt;
    if (std::string_view(format) == "tiff")
        return pasteboard_type::kTiff;
    if (std::string_view(format) != "jpeg")
        return pasteboard_type::kAnyImage;
    const bool isRefused = image_file::outlineOfJpeg(image).pixels > kMaxPixels;
    return isRefused ? std::nullopt : std::optional<std::string>(pasteboard_type::kJpeg);
}

} // namespace vexil
