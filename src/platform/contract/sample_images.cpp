// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/sample_images.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <png.h>
#include <zlib.h>

#include <array>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <vector>

namespace vexil::sample {

namespace {

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};
using Pixbuf = std::unique_ptr<GdkPixbuf, Unref>;

void append(png_structp writer, png_bytep bytes, std::size_t size) {
    auto* file = static_cast<Bytes*>(png_get_io_ptr(writer));
    file->insert(file->end(), bytes, bytes + size);
}

void ignoreFlush(png_structp) {}

void setPalette(png_structp writer, png_infop info, bool hasTransparentColor) {
    png_color palette[4] = {{0, 0, 0}, {255, 0, 0}, {0, 255, 0}, {0, 0, 255}};
    png_set_PLTE(writer, info, palette, 4);
    const png_byte alpha[1] = {0};
    if (hasTransparentColor)
        png_set_tRNS(writer, info, alpha, 1, nullptr);
}

// One sample of `depth` bits, of a value from 0 to 255, at the end of the row.
void appendSample(std::vector<png_byte>& row, int& bit, int depth, int value) {
    if (depth == 16) {
        row.push_back(static_cast<png_byte>(value));
        row.push_back(static_cast<png_byte>(value));
        return;
    }
    if (bit == 0)
        row.push_back(0);
    row.back() = static_cast<png_byte>(row.back() | (value >> (8 - depth)) << (8 - depth - bit));
    bit = (bit + depth) % 8;
}

std::vector<png_byte> rowOf(int y, int width, const PngKind& kind, const Picture& picture) {
    std::vector<png_byte> row;
    int bit = 0;
    for (int x = 0; x < width; ++x) {
        const Color color = picture(x, y);
        if (kind.colorType == PNG_COLOR_TYPE_PALETTE) {
            appendSample(row, bit, kind.bitDepth, (color.red / 64) << (8 - kind.bitDepth));
            continue;
        }
        appendSample(row, bit, kind.bitDepth, color.red);
        if ((kind.colorType & PNG_COLOR_MASK_COLOR) != 0) {
            appendSample(row, bit, kind.bitDepth, color.green);
            appendSample(row, bit, kind.bitDepth, color.blue);
        }
        if ((kind.colorType & PNG_COLOR_MASK_ALPHA) != 0)
            appendSample(row, bit, kind.bitDepth, color.alpha);
    }
    return row;
}

Bytes writePng(std::uint32_t width, std::uint32_t height, const PngKind& kind, const Picture* picture) {
    Bytes file;
    png_structp writer = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(writer);
    png_set_write_fn(writer, &file, append, ignoreFlush);
    png_set_user_limits(writer, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_IHDR(writer, info, width, height, kind.bitDepth, kind.colorType,
                 kind.isInterlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_color_16 black{};
    if (kind.colorType == PNG_COLOR_TYPE_PALETTE)
        setPalette(writer, info, kind.hasTransparentColor);
    else if (kind.hasTransparentColor)
        png_set_tRNS(writer, info, nullptr, 0, &black);
    png_write_info(writer, info);
    if (picture != nullptr) {
        std::vector<std::vector<png_byte>> rows;
        std::vector<png_bytep> pointers;
        for (int y = 0; y < static_cast<int>(height); ++y)
            rows.push_back(rowOf(y, static_cast<int>(width), kind, *picture));
        for (auto& row : rows)
            pointers.push_back(row.data());
        png_write_image(writer, pointers.data());
        png_write_end(writer, info);
    }
    png_destroy_write_struct(&writer, &info);
    return file;
}

std::string deflated(const std::string& bytes) {
    uLongf size = compressBound(bytes.size());
    std::string packed(size, '\0');
    EXPECT_EQ(compress(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(bytes.data()),
                       bytes.size()),
              Z_OK);
    packed.resize(size);
    return packed;
}

void appendChunk(Bytes& file, const std::string& name, const std::string& content) {
    const auto appendNumber = [&file](std::uint32_t number) {
        for (int shift = 24; shift >= 0; shift -= 8)
            file.push_back(static_cast<std::uint8_t>(number >> shift));
    };
    const std::string checked = name + content;
    appendNumber(static_cast<std::uint32_t>(content.size()));
    const ByteView bytes = bytesOf(checked);
    file.insert(file.end(), bytes.begin(), bytes.end());
    appendNumber(static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(checked.data()), static_cast<uInt>(checked.size()))));
}

} // namespace

