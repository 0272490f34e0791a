// SPDX-License-Identifier: Apache-2.0
// A screenshot from PNG to JPEG, through the codec port and by hand.
#include "bench/harness.h"
#include "platform/linux/pixbuf_image_codec.h"

#include <jpeglib.h>
#include <png.h>

#include <cstddef>
#include <cstdint>
#include <cstdio> // jpeglib.h does not include what it needs
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

namespace vexil::bench {

namespace {

constexpr std::uint32_t kWidth = 3840;
constexpr std::uint32_t kHeight = 2160;
constexpr int kQuality = 85;

// What a screen shows: even areas, lines of something like text, a shaded bar, and a quarter of photograph.
void paintRow(std::uint32_t y, std::vector<png_byte>& row, std::uint32_t& random) {
    for (std::uint32_t x = 0; x < kWidth; ++x) {
        random = random * 1'664'525 + 1'013'904'223;
        png_byte* pixel = &row[std::size_t{3} * x];
        const bool isPhotograph = x > kWidth / 2 && y > kHeight / 2;
        const bool isBar = y < 60;
        const bool isInk =
            y % 24 < 14 && x % 11 < 7 && (x / 11 * 2'654'435'761U + y / 24 * 40'503U + x % 11 * (y % 24)) % 3 == 0;
        const auto shade = static_cast<png_byte>(isBar ? 60 + x / 64 : isInk ? 30 : 245);
        pixel[0] = isPhotograph ? static_cast<png_byte>(x / 16 + random % 32) : shade;
        pixel[1] = isPhotograph ? static_cast<png_byte>(y / 12 + (random >> 8) % 32) : shade;
        pixel[2] = isPhotograph ? static_cast<png_byte>((x + y) / 24 + (random >> 16) % 32) : shade;
    }
}

Bytes screenshot() {
    Bytes file;
    png_structp writer = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(writer);
    png_set_write_fn(
        writer, &file,
        [](png_structp png, png_bytep bytes, std::size_t size) {
            auto* out = static_cast<Bytes*>(png_get_io_ptr(png));
            out->insert(out->end(), bytes, bytes + size);
        },
        [](png_structp) {});
    png_set_IHDR(writer, info, kWidth, kHeight, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(writer, info);
    std::vector<png_byte> row(std::size_t{3} * kWidth);
    std::uint32_t random = 1;
    for (std::uint32_t y = 0; y < kHeight; ++y) {
        paintRow(y, row, random);
        png_write_row(writer, row.data());
    }
    png_write_end(writer, info);
    png_destroy_write_struct(&writer, &info);
    return file;
}

std::vector<png_byte> pixelsOf(const Bytes& file) {
    png_structp reader = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(reader);
    ByteView left = file;
    png_set_read_fn(reader, &left, [](png_structp png, png_bytep to, std::size_t size) {
        auto* from = static_cast<ByteView*>(png_get_io_ptr(png));
        std::memcpy(to, from->data(), size);
        *from = from->subspan(size);
    });
    png_read_info(reader, info);
    const std::size_t bytesPerRow = png_get_rowbytes(reader, info);
    std::vector<png_byte> pixels(bytesPerRow * kHeight);
    std::vector<png_bytep> rows;
    for (std::size_t y = 0; y < kHeight; ++y)
        rows.push_back(pixels.data() + y * bytesPerRow);
    png_read_image(reader, rows.data());
    png_read_end(reader, nullptr);
    png_destroy_read_struct(&reader, &info, nullptr);
    return pixels;
}

unsigned long jpegSizeOf(std::vector<png_byte> pixels) {
    jpeg_compress_struct compressor{};
    jpeg_error_mgr errors{};
    compressor.err = jpeg_std_error(&errors);
    jpeg_create_compress(&compressor);
    unsigned char* output = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&compressor, &output, &size);
    compressor.image_width = kWidth;
    compressor.image_height = kHeight;
    compressor.input_components = 3;
    compressor.in_color_space = JCS_RGB;
    jpeg_set_defaults(&compressor);
    jpeg_set_quality(&compressor, kQuality, TRUE);
    jpeg_start_compress(&compressor, TRUE);
    while (compressor.next_scanline < kHeight) {
        JSAMPROW row = pixels.data() + std::size_t{3} * kWidth * compressor.next_scanline;
        jpeg_write_scanlines(&compressor, &row, 1);
    }
    jpeg_finish_compress(&compressor);
    jpeg_destroy_compress(&compressor);
    const std::unique_ptr<unsigned char, void (*)(void*)> freed(output, &std::free);
    return size;
}

Trial pngToJpeg() {
    const auto image = std::make_shared<const Bytes>(screenshot());
    const auto codec = std::make_shared<PixbufImageCodec>();
    // Both have to do the same work, or the figures say nothing.
    const auto jpeg = codec->toJpeg(*image, kQuality / 100.0);
    if (!jpeg || jpeg->size() != jpegSizeOf(pixelsOf(*image)))
        throw std::runtime_error("the codec's JPEG is not the one that libjpeg makes by hand");
    return {
        .measured = [image, codec] { return millisecondsOf([&] { keep(codec->toJpeg(*image, kQuality / 100.0)); }); },
        .reference = [image] { return millisecondsOf([&] { keep(jpegSizeOf(pixelsOf(*image))); }); }};
}

} // namespace
} // namespace vexil::bench

int main(int argc, char** argv) {
    return vexil::bench::run(
        argc, argv, {{.name = "capture.png-to-jpeg", .unit = "ms", .prepare = vexil::bench::pngToJpeg, .rounds = 9}});
}
