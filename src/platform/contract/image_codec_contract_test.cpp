// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/sample_images.h"
#include "platform/linux/pixbuf_image_codec.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#if defined(__SANITIZE_THREAD__)
// GLib's own locks are built without the sanitizer, which takes what they guard for races.
extern "C" const char* __tsan_default_options() {
    return "ignore_noninstrumented_modules=1";
}
#endif

namespace vexil {

namespace sample {

void PrintTo(const Color& color, std::ostream* out) {
    *out << "(" << color.red << ", " << color.green << ", " << color.blue << ")";
}

} // namespace sample

namespace {

using sample::Color;
using sample::Decoded;

constexpr Color kRed{255, 0, 0};
constexpr Color kBlue{0, 0, 255};
constexpr Color kWhite{255, 255, 255};
constexpr Color kClear{0, 0, 0, 0};

// JPEG keeps colours about.
MATCHER_P(IsAbout, color, "") {
    const auto near = [](int left, int right) { return std::abs(left - right) <= 12; };
    return near(arg.red, color.red) && near(arg.green, color.green) && near(arg.blue, color.blue);
}

// Left half one colour, right half the other.
sample::Picture halves(int width, Color left, Color right) {
    return [=](int x, int) { return x < width / 2 ? left : right; };
}

sample::Picture all(Color color) {
    return [=](int, int) { return color; };
}

bool canRead(const char* format) {
    GSList* formats = gdk_pixbuf_get_formats();
    bool isFound = false;
    for (GSList* entry = formats; entry != nullptr; entry = entry->next) {
        gchar* name = gdk_pixbuf_format_get_name(static_cast<GdkPixbufFormat*>(entry->data));
        isFound = isFound || std::string(name) == format;
        g_free(name);
    }
    g_slist_free(formats);
    return isFound;
}

std::size_t megabytesOf(const std::string& line) {
    std::ifstream status("/proc/self/status");
    std::string word;
    std::size_t kilobytes = 0;
    while (status >> word && word != line) {
    }
    status >> kilobytes;
    return kilobytes / 1024;
}

// The most memory that this process has ever had mapped, and had resident, in MB.
std::size_t peakMegabytes() {
    return megabytesOf("VmPeak:");
}
std::size_t peakResidentMegabytes() {
    return megabytesOf("VmHWM:");
}

class ImageCodecContract : public testing::Test {
protected:
    // Every call is held to silence.
    std::optional<Bytes> toJpeg(ByteView image, double quality = 0.85) {
        testing::internal::CaptureStderr();
        auto jpeg = codec.toJpeg(image, quality);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        return jpeg;
    }

    Decoded converted(ByteView image) {
        const auto jpeg = toJpeg(image);
        EXPECT_TRUE(jpeg.has_value());
        EXPECT_TRUE(!jpeg || textOf(*jpeg).starts_with("\xFF\xD8\xFF"));
        return Decoded(jpeg.value_or(Bytes()));
    }