Bytes png(int width, int height, const PngKind& kind, const Picture& picture) {
    return writePng(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height), kind, &picture);
}

Bytes pngHeader(std::uint32_t width, std::uint32_t height, bool isInterlaced) {
    Bytes file =
        writePng(width, height, {.colorType = PNG_COLOR_TYPE_RGB_ALPHA, .isInterlaced = isInterlaced}, nullptr);
    const std::uint8_t headOfPixels[] = {0, 0, 1, 0, 'I', 'D', 'A', 'T'}; // of 256 bytes, as announced
    file.insert(file.end(), std::begin(headOfPixels), std::end(headOfPixels));
    return file;
}

Bytes withComments(const Bytes& png, int comments, std::size_t size) {
    const std::string text = deflated(std::string(size, 'x'));
    const std::string keyword("Comment\0", 8);
    const std::string latin = keyword + std::string(1, '\0') + text;
    const std::string international = keyword + std::string("\1\0\0\0", 4) + text;
    constexpr std::ptrdiff_t kEndOfHeader = 33; // the signature and IHDR
    Bytes file(png.begin(), png.begin() + kEndOfHeader);
    for (int i = 0; i < comments; ++i)
        appendChunk(file, i % 2 == 0 ? "zTXt" : "iTXt", i % 2 == 0 ? latin : international);
    file.insert(file.end(), png.begin() + kEndOfHeader, png.end());
    return file;
}

Bytes progressiveJpeg(int scans) {
    // The mean of the blocks in one scan or two, every other coefficient in a scan of its own, the rest in the last.
    std::vector<jpeg_scan_info> script;
    const bool isMeanRefined = scans > 64;
    script.push_back({1, {0}, 0, 0, 0, isMeanRefined ? 1 : 0});
    if (isMeanRefined)
        script.push_back({1, {0}, 0, 0, 1, 0});
    for (int coefficient = 1; static_cast<int>(script.size()) < scans; ++coefficient) {
        const bool isLast = static_cast<int>(script.size()) + 1 == scans;
        script.push_back({1, {0}, coefficient, isLast ? 63 : coefficient, 0, 0});
    }
    jpeg_error_mgr errors{};
    jpeg_compress_struct writer{};
    writer.err = jpeg_std_error(&errors);
    jpeg_create_compress(&writer);
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&writer, &bytes, &size);
    writer.image_width = writer.image_height = 16;
    writer.input_components = 1;
    writer.in_color_space = JCS_GRAYSCALE;
    jpeg_set_defaults(&writer);
    writer.scan_info = script.data();
    writer.num_scans = static_cast<int>(script.size());
    jpeg_start_compress(&writer, TRUE);
    std::array<JSAMPLE, 16> row{};
    JSAMPROW rows[] = {row.data()};
    for (std::size_t y = 0; y < row.size(); ++y)
        jpeg_write_scanlines(&writer, rows, 1);
    jpeg_finish_compress(&writer);
    jpeg_destroy_compress(&writer);
    const std::unique_ptr<unsigned char, decltype(&std::free)> owned(bytes, &std::free);
    return copyOf({bytes, size});
}

