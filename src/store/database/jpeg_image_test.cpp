// SPDX-License-Identifier: Apache-2.0
#include "store/database/jpeg_fixture.h"
#include "store/database/jpeg_image.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

TEST(JpegImageTest, ReadsTheSizeFromTheHeader) {
    EXPECT_EQ(jpegSize(makeJpeg({640, 480})), (PixelSize{640, 480}));
    EXPECT_EQ(jpegSize(makeJpeg({1, 1}, true)), (PixelSize{1, 1}));
}

TEST(JpegImageTest, WhatIsNoJpegHasNoSizeAndNoThumbnail) {
    for (const std::string_view bytes : {"", "no image", "\xFF\xD8", "\xFF\xD8\xFF\xD9"}) {
        EXPECT_EQ(jpegSize(bytesOf(bytes)), std::nullopt) << bytes;
        EXPECT_EQ(jpegThumbnail(bytesOf(bytes)), std::nullopt) << bytes;
    }
}

TEST(JpegImageTest, AThumbnailKeepsTheProportions) {
    const auto sizeOfThumbnail = [](PixelSize size) { return jpegSize(jpegThumbnail(makeJpeg(size)).value()); };
    EXPECT_EQ(sizeOfThumbnail({1920, 1080}), (PixelSize{96, 54}));
    EXPECT_EQ(sizeOfThumbnail({300, 900}), (PixelSize{32, 96}));
    EXPECT_EQ(sizeOfThumbnail({97, 97}), (PixelSize{96, 96}));
    EXPECT_EQ(sizeOfThumbnail({4000, 2}), (PixelSize{96, 1}));
}

TEST(JpegImageTest, ASmallImageIsNotEnlarged) {
    EXPECT_EQ(jpegSize(jpegThumbnail(makeJpeg({20, 10})).value()), (PixelSize{20, 10}));
    EXPECT_EQ(jpegSize(jpegThumbnail(makeJpeg({1, 1})).value()), (PixelSize{1, 1}));
}

TEST(JpegImageTest, AThumbnailOfNoiseStaysSmall) {
    const auto thumbnail = jpegThumbnail(makeJpeg({1000, 1000}, false, true));
    ASSERT_TRUE(thumbnail);
    EXPECT_LE(thumbnail->size(), kMaxThumbnailBytes);
    const auto ofFewPixels = jpegThumbnail(makeJpeg({96, 96}, false, true));
    ASSERT_TRUE(ofFewPixels);
    EXPECT_LE(ofFewPixels->size(), kMaxThumbnailBytes);
}

TEST(JpegImageTest, ACutImageStillHasItsSize) {
    const Bytes jpeg = makeJpeg({1000, 1000}, false, true);
    EXPECT_EQ(jpegSize(ByteView(jpeg).first(jpeg.size() / 2)), (PixelSize{1000, 1000}));
}

TEST(JpegImageTest, EveryCutOfAnImageIsHarmless) {
    const Bytes jpeg = makeJpeg({64, 64});
    for (std::size_t length = 0; length < jpeg.size(); ++length) {
        const Bytes cut = copyOf(ByteView(jpeg).first(length)); // a block of its own, for the address checker
        const auto thumbnail = jpegThumbnail(cut);
        EXPECT_TRUE(!thumbnail || jpegSize(*thumbnail) == (PixelSize{64, 64}));
    }
}

TEST(JpegImageTest, RefusesTheThumbnailOfAnImageInSeveralScans) {
    EXPECT_EQ(jpegThumbnail(makeJpeg({640, 480}, true)), std::nullopt);
}

TEST(JpegImageTest, RefusesTheThumbnailOfAnImageThatClaimsTooManyPixels) {
    Bytes jpeg = makeJpeg({64, 64});
    for (std::size_t i = 0; i + 8 < jpeg.size(); ++i) {
        if (jpeg[i] != 0xFF || jpeg[i + 1] != 0xC0) // the header of a baseline frame: height and width at 5 and 7
            continue;
        jpeg[i + 5] = jpeg[i + 7] = 0xF0;
        break;
    }
    EXPECT_EQ(jpegSize(jpeg), (PixelSize{0xF040, 0xF040}));
    EXPECT_EQ(jpegThumbnail(jpeg), std::nullopt);
}

} // namespace
} // namespace vexil
