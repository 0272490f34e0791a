// SPDX-License-Identifier: Apache-2.0
// What becomes of an image that goes back to a pasteboard: its type there, and its form as PNG.
#include "platform/contract/sample_images.h"
#include "platform/linux/pixbuf_image_codec.h"
#include "platform/pasteboard.h"

#include <gtest/gtest.h>
#include <png.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace vexil {
namespace {

using sample::Color;
using sample::Decoded;

constexpr Color kRed{255, 0, 0};
constexpr Color kBlue{0, 0, 255};

sample::Picture halves(int width, Color left, Color right) {
    return [=](int x, int) { return x < width / 2 ? left : right; };
}

bool isAbout(Color color, Color wanted) {
    const auto near = [](int left, int right) { return std::abs(left - right) <= 12; };
    return near(color.red, wanted.red) && near(color.green, wanted.green) && near(color.blue, wanted.blue);
}

class ImageCodecPngTest : public testing::Test {
protected:
    // Held to silence and to the form of a PNG.
    std::optional<Bytes> toPng(ByteView image) {
        testing::internal::CaptureStderr();
        auto png = codec.toPng(image);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_TRUE(!png || textOf(*png).starts_with("\x89PNG\r\n\x1A\n"));
        return png;
    }

    PixbufImageCodec codec;
};

TEST_F(ImageCodecPngTest, AJpegBecomesAPngOfTheSamePixels) {
    const Bytes jpeg = sample::file("jpeg", 64, 40, halves(64, kRed, kBlue));
    const auto png = toPng(jpeg);
    ASSERT_TRUE(png);
    const Decoded before(jpeg);
    const Decoded after(*png);
    ASSERT_EQ(after.width, 64);
    ASSERT_EQ(after.height, 40);
    for (const int x : {0, 8, 31, 32, 56, 63}) {
        for (const int y : {0, 20, 39}) {
            EXPECT_EQ(after.at(x, y).red, before.at(x, y).red) << x << ", " << y;
            EXPECT_EQ(after.at(x, y).blue, before.at(x, y).blue) << x << ", " << y;
        }
    }
}

TEST_F(ImageCodecPngTest, APhotographIsTurnedUpright) {
    const Bytes lying = sample::file("jpeg", 64, 32, halves(64, kRed, kBlue));
    const auto png = toPng(sample::withOrientation(lying, 6)); // a quarter turn clockwise
    ASSERT_TRUE(png);
    const Decoded upright(*png);
    ASSERT_EQ(upright.height, 64);
    EXPECT_TRUE(isAbout(upright.at(16, 8), kRed));
    EXPECT_TRUE(isAbout(upright.at(16, 56), kBlue));
}

TEST_F(ImageCodecPngTest, TransparencyIsKept) {
    const auto png = toPng(sample::png(64, 32, {.colorType = PNG_COLOR_TYPE_RGB_ALPHA, .isInterlaced = true},
                                       halves(64, {255, 0, 0, 0}, {0, 0, 255, 128})));
    ASSERT_TRUE(png);
    const Decoded image(*png);
    ASSERT_EQ(image.channels, 4);
    EXPECT_EQ(image.at(8, 16).alpha, 0);
    EXPECT_EQ(image.at(56, 16).alpha, 128);
    EXPECT_EQ(image.at(56, 16).blue, 255);
}

TEST_F(ImageCodecPngTest, OtherFormatsBecomePngs) {
    for (const char* format : {"tiff", "bmp"}) {
        const auto png = toPng(sample::file(format, 64, 40, halves(64, kRed, kBlue)));
        ASSERT_TRUE(png) << format;
        EXPECT_TRUE(isAbout(Decoded(*png).at(56, 20), kBlue)) << format;
    }
    ASSERT_TRUE(toPng(sample::twoFrames()));
}

TEST_F(ImageCodecPngTest, WhatCannotBeReadIsNone) {
    const Bytes jpeg = sample::file("jpeg", 64, 40, halves(64, kRed, kBlue));
    EXPECT_EQ(toPng({}), std::nullopt);
    EXPECT_EQ(toPng(bytesOf("some text")), std::nullopt);
    EXPECT_EQ(toPng(ByteView(jpeg).first(jpeg.size() / 2)), std::nullopt);
    const Bytes png = sample::png(64, 40, {.colorType = PNG_COLOR_TYPE_RGB}, halves(64, kRed, kBlue));
    EXPECT_EQ(toPng(ByteView(png).first(png.size() - 20)), std::nullopt);
    EXPECT_EQ(toPng(sample::pngHeader(65'000, 65'000)), std::nullopt);
}

TEST_F(ImageCodecPngTest, EachFormatHasItsTypeOnAPasteboard) {
    const auto picture = halves(64, kRed, kBlue);
    EXPECT_EQ(codec.typeOf(sample::png(64, 40, {.colorType = PNG_COLOR_TYPE_RGB}, picture)), pasteboard_type::kPng);
    EXPECT_EQ(codec.typeOf(sample::file("jpeg", 64, 40, picture)), pasteboard_type::kJpeg);
    EXPECT_EQ(codec.typeOf(sample::progressiveJpeg(10)), pasteboard_type::kJpeg);
    EXPECT_EQ(codec.typeOf(sample::file("tiff", 64, 40, picture)), pasteboard_type::kTiff);
    EXPECT_EQ(codec.typeOf(sample::file("bmp", 64, 40, picture)), pasteboard_type::kAnyImage);
    EXPECT_EQ(codec.typeOf(sample::twoFrames()), pasteboard_type::kAnyImage);
}

TEST_F(ImageCodecPngTest, WhatIsNoImageOrCutOffOrTooLargeHasNoType) {
    const Bytes jpeg = sample::file("jpeg", 64, 40, halves(64, kRed, kBlue));
    EXPECT_EQ(codec.typeOf({}), std::nullopt);
    EXPECT_EQ(codec.typeOf(bytesOf("some text that somebody copied")), std::nullopt);
    EXPECT_EQ(codec.typeOf(bytesOf("\xFF\xD8\xFF and then nothing of the kind")), std::nullopt);
    EXPECT_EQ(codec.typeOf(ByteView(jpeg).first(jpeg.size() / 2)), std::nullopt);
    EXPECT_EQ(codec.typeOf(sample::pngHeader(65'000, 65'000)), std::nullopt);
    Bytes enormous = jpeg;
    const std::size_t frame = textOf(enormous).find("\xFF\xC0");
    ASSERT_NE(frame, std::string_view::npos);
    for (const std::size_t at : {5U, 6U, 7U, 8U})
        enormous[frame + at] = 0xFF;
    EXPECT_EQ(codec.typeOf(enormous), std::nullopt);
}

} // namespace
} // namespace vexil
