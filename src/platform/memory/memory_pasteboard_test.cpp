// SPDX-License-Identifier: Apache-2.0
#include "platform/memory/memory_main_queue.h"
#include "platform/memory/memory_pasteboard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vexil {

using testing::ElementsAre;
using testing::Optional;

class MemoryPasteboardTest : public testing::Test {
protected:
    // Remembers the answer to a read of the text; empty while there is none.
    void readText() {
        pasteboard.string([this](std::optional<std::string> read) { answer = std::move(read); });
    }

    MemoryMainQueue queue;
    MemoryPasteboard pasteboard{queue};
    std::optional<std::optional<std::string>> answer;
};

TEST_F(MemoryPasteboardTest, RemembersWhatWasRead) {
    pasteboard.copy("secret", {pasteboard_type::kConcealed});
    pasteboard.types([](const auto&) {});
    pasteboard.data(pasteboard_type::kPng, [](const auto&) {});
    EXPECT_THAT(pasteboard.reads(), ElementsAre(MemoryPasteboard::kTypesRead, pasteboard_type::kPng));
    EXPECT_EQ(pasteboard.readsOf(pasteboard_type::kString), 0U);
}

TEST_F(MemoryPasteboardTest, AFrozenOwnerYieldsNoneAfterTheDeadline) {
    pasteboard.copy("text");
    readText();
    pasteboard.freezeOwner(true);
    queue.advance(MemoryPasteboard::kReadDeadline - Duration(1));
    EXPECT_EQ(answer, std::nullopt);
    queue.advance(Duration(1));
    EXPECT_THAT(answer, Optional(std::optional<std::string>()));
}

TEST_F(MemoryPasteboardTest, AnOwnerThatWasSilentIsReadAgainOnlyAfterTheNextChange) {
    pasteboard.copy("text");
    pasteboard.freezeOwner(true);
    readText();
    queue.advance(MemoryPasteboard::kReadDeadline);
    pasteboard.freezeOwner(false);
    answer.reset();
    readText();
    queue.runUntilIdle();
    EXPECT_THAT(answer, Optional(std::optional<std::string>()));
    pasteboard.copy("next");
    readText();
    queue.runUntilIdle();
    EXPECT_THAT(answer, Optional(Optional(std::string("next"))));
}

TEST_F(MemoryPasteboardTest, AnOwnerThatEndsTakesItsContentAlong) {
    const std::int64_t copied = pasteboard.copy("text");
    EXPECT_GT(pasteboard.endOwner(), copied);
    readText();
    queue.runUntilIdle();
    EXPECT_THAT(answer, Optional(std::optional<std::string>()));
}

TEST_F(MemoryPasteboardTest, WithheldTypesLeaveTheContentReadable) {
    pasteboard.copy("text");
    pasteboard.withholdTypes(true);
    bool hasTypes = true;
    pasteboard.types([&hasTypes](const auto& types) { hasTypes = types.has_value(); });
    readText();
    queue.runUntilIdle();
    EXPECT_FALSE(hasTypes);
    EXPECT_THAT(answer, Optional(Optional(std::string("text"))));
}

TEST_F(MemoryPasteboardTest, AChangeCanComeBetweenTwoReads) {
    pasteboard.copy("old", {pasteboard_type::kTransient});
    pasteboard.changeDuringNext(MemoryPasteboard::kTypesRead, [this] { pasteboard.copy("new"); });
    std::vector<std::string> types;
    pasteboard.types([&](const auto& found) {
        types = found.value();
        readText();
    });
    queue.runUntilIdle();
    EXPECT_THAT(types, ElementsAre(pasteboard_type::kString, pasteboard_type::kTransient));
    EXPECT_THAT(answer, Optional(Optional(std::string("new"))));
}

TEST_F(MemoryPasteboardTest, ARefusedWriteChangesNothing) {
    const std::int64_t copied = pasteboard.copy("theirs");
    pasteboard.refuseWrites(true);
    std::optional<std::int64_t> written = 0;
    pasteboard.write({.text = "ours", .data = {}}, [&written](auto count) { written = count; });
    queue.runUntilIdle();
    EXPECT_EQ(written, std::nullopt);
    EXPECT_EQ(pasteboard.changeCount(), copied);
    EXPECT_THAT(pasteboard.writes(), testing::IsEmpty());
}

} // namespace vexil
