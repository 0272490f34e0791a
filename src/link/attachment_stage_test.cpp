// SPDX-License-Identifier: Apache-2.0
#include "link/attachment_stage.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

const std::string kId = "00112233-4455-6677-8899-AABBCCDDEEFF";

TEST(AttachmentStageTest, HandsOutAnAttachmentOnce) {
    AttachmentStage stage(1'000);
    EXPECT_TRUE(stage.put(kId, Bytes{1, 2, 3}));
    EXPECT_EQ(stage.take("another"), std::nullopt);
    EXPECT_EQ(stage.take(kId), (Bytes{1, 2, 3}));
    EXPECT_EQ(stage.take(kId), std::nullopt);
}

TEST(AttachmentStageTest, TellsAnEmptyAttachmentFromNone) {
    AttachmentStage stage(1'000);
    EXPECT_TRUE(stage.put(kId, Bytes{}));
    EXPECT_EQ(stage.take(kId), Bytes{});
}

TEST(AttachmentStageTest, KeepsTheLaterOfTwoWithOneId) {
    AttachmentStage stage(1'000);
    EXPECT_TRUE(stage.put(kId, Bytes(300, 1)));
    EXPECT_TRUE(stage.put(kId, Bytes{2}));
    EXPECT_EQ(stage.count(), 1U);
    EXPECT_EQ(stage.take(kId), Bytes{2});
    EXPECT_EQ(stage.cost(), 0U);
}

TEST(AttachmentStageTest, RefusesWhatPassesItsLimitAndKeepsWhatItHas) {
    const std::size_t costOfOne = 100 + kId.size() + AttachmentStage::kCostPerAttachment;
    AttachmentStage stage(costOfOne);
    EXPECT_TRUE(stage.put(kId, Bytes(100, 1)));
    EXPECT_EQ(stage.cost(), costOfOne);
    EXPECT_FALSE(stage.put("another", Bytes{}));
    EXPECT_FALSE(stage.put(kId, Bytes(101, 2)));
    EXPECT_TRUE(stage.put(kId, Bytes(100, 3)));
    EXPECT_EQ(stage.take(kId), Bytes(100, 3));
    EXPECT_TRUE(stage.put("another", Bytes{}));
}

TEST(AttachmentStageTest, HoldsTenThousandAndCountsTheirIds) {
    AttachmentStage stage(64U << 20);
    const auto idOf = [](std::size_t i) { return std::to_string(1'000'000 + i) + std::string(29, 'x'); };
    for (std::size_t i = 0; i < 10'000; ++i)
        ASSERT_TRUE(stage.put(idOf(i), Bytes(i % 7, 1)));
    EXPECT_EQ(stage.count(), 10'000U);
    EXPECT_GE(stage.cost(), 10'000 * (36 + AttachmentStage::kCostPerAttachment));
    for (std::size_t i = 0; i < 10'000; ++i)
        ASSERT_EQ(stage.take(idOf(i)), Bytes(i % 7, 1));
    EXPECT_EQ(stage.cost(), 0U);
}

TEST(AttachmentStageTest, IsFilledByEmptyAttachmentsToo) {
    AttachmentStage stage(1U << 20);
    std::size_t staged = 0;
    while (stage.put(std::to_string(staged), Bytes{}))
        ASSERT_LT(++staged, 10'000U);
    EXPECT_GT(staged, 5'000U);
}

} // namespace
} // namespace vexil
