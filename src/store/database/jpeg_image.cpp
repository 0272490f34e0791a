// SPDX-License-Identifier: Apache-2.0
#include "store/database/jpeg_image.h"

#include <jpeglib.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

// libjpeg reports a failure by a callback that must not return. It jumps back to a setjmp, past the frames in between,
// so everything that needs a destructor lives in an object that is made before setjmp is called.

namespace vexil {

namespace {

constexpr int kChannels = 3;

struct ErrorExit {
    jpeg_error_mgr manager{};
    std::jmp_buf target{};
};

[[noreturn]] void leave(j_common_ptr codec) {
    std::longjmp(reinterpret_cast<ErrorExit*>(codec->err)->target, 1);
}

void keepSilent(j_common_ptr, int) {}

jpeg_error_mgr* quietErrors(ErrorExit& errors) {
    jpeg_std_error(&errors.manager);
    errors.manager.error_exit = leave;
    errors.manager.emit_message = keepSilent;
    return &errors.manager;
}

class Decoder {
public:
    explicit Decoder(ByteView jpeg) : jpeg_(jpeg) {
        codec_.err = quietErrors(errors_);
        jpeg_create_decompress(&codec_);
    }
    ~Decoder() { jpeg_destroy_decompress(&codec_); }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    [[nodiscard]] std::optional<PixelSize> readHeader() {
        if (setjmp(errors_.target) != 0)
            return std::nullopt;
        jpeg_mem_src(&codec_, jpeg_.data(), jpeg_.size());
        jpeg_read_header(&codec_, TRUE);
        return PixelSize{codec_.image_width, codec_.image_height};
    }

    // After readHeader(): the decoder's own scaling by eighths brings the image near `wanted`, and averaging does the
    // rest. Rows of RGB.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>> readScaled(PixelSize wanted) {
        if (jpeg_has_multiple_scans(&codec_) != FALSE)
            return std::nullopt;
        wanted_ = wanted;
        sums_.assign(std::size_t{wanted.width} * wanted.height * kChannels, 0);
        counts_.assign(std::size_t{wanted.width} * wanted.height, 0);
        if (!decode())
            return std::nullopt;
        std::vector<std::uint8_t> pixels(sums_.size());
        for (std::size_t i = 0; i < pixels.size(); ++i)
            pixels[i] = static_cast<std::uint8_t>(sums_[i] / std::max(counts_[i / kChannels], 1U));
        return pixels;
    }

private:
    bool decode() {
        if (setjmp(errors_.target) != 0)
            return false;
        codec_.out_color_space = JCS_RGB;
        codec_.scale_denom = 8;
        codec_.scale_num = eighths();
        codec_.dct_method = JDCT_IFAST;
        jpeg_start_decompress(&codec_);
        row_.resize(std::size_t{codec_.output_width} * kChannels);
        while (codec_.output_scanline < codec_.output_height) {
            const std::size_t y = codec_.output_scanline;
            JSAMPROW rows[] = {row_.data()};
            jpeg_read_scanlines(&codec_, rows, 1);
            addRow(y * wanted_.height / codec_.output_height);
        }
        return true;
    }

    [[nodiscard]] unsigned eighths() const {
        const auto enough = [](std::uint64_t wanted, std::uint64_t available) {
            return static_cast<unsigned>((wanted * 8 + available - 1) / available);
        };
        return std::clamp(
            std::max(enough(wanted_.width, codec_.image_width), enough(wanted_.height, codec_.image_height)), 1U, 8U);
    }

    void addRow(std::size_t y) {
        for (std::size_t x = 0; x < codec_.output_width; ++x) {
            const std::size_t pixel = y * wanted_.width + x * wanted_.width / codec_.output_width;
            for (std::size_t channel = 0; channel < kChannels; ++channel)
                sums_[pixel * kChannels + channel] += row_[x * kChannels + channel];
            ++counts_[pixel];
        }
    }

    ByteView jpeg_;
    ErrorExit errors_;
    jpeg_decompress_struct codec_{};
    PixelSize wanted_;
    std::vector<std::uint8_t> row_;
    std::vector<std::uint32_t> sums_;
    std::vector<std::uint32_t> counts_;
};

class Encoder {
public:
    Encoder() {
        codec_.err = quietErrors(errors_);
        jpeg_create_compress(&codec_);
    }
    ~Encoder() {
        jpeg_destroy_compress(&codec_);
        const std::unique_ptr<unsigned char, void (*)(void*)> freed(out_, &std::free);
    }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;

    // `pixels` are rows of RGB.
    [[nodiscard]] std::optional<Bytes> encode(std::vector<std::uint8_t>& pixels, PixelSize size, int quality) {
        if (setjmp(errors_.target) != 0)
            return std::nullopt;
        jpeg_mem_dest(&codec_, &out_, &outSize_);
        codec_.image_width = size.width;
        codec_.image_height = size.height;
        codec_.input_components = kChannels;
        codec_.in_color_space = JCS_RGB;
        jpeg_set_defaults(&codec_);
        jpeg_set_quality(&codec_, quality, TRUE);
        codec_.optimize_coding = TRUE;
        jpeg_start_compress(&codec_, TRUE);
        while (codec_.next_scanline < codec_.image_height) {
            JSAMPROW rows[] = {pixels.data() + std::size_t{codec_.next_scanline} * size.width * kChannels};
            jpeg_write_scanlines(&codec_, rows, 1);
        }
        jpeg_finish_compress(&codec_);
        return copyOf({out_, outSize_});
    }

private:
    ErrorExit errors_;
    jpeg_compress_struct codec_{};
    unsigned char* out_ = nullptr;
    unsigned long outSize_ = 0;
};

PixelSize thumbnailSize(PixelSize image) {
    const std::uint64_t longer = std::max({image.width, image.height, kThumbnailEdge});
    const auto scaled = [&](std::uint64_t edge) {
        return static_cast<std::uint32_t>(std::max<std::uint64_t>(1, edge * kThumbnailEdge / longer));
    };
    return {scaled(image.width), scaled(image.height)};
}

} // namespace

std::optional<PixelSize> jpegSize(ByteView jpeg) {
    return Decoder(jpeg).readHeader();
}

std::optional<Bytes> jpegThumbnail(ByteView jpeg) {
    Decoder decoder(jpeg);
    const auto size = decoder.readHeader();
    if (!size || std::uint64_t{size->width} * size->height > kMaxThumbnailSource)
        return std::nullopt;
    const PixelSize wanted = thumbnailSize(*size);
    auto pixels = decoder.readScaled(wanted);
    if (!pixels)
        return std::nullopt;
    for (const int quality : {80, 60, 35, 10}) {
        auto thumbnail = Encoder().encode(*pixels, wanted, quality);
        if (thumbnail && thumbnail->size() <= kMaxThumbnailBytes)
            return thumbnail;
    }
    return std::nullopt;
}

} // namespace vexil
