// SPDX-License-Identifier: Apache-2.0
#include "base/text.h"
#include "store/database/byte_count.h"
#include "store/database/content_description.h"
#include "store/database/jpeg_fixture.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

TEST(ContentDescriptionTest, TheHashTellsKindsAndContentsApart) {
    const auto hash = contentHash(ClipboardKind::text, bytesOf("abc"));
    EXPECT_EQ(hash, contentHash(ClipboardKind::text, bytesOf("abc")));
    EXPECT_NE(hash, contentHash(ClipboardKind::text, bytesOf("abd")));
    EXPECT_NE(hash, contentHash(ClipboardKind::image, bytesOf("abc")));
}

TEST(ContentDescriptionTest, TheHashIsSha256OfKindAndContent) {
    // printf 'text\0abc' | sha256sum
    const auto hash = contentHash(ClipboardKind::text, bytesOf("abc"));
    std::string hex;
    for (const std::uint8_t byte : hash) {
        hex.push_back("0123456789abcdef"[byte >> 4]);
        hex.push_back("0123456789abcdef"[byte & 15]);
    }
    EXPECT_EQ(hex, "913e2cec540f72fbae8c1ce3c2e393214917f26b602bd937e7b0d1afa11fce12");
}

TEST(ContentDescriptionTest, APreviewOfTextIsOneLineOfAtMost200Characters) {
    EXPECT_EQ(describe(ClipboardKind::text, bytesOf("  one\n\ttwo  ")).preview, "one two");
    EXPECT_EQ(describe(ClipboardKind::text, bytesOf(std::string(201, 'x'))).preview, std::string(200, 'x'));
    EXPECT_EQ(describe(ClipboardKind::text, bytesOf("x")).thumbnail, std::nullopt);
}

TEST(ContentDescriptionTest, APreviewOfAnImageSaysItsPixelsAndBytes) {
    const Bytes jpeg = makeJpeg({640, 480});
    const auto description = describe(ClipboardKind::image, jpeg);
    EXPECT_EQ(description.preview, "640 × 480 pixels, " + byteCountText(jpeg.size()));
    EXPECT_TRUE(description.thumbnail);
}

TEST(ContentDescriptionTest, AnImageThatIsNoneIsDescribedByItsBytes) {
    const auto description = describe(ClipboardKind::image, bytesOf("no image"));
    EXPECT_EQ(description.preview, "image, 8 B");
    EXPECT_EQ(description.thumbnail, std::nullopt);
}

TEST(ByteCountTest, ReadsAsAPersonWouldSayIt) {
    EXPECT_EQ(byteCountText(0), "0 B");
    EXPECT_EQ(byteCountText(999), "999 B");
    EXPECT_EQ(byteCountText(1000), "1.0 kB");
    EXPECT_EQ(byteCountText(48'213), "48.2 kB");
    EXPECT_EQ(byteCountText(999'949), "999.9 kB");
    EXPECT_EQ(byteCountText(999'950), "1.0 MB");
    EXPECT_EQ(byteCountText(12'582'912), "12.6 MB");
    EXPECT_EQ(byteCountText(UINT64_MAX), "18.4 EB");
}

} // namespace
} // namespace vexil