Bytes file(const std::string& format, int width, int height, const Picture& picture) {
    const Pixbuf image(gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, width, height));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const Color color = picture(x, y);
            guchar* pixel = gdk_pixbuf_get_pixels(image.get()) + y * gdk_pixbuf_get_rowstride(image.get()) + 4 * x;
            pixel[0] = static_cast<guchar>(color.red);
            pixel[1] = static_cast<guchar>(color.green);
            pixel[2] = static_cast<guchar>(color.blue);
            pixel[3] = static_cast<guchar>(color.alpha);
        }
    }
    gchar* bytes = nullptr;
    gsize size = 0;
    EXPECT_TRUE(gdk_pixbuf_save_to_buffer(image.get(), &bytes, &size, format.c_str(), nullptr, nullptr)) << format;
    const std::unique_ptr<gchar, decltype(&g_free)> owned(bytes, &g_free);
    return copyOf({reinterpret_cast<const std::uint8_t*>(bytes), size});
}

Bytes twoFrames() {
    return {0x47, 0x49, 0x46, 0x38, 0x39, 0x61, 0x08, 0x00, 0x08, 0x00, 0xf0, 0x00, 0x00, 0xff, 0x00, 0x00, 0x00,
            0x00, 0x00, 0x21, 0xf9, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x21, 0xff, 0x0b, 0x4e, 0x45, 0x54, 0x53,
            0x43, 0x41, 0x50, 0x45, 0x32, 0x2e, 0x30, 0x03, 0x01, 0x00, 0x00, 0x00, 0x2c, 0x00, 0x00, 0x00, 0x00,
            0x08, 0x00, 0x08, 0x00, 0x00, 0x02, 0x07, 0x84, 0x8f, 0xa9, 0xcb, 0xed, 0x5d, 0x00, 0x00, 0x21, 0xf9,
            0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x2c, 0x00, 0x00, 0x00, 0x00, 0x08, 0x00, 0x08, 0x00, 0x80, 0x00,
            0x00, 0xff, 0x00, 0x00, 0x00, 0x02, 0x07, 0x84, 0x8f, 0xa9, 0xcb, 0xed, 0x5d, 0x00, 0x00, 0x3b};
}

Bytes withOrientation(const Bytes& jpeg, std::uint8_t orientation) {
    const std::uint8_t segment[] = {0xFF, 0xE1, 0, 34, 'E', 'x', 'i', 'f', 0, 0, // APP1
                                    'M',  'M',  0, 42, 0,   0,   0,   8,         // TIFF header
                                    0,    1,                                     // one entry:
                                    0x01, 0x12, 0, 3,  0,   0,   0,   1,   0, orientation,
                                    0,    0,           // orientation, one short
                                    0,    0,    0, 0}; // no further directory
    Bytes tagged(jpeg.begin(), jpeg.begin() + 2);
    tagged.insert(tagged.end(), std::begin(segment), std::end(segment));
    tagged.insert(tagged.end(), jpeg.begin() + 2, jpeg.end());
    return tagged;
}

Decoded::Decoded(ByteView image) {
    const std::unique_ptr<GdkPixbufLoader, Unref> loader(gdk_pixbuf_loader_new());
    const bool isFed = gdk_pixbuf_loader_write(loader.get(), image.data(), image.size(), nullptr) != FALSE;
    const bool isWhole = gdk_pixbuf_loader_close(loader.get(), nullptr) != FALSE;
    const GdkPixbuf* pixbuf = gdk_pixbuf_loader_get_pixbuf(loader.get());
    if (!isFed || !isWhole || pixbuf == nullptr)
        return;
    width = gdk_pixbuf_get_width(pixbuf);
    height = gdk_pixbuf_get_height(pixbuf);
    channels = gdk_pixbuf_get_n_channels(pixbuf);
    stride_ = static_cast<std::size_t>(gdk_pixbuf_get_rowstride(pixbuf));
    pixels_ = copyOf({gdk_pixbuf_read_pixels(pixbuf), gdk_pixbuf_get_byte_length(pixbuf)});
}

Color Decoded::at(int x, int y) const {
    const std::uint8_t* pixel =
        pixels_.data() + static_cast<std::size_t>(y) * stride_ + static_cast<std::size_t>(x * channels);
    return {pixel[0], pixel[1], pixel[2], channels == 4 ? pixel[3] : 255};
}

} // namespace vexil::sample
