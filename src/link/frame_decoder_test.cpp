// SPDX-License-Identifier: Apache-2.0
#include "link/frame_decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Item = FrameDecoder::Item;

const std::string kId = "00112233-4455-6677-8899-AABBCCDDEEFF";

std::string lengthOf(std::size_t length) {
    return {static_cast<char>(length >> 24), static_cast<char>(length >> 16), static_cast<char>(length >> 8),
            static_cast<char>(length)};
}

std::string frame(int type, const std::string& body) {
    return lengthOf(body.size() + 1) + static_cast<char>(type) + body;
}

Item envelope(std::string_view body) {
    return FrameDecoder::Envelope{copyOf(bytesOf(body))};
}

Item attachment(const std::string& id, std::string_view bytes) {
    return FrameDecoder::Attachment{id, copyOf(bytesOf(bytes))};
}

Item violation() {
    return FrameDecoder::Violation{};
}

std::vector<Item> feed(FrameDecoder& decoder, std::string_view chunk) {
    std::vector<Item> items;
    ByteView bytes = bytesOf(chunk);
    while (auto item = decoder.next(bytes))
        items.push_back(std::move(*item));
    return items;
}

std::vector<Item> decode(std::string_view stream, std::size_t chunkSize = SIZE_MAX) {
    FrameDecoder decoder;
    std::vector<Item> items;
    for (std::size_t at = 0; at < stream.size(); at += std::min(chunkSize, stream.size() - at)) {
        for (auto& item : feed(decoder, stream.substr(at, chunkSize)))
            items.push_back(std::move(item));
    }
    return items;
}

// A bit of everything that a stream may hold.
std::string mixedStream() {
    return frame(1, "{}") + frame(2, kId + "image") + frame(1, "") + frame(3, "unknown") + frame(2, kId) +
           frame(2, "too short") + frame(0, "") + frame(2, std::string(36, '\xFF') + "no id") + frame(1, R"({"v":1})");
}

std::vector<Item> mixedItems() {
    return {envelope("{}"), attachment(kId, "image"), envelope(""), attachment(kId, ""), envelope(R"({"v":1})")};
}

TEST(FrameDecoderTest, HandsOutSeveralFramesOfOneReadInOrder) {
    EXPECT_EQ(decode(mixedStream()), mixedItems());
}

TEST(FrameDecoderTest, DoesNotCareWhereTheStreamIsCut) {
    const std::string stream = mixedStream();
    for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
        FrameDecoder decoder;
        auto items = feed(decoder, stream.substr(0, cut));
        for (auto& item : feed(decoder, stream.substr(cut)))
            items.push_back(std::move(item));
        EXPECT_EQ(items, mixedItems()) << cut;
    }
    for (std::size_t size = 1; size < stream.size(); ++size)
        EXPECT_EQ(decode(stream, size), mixedItems()) << size;
}

TEST(FrameDecoderTest, LeavesTheRestOfTheChunkToTheNextCall) {
    FrameDecoder decoder;
    const std::string stream = frame(1, "a") + frame(1, "b");
    ByteView chunk = bytesOf(stream);
    EXPECT_EQ(decoder.next(chunk), envelope("a"));
    EXPECT_EQ(chunk.size(), frame(1, "b").size());
    EXPECT_EQ(decoder.next(chunk), envelope("b"));
    EXPECT_TRUE(chunk.empty());
    EXPECT_EQ(decoder.next(chunk), std::nullopt);
}

TEST(FrameDecoderTest, YieldsAnEmptyBodyForALengthOfOne) {
    EXPECT_THAT(decode(lengthOf(1) + '\x01'), ElementsAre(envelope("")));
    EXPECT_THAT(decode(lengthOf(1) + '\x02'), IsEmpty());
}

TEST(FrameDecoderTest, TakesTheLongestFrame) {
    const std::string body(kMaxFrameLength - 1, 'x');
    const auto items = decode(frame(1, body) + frame(1, "next"), 65'536);
    ASSERT_EQ(items.size(), 2U);
    EXPECT_EQ(items[0], envelope(body));
    EXPECT_EQ(items[1], envelope("next"));
}

TEST(FrameDecoderTest, ReportsALengthOutOfRangeOnceAndTakesNothingMore) {
    for (const std::size_t length :
         {std::size_t{0}, kMaxFrameLength + 1, std::size_t{0x7FFFFFFF}, std::size_t{0xFFFFFFFF}}) {
        FrameDecoder decoder;
        const std::string stream = frame(1, "good") + lengthOf(length) + '\x01' + frame(1, "never");
        EXPECT_THAT(feed(decoder, stream), ElementsAre(envelope("good"), violation())) << length;
        const std::string more = frame(1, "never");
        ByteView chunk = bytesOf(more);
        EXPECT_EQ(decoder.next(chunk), std::nullopt);
        EXPECT_EQ(chunk.size(), more.size());
    }
}

TEST(FrameDecoderTest, WaitsForTheWholeHeaderBeforeItJudgesTheLength) {
    FrameDecoder decoder;
    EXPECT_THAT(feed(decoder, lengthOf(0)), IsEmpty());
    EXPECT_THAT(feed(decoder, "\x01"), ElementsAre(violation()));
}

TEST(FrameDecoderTest, DropsUnknownTypesHoweverLong) {
    const std::string stream = frame(3, std::string(kMaxFrameLength - 1, 'x')) + frame(0xFF, "") + frame(1, "a");
    EXPECT_THAT(decode(stream, 65'536), ElementsAre(envelope("a")));
}

TEST(FrameDecoderTest, DropsAttachmentsWithoutAnId) {
    const std::string almost = "\xC3" + kId.substr(1); // a lead byte without its tail
    EXPECT_THAT(decode(frame(2, kId.substr(1)) + frame(2, "") + frame(2, almost + "bytes") + frame(1, "a")),
                ElementsAre(envelope("a")));
}

TEST(FrameDecoderTest, TakesAnyIdOf36BytesOfUtf8) {
    const std::string id = "\xE2\x82\xAC" + std::string(33, ' ');
    EXPECT_THAT(decode(frame(2, id + "bytes")), ElementsAre(attachment(id, "bytes")));
}

TEST(FrameDecoderTest, HandsOutBothOfTwoAttachmentsWithOneId) {
    EXPECT_THAT(decode(frame(2, kId + "one") + frame(2, kId + "two")),
                ElementsAre(attachment(kId, "one"), attachment(kId, "two")));
}

TEST(FrameDecoderTest, GivesABodyItsFinalSizeAtOnce) {
    FrameDecoder decoder;
    const std::string bytes(1'000'000, 'x');
    const auto items = decode(frame(2, kId + bytes), 65'536);
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(std::get<FrameDecoder::Attachment>(items[0]).bytes.capacity(), bytes.size());
}

// Pages of this process that are in memory, in bytes.
std::size_t residentBytes() {
    std::ifstream statm("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    statm >> total >> resident;
    return resident * 4096;
}

TEST(FrameDecoderTest, TouchesNoMemoryForALengthThatLies) {
    std::vector<FrameDecoder> decoders(20);
    const std::size_t before = residentBytes();
    for (auto& decoder : decoders)
        EXPECT_THAT(feed(decoder, lengthOf(kMaxFrameLength) + '\x01' + "five!"), IsEmpty());
    EXPECT_LT(residentBytes(), before + kMaxFrameLength);
}

} // namespace
} // namespace vexil