    PixbufImageCodec codec;
};

} // namespace

TEST_F(ImageCodecContract, ReadsEveryKindOfPng) {
    for (const bool isInterlaced : {false, true}) {
        for (const auto& [colorType, depths] : std::vector<std::pair<int, std::vector<int>>>{
                 {PNG_COLOR_TYPE_RGB, {8, 16}},
                 {PNG_COLOR_TYPE_RGB_ALPHA, {8, 16}},
                 {PNG_COLOR_TYPE_PALETTE, {2, 4, 8}},
             }) {
            for (const int depth : depths) {
                SCOPED_TRACE(testing::Message() << "type " << colorType << ", " << depth << " bits");
                // In the palette the entries 1 and 3 are red and blue.
                const Color left = colorType == PNG_COLOR_TYPE_PALETTE ? Color{64, 0, 0} : kRed;
                const Color right = colorType == PNG_COLOR_TYPE_PALETTE ? Color{192, 0, 0} : kBlue;
                const Decoded image = converted(
                    sample::png(64, 40, {.colorType = colorType, .bitDepth = depth, .isInterlaced = isInterlaced},
                                halves(64, left, right)));
                ASSERT_EQ(image.width, 64);
                ASSERT_EQ(image.height, 40);
                EXPECT_THAT(image.at(8, 20), IsAbout(kRed));
                EXPECT_THAT(image.at(56, 39), IsAbout(kBlue));
            }
        }
    }
}

TEST_F(ImageCodecContract, ReadsGreyOfEveryDepth) {
    for (const bool isInterlaced : {false, true}) {
        for (const auto& [colorType, depth] : std::vector<std::pair<int, int>>{{PNG_COLOR_TYPE_GRAY, 1},
                                                                               {PNG_COLOR_TYPE_GRAY, 2},
                                                                               {PNG_COLOR_TYPE_GRAY, 4},
                                                                               {PNG_COLOR_TYPE_GRAY, 8},
                                                                               {PNG_COLOR_TYPE_GRAY, 16},
                                                                               {PNG_COLOR_TYPE_GRAY_ALPHA, 8},
                                                                               {PNG_COLOR_TYPE_GRAY_ALPHA, 16}}) {
            SCOPED_TRACE(testing::Message() << "type " << colorType << ", " << depth << " bits");
            const Decoded image =
                converted(sample::png(33, 17, {.colorType = colorType, .bitDepth = depth, .isInterlaced = isInterlaced},
                                      halves(33, {0, 0, 0}, kWhite)));
            ASSERT_EQ(image.width, 33);
            EXPECT_THAT(image.at(4, 8), IsAbout(Color{0, 0, 0}));
            EXPECT_THAT(image.at(30, 16), IsAbout(kWhite));
        }
    }
}

TEST_F(ImageCodecContract, TransparencyBecomesWhite) {
    for (const bool isInterlaced : {false, true}) {
        const Decoded rgba =
            converted(sample::png(64, 32, {.colorType = PNG_COLOR_TYPE_RGB_ALPHA, .isInterlaced = isInterlaced},
                                  halves(64, kClear, {0, 0, 255, 128})));
        EXPECT_THAT(rgba.at(8, 16), IsAbout(kWhite));
        EXPECT_THAT(rgba.at(56, 16), IsAbout(Color{127, 127, 255}));
        const Decoded grey =
            converted(sample::png(64, 32, {.colorType = PNG_COLOR_TYPE_GRAY_ALPHA, .isInterlaced = isInterlaced},
                                  halves(64, kClear, {0, 0, 0, 255})));
        EXPECT_THAT(grey.at(8, 16), IsAbout(kWhite));
        EXPECT_THAT(grey.at(56, 16), IsAbout(Color{0, 0, 0}));
        for (const int colorType : {PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_PALETTE}) {
            const Decoded keyed = converted(
                sample::png(64, 32, {.colorType = colorType, .isInterlaced = isInterlaced, .hasTransparentColor = true},
                            halves(64, {0, 0, 0}, {64, 64, 64})));
            EXPECT_THAT(keyed.at(8, 16), IsAbout(kWhite)) << colorType;
            EXPECT_THAT(keyed.at(56, 16), IsAbout(colorType == PNG_COLOR_TYPE_PALETTE ? kRed : Color{64, 64, 64}))
                << colorType;
        }
    }
    EXPECT_THAT(converted(sample::file("tiff", 32, 32, all(kClear))).at(16, 16), IsAbout(kWhite));
}

TEST_F(ImageCodecContract, ReadsTheOtherFormats) {
    for (const char* format : {"tiff", "jpeg", "bmp", "webp"}) {
        if (!canRead(format)) {
            std::cout << "skipped: no loader for " << format << " is installed (package webp-pixbuf-loader)\n";
            continue;
        }
        const Decoded image = converted(sample::file(format, 64, 40, halves(64, kRed, kBlue)));
        ASSERT_EQ(image.width, 64) << format;
        ASSERT_EQ(image.height, 40) << format;
        EXPECT_THAT(image.at(8, 20), IsAbout(kRed)) << format;
        EXPECT_THAT(image.at(56, 20), IsAbout(kBlue)) << format;
    }
}

TEST_F(ImageCodecContract, OfAnAnimationItTakesTheFirstFrame) {
    const Decoded image = converted(sample::twoFrames());
    ASSERT_EQ(image.width, 8);
    EXPECT_THAT(image.at(4, 4), IsAbout(kRed));
}

TEST_F(ImageCodecContract, TurnsPhotographsUpright) {
    const Bytes lying = sample::file("jpeg", 64, 32, halves(64, kRed, kBlue));
    const Decoded upright = converted(sample::withOrientation(lying, 6)); // a quarter turn clockwise
    ASSERT_EQ(upright.width, 32);
    ASSERT_EQ(upright.height, 64);
    EXPECT_THAT(upright.at(16, 8), IsAbout(kRed));
    EXPECT_THAT(upright.at(16, 56), IsAbout(kBlue));
    const Decoded mirrored = converted(sample::withOrientation(lying, 2));
    EXPECT_THAT(mirrored.at(8, 16), IsAbout(kBlue));
}

TEST_F(ImageCodecContract, QualityDecidesTheSize) {
    const Bytes image = sample::png(200, 200, {.colorType = PNG_COLOR_TYPE_RGB}, [](int x, int y) {
        return Color{x * 7 % 256, y * 13 % 256, x * y % 256};
    });
    const auto low = toJpeg(image, 0.3);
    const auto usual = toJpeg(image, 0.85);
    const auto high = toJpeg(image, 1.0);
    ASSERT_TRUE(low && usual && high);
    EXPECT_LT(low->size(), usual->size());
    EXPECT_LT(usual->size(), high->size());
    EXPECT_TRUE(toJpeg(image, 0).has_value());
    EXPECT_TRUE(toJpeg(image, 7).has_value());
}

TEST_F(ImageCodecContract, TheWidestAndHighestAreTakenAndNoneBeyond) {
    for (const bool isInterlaced : {false, true}) {
        const sample::PngKind kind{.colorType = PNG_COLOR_TYPE_RGB, .isInterlaced = isInterlaced};
        EXPECT_EQ(converted(sample::png(65'500, 1, kind, all(kRed))).width, 65'500);
        EXPECT_EQ(converted(sample::png(1, 65'500, kind, all(kRed))).height, 65'500);
        EXPECT_EQ(toJpeg(sample::png(65'501, 1, kind, all(kRed))), std::nullopt);
        EXPECT_EQ(toJpeg(sample::png(1, 65'501, kind, all(kRed))), std::nullopt);
    }
}

TEST_F(ImageCodecContract, AHeaderThatLiesAboutTheSizeCostsNoMemory) {
    const auto patched = [](Bytes image, std::size_t offset, std::initializer_list<std::uint8_t> bytes) {
        std::copy(bytes.begin(), bytes.end(), image.begin() + static_cast<std::ptrdiff_t>(offset));
        return image;
    };
    const auto offsetOf = [](const Bytes& image, std::string_view bytes) {
        const std::size_t found = textOf(image).find(bytes);
        EXPECT_NE(found, std::string_view::npos);
        return found;
    };
    toJpeg(sample::file("tiff", 16, 16, all(kRed))); // loads what is loaded once
    const Bytes bmp = sample::file("bmp", 16, 16, all(kRed));
    const Bytes jpeg = sample::file("jpeg", 16, 16, all(kRed));
    Bytes tiff = sample::file("tiff", 16, 16, all(kRed));
    const auto tag = [](int number) { return std::string{static_cast<char>(number), 1}; };
    tiff = patched(tiff, offsetOf(tiff, tag(0)) + 8, {0xFF, 0xFF}); // ImageWidth, 256, as a little-endian SHORT
    tiff = patched(tiff, offsetOf(tiff, tag(1)) + 8, {0xFF, 0xFF}); // ImageLength
    std::vector<Bytes> liars = {sample::pngHeader(65'000, 65'000),
                                sample::pngHeader(0x7FFF'FFFF, 0x7FFF'FFFF),
                                patched(sample::twoFrames(), 6, {0xFF, 0xFF, 0xFF, 0xFF}),
                                patched(bmp, 18, {0, 0xF0, 0, 0, 0, 0xF0, 0, 0}),
                                patched(jpeg, offsetOf(jpeg, "\xFF\xC0") + 5, {0xFF, 0xFF, 0xFF, 0xFF}),
                                tiff};
    if (canRead("webp")) {
        const Bytes webp = sample::file("webp", 16, 16, all({255, 0, 0}));
        const std::size_t start = offsetOf(webp, "\x9D\x01\x2A");
        liars.push_back(patched(webp, start + 3, {0xFF, 0x3F, 0xFF, 0x3F}));
    }
    for (std::size_t i = 0; i < liars.size(); ++i) {
        const std::size_t before = peakMegabytes();
        EXPECT_EQ(toJpeg(liars[i]), std::nullopt) << i;
        EXPECT_LT(peakMegabytes() - before, 64U) << i;
    }
}

TEST_F(ImageCodecContract, WhatAPngHoldsBesideItsPixelsCostsNoMemory) {
    constexpr std::size_t kComment = 7'900'000; // libpng itself refuses more than 8,000,000 in one
    const Bytes small = sample::png(64, 40, {.colorType = PNG_COLOR_TYPE_RGB}, halves(64, kRed, kBlue));
    const Bytes commented = sample::withComments(small, 30, kComment);
    const std::size_t before = peakMegabytes();
    const auto jpeg = toJpeg(commented);
    EXPECT_LT(peakMegabytes() - before, 64U);
    ASSERT_TRUE(jpeg.has_value());
    EXPECT_THAT(Decoded(*jpeg).at(8, 20), IsAbout(kRed));
}

TEST_F(ImageCodecContract, AnInterlacedHeaderWithoutRowsCostsNoMemory) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer touches what calloc yields";
#endif
    const Bytes header = sample::pngHeader(11'000, 11'000, true);
    const std::size_t before = peakResidentMegabytes();
    EXPECT_EQ(toJpeg(header), std::nullopt);
    EXPECT_LT(peakResidentMegabytes() - before, 64U);
}

TEST_F(ImageCodecContract, AJpegOfMoreScansThanAnyoneWritesIsRefused) {
    for (const int scans : {2, 10, 64})
        EXPECT_EQ(converted(sample::progressiveJpeg(scans)).width, 16) << scans;
    EXPECT_EQ(toJpeg(sample::progressiveJpeg(65)), std::nullopt);
}

TEST_F(ImageCodecContract, ALargeJpegIsAllowedFewerScans) {
    const auto enlarged = [](Bytes jpeg, std::uint8_t size) {
        const std::size_t frame = textOf(jpeg).find("\xFF\xC2");
        EXPECT_NE(frame, std::string_view::npos);
        jpeg[frame + 5] = jpeg[frame + 7] = size; // the upper byte of the height and the width
        return jpeg;
    };
    EXPECT_EQ(converted(enlarged(sample::progressiveJpeg(10), 4)).width, 4 * 256 + 16);
    EXPECT_EQ(toJpeg(enlarged(sample::progressiveJpeg(64), 31)), std::nullopt); // 4 thousand million pixels to draw
}

TEST_F(ImageCodecContract, AFileThatIsCutOffAnywhereIsNone) {
    const auto noisy = [](int x, int y) { return Color{(x * 31 + y * 57) % 256, x * y % 256, (x ^ y) % 256}; };
    std::vector<std::pair<const char*, Bytes>> files = {
        {"png", sample::png(40, 40, {.colorType = PNG_COLOR_TYPE_RGB_ALPHA}, noisy)},
        {"interlaced png", sample::png(40, 40, {.colorType = PNG_COLOR_TYPE_RGB, .isInterlaced = true}, noisy)},
        {"tiff", sample::file("tiff", 24, 24, noisy)},
        {"jpeg", sample::file("jpeg", 40, 40, noisy)},
        {"bmp", sample::file("bmp", 24, 24, noisy)},
        {"gif", sample::twoFrames()},
    };
    if (canRead("webp"))
        files.emplace_back("webp", sample::file("webp", 40, 40, noisy));
    for (const auto& [name, file] : files) {
        for (std::size_t length = 0; length + 8 < file.size(); length += 1 + file.size() / 150)
            EXPECT_EQ(toJpeg(ByteView(file).first(length)), std::nullopt)
                << name << " " << length << "/" << file.size();
        EXPECT_TRUE(toJpeg(file).has_value()) << name;
    }
}

TEST_F(ImageCodecContract, DamageAnywhereIsSurvived) {
    const auto noisy = [](int x, int y) { return Color{(x * 31 + y * 57) % 256, x * y % 256, (x ^ y) % 256}; };
    std::vector<Bytes> files = {sample::png(24, 24, {.colorType = PNG_COLOR_TYPE_RGB}, noisy),
                                sample::file("tiff", 24, 24, noisy), sample::file("jpeg", 24, 24, noisy),
                                sample::file("bmp", 24, 24, noisy), sample::twoFrames()};
    if (canRead("webp"))
        files.push_back(sample::file("webp", 24, 24, noisy));
    int images = 0;
    for (const Bytes& file : files) {
        for (std::size_t at = 4; at < file.size(); at += 1 + file.size() / 200) {
            Bytes damaged = file;
            damaged[at] = static_cast<std::uint8_t>(damaged[at] ^ 0x5A);
            const auto jpeg = toJpeg(damaged);
            images += jpeg ? 1 : 0;
            EXPECT_TRUE(!jpeg || Decoded(*jpeg).isReadable());
        }
    }
    EXPECT_GT(images, 0);
}

TEST_F(ImageCodecContract, WhatIsNoImageIsNone) {
    EXPECT_EQ(toJpeg({}), std::nullopt);
    EXPECT_EQ(toJpeg(bytesOf("GIF8")), std::nullopt);
    EXPECT_EQ(toJpeg(bytesOf("some text that somebody copied")), std::nullopt);
    EXPECT_EQ(toJpeg(bytesOf("<svg xmlns='http://www.w3.org/2000/svg' width='8' height='8'/>")), std::nullopt);
}

TEST_F(ImageCodecContract, ServesSeveralThreadsAtOnce) {
    const Bytes images[] = {sample::png(200, 100, {.colorType = PNG_COLOR_TYPE_RGB_ALPHA}, halves(200, kRed, kBlue)),
                            sample::file("tiff", 200, 100, halves(200, kRed, kBlue)),
                            sample::file("jpeg", 200, 100, halves(200, kRed, kBlue)),
                            sample::file("bmp", 200, 100, halves(200, kRed, kBlue))};
    std::vector<std::thread> threads;
    std::atomic<int> right = 0;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int round = 0; round < 20; ++round) {
                const auto jpeg = codec.toJpeg(images[(thread + round) % 4], 0.85);
                right += jpeg && Decoded(*jpeg).width == 200 ? 1 : 0;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(right, 80);
}

} // namespace vexil
