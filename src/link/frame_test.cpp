// SPDX-License-Identifier: Apache-2.0
#include "link/frame.h"

#include <gtest/gtest.h>

#include <string>

namespace vexil {
namespace {

TEST(FrameTest, PutsTheLengthInNetworkOrderBeforeTheType) {
    EXPECT_EQ(frameHeader(FrameType::envelope, 0), (FrameHeader{0, 0, 0, 1, 1}));
    EXPECT_EQ(frameHeader(FrameType::envelope, 0x0A0B0C), (FrameHeader{0, 0x0A, 0x0B, 0x0D, 1}));
    EXPECT_EQ(frameHeader(FrameType::attachment, 36), (FrameHeader{0, 0, 0, 37, 2}));
}

TEST(FrameTest, RefusesWhatNoPeerMayTake) {
    EXPECT_EQ(frameHeader(FrameType::envelope, kMaxFrameLength - 1), (FrameHeader{1, 0, 0, 0, 1}));
    EXPECT_EQ(frameHeader(FrameType::envelope, kMaxFrameLength), std::nullopt);
    EXPECT_EQ(frameHeader(FrameType::envelope, SIZE_MAX), std::nullopt);
}

TEST(FrameTest, PutsTheIdBeforeAnAttachment) {
    const std::string id = "00112233-4455-6677-8899-AABBCCDDEEFF";
    const auto header = attachmentHeader(id, 3);
    ASSERT_TRUE(header);
    EXPECT_EQ(std::string(header->begin(), header->end()), std::string("\0\0\0\x28\x02", 5) + id);
    EXPECT_TRUE(attachmentHeader(id, 12'582'912));
    EXPECT_TRUE(attachmentHeader(id, kMaxFrameLength - 37));
    EXPECT_FALSE(attachmentHeader(id, kMaxFrameLength - 36));
    EXPECT_FALSE(attachmentHeader(id, SIZE_MAX - 20));
}

TEST(FrameTest, RefusesAnIdThatIsNot36BytesLong) {
    EXPECT_FALSE(attachmentHeader("", 0));
    EXPECT_FALSE(attachmentHeader(std::string(35, 'a'), 0));
    EXPECT_FALSE(attachmentHeader(std::string(37, 'a'), 0));
}

} // namespace
} // namespace vexil
