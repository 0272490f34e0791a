// SPDX-License-Identifier: Apache-2.0
#include "capture/clipboard_watcher.h"
#include "link/clipboard_link_server.h"
#include "link/test_main_application.h"
#include "platform/memory/memory_image_codec.h"
#include "platform/memory/memory_pasteboard.h"
#include "platform/memory/memory_secure_random.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr auto kPoll = ClipboardWatcher::kPollInterval;

class ClipboardWatcherTest : public testing::Test {
protected:
    ClipboardWatcherTest() {
        server.start();
        queue.runUntilIdle();
        watcher.emplace(queue, pasteboard, processing, codec, server);
        watcher->start();
    }

    void connect() {
        main.emplace(queue, network, *server.port());
        ASSERT_TRUE(main->hello(server.nonce()));
    }

    // What the main application was told, one line a change.
    std::vector<std::string> published() {
        std::vector<std::string> changes;
        for (const auto& event : main->events) {
            const auto& change = std::get<ClipboardPasteboardChange>(event.payload);
            if (change.kind == ClipboardKind::text)
                changes.push_back("text " + change.text.value_or("without text"));
            else if (event.attachment)
                changes.push_back("image " + std::string(textOf(*event.attachment)));
            else
                changes.emplace_back("image without bytes");
        }
        return changes;
    }

    static Bytes bytes(std::string_view text) { return copyOf(bytesOf(text)); }

    MemoryMainQueue queue;
    MemoryLoopbackTcp network{queue};
    MemorySecureRandom random;
    MemoryPasteboard pasteboard{queue};
    MemorySerialQueue processing{queue};
    MemoryImageCodec codec;
    ClipboardLinkServer server{queue, network, random};
    std::optional<ClipboardWatcher> watcher;
    std::optional<TestMainApplication> main;
};

TEST_F(ClipboardWatcherTest, ReportsATextAtTheNextPoll) {
    connect();
    pasteboard.copy("hello");
    queue.advance(kPoll - 1ms);
    EXPECT_THAT(published(), IsEmpty());
    queue.advance(1ms);
    EXPECT_THAT(published(), ElementsAre("text hello"));
    queue.advance(10s);
    EXPECT_THAT(published(), ElementsAre("text hello")) << "once";
}

TEST_F(ClipboardWatcherTest, NeverReportsWhatWasThereBeforeIt) {
    watcher.reset();
    pasteboard.copy("old");
    watcher.emplace(queue, pasteboard, processing, codec, server);
    watcher->start();
    connect();
    queue.advance(kPoll * 4);
    EXPECT_THAT(published(), IsEmpty());
    EXPECT_THAT(pasteboard.reads(), IsEmpty());
}

TEST_F(ClipboardWatcherTest, ASecondStartDoesNotPollTwice) {
    watcher->start();
    EXPECT_EQ(queue.armedTimers(), 1U);
}

TEST_F(ClipboardWatcherTest, SeveralCopiesBetweenTwoPollsAreOneChange) {
    connect();
    pasteboard.copy("first");
    pasteboard.copy("second");
    pasteboard.copy("third");
    queue.advance(kPoll);
    EXPECT_THAT(published(), ElementsAre("text third"));
}

TEST_F(ClipboardWatcherTest, SkipsExactlyTheChangeThatThePanelWrote) {
    connect();
    watcher->selfWrittenChangeCount(pasteboard.copy("ours"));
    queue.advance(kPoll);
    EXPECT_THAT(published(), IsEmpty());
    pasteboard.copy("theirs");
    queue.advance(kPoll);
    EXPECT_THAT(published(), ElementsAre("text theirs"));
}

TEST_F(ClipboardWatcherTest, AForeignCopyRightAfterThePanelsWriteIsReportedAndTheMarkIsKept) {
    connect();
    const auto ours = pasteboard.copy("ours");
    watcher->selfWrittenChangeCount(ours + 2);
    pasteboard.copy("theirs");
    queue.advance(kPoll);
    EXPECT_THAT(published(), ElementsAre("text theirs"));
    ASSERT_EQ(pasteboard.copy("happens to equal the mark"), ours + 2);
    queue.advance(kPoll);
    EXPECT_THAT(published(), ElementsAre("text theirs"));
}

TEST_F(ClipboardWatcherTest, ChangesWhileDisconnectedAreNeitherReadNorReportedLater) {
    pasteboard.copy("lost");
    queue.advance(kPoll);
    EXPECT_THAT(pasteboard.reads(), IsEmpty());
    connect();
    queue.advance(kPoll * 2);
    EXPECT_THAT(published(), IsEmpty());
    pasteboard.copy("seen");
    queue.advance(kPoll);
    EXPECT_THAT(published(), ElementsAre("text seen"));
}

TEST_F(ClipboardWatcherTest, ConcealedAndTransientContentIsNeverRead) {
    connect();
    for (const char* mark : {pasteboard_type::kConcealed, pasteboard_type::kTransient}) {
        pasteboard.copy("secret", {mark});
        queue.advance(kPoll);
        pasteboard.copyData(pasteboard_type::kPng, bytes("secret"), {mark});
        queue.advance(kPoll);
    }
    EXPECT_THAT(published(), IsEmpty());
    EXPECT_THAT(pasteboard.reads(), testing::Each(MemoryPasteboard::kTypesRead));
}

TEST_F(ClipboardWatcherTest, APasteboardWithoutATypeListIsReadAllTheSame) {
    connect();
    pasteboard.copy("unlisted");
    pasteboard.withholdTypes(true);
    queue.advance(kPoll);
    EXPECT_THAT(published(), ElementsAre("text unlisted"));
}

TEST_F(ClipboardWatcherTest, SecretContentThatArrivesWhileReadingIsNotTakenForTheOldOne) {
    connect();
    pasteboard.copy("harmless");
    pasteboard.changeDuringNext(MemoryPasteboard::kTypesRead,
                                [this] { pasteboard.copy("secret", {pasteboard_type::kConcealed}); });
    queue.advance(kPoll * 4);
    EXPECT_THAT(published(), IsEmpty());
    EXPECT_THAT(pasteboard.reads(), Not(Contains(pasteboard_type::kString)));
}

TEST_F(ClipboardWatcherTest, AContentThatIsReplacedWhileItIsReadIsLeftToTheNextPoll) {
    connect();
    pasteboard.copy("old");
    pasteboard.changeDuringNext(pasteboard_type::kString, [this] { pasteboard.copy("new"); });
    queue.advance(kPoll);
    EXPECT_THAT(published(), IsEmpty());
    queue.advance(kPoll);
    EXPECT_THAT(published(), ElementsAre("text new"));
}

TEST_F(ClipboardWatcherTest, TextGoesBeforeAnImage) {
    connect();
    pasteboard.copyContents({.text = "caption", .data = {{pasteboard_type::kPng, bytes("png")}}});
    queue.advance(kPoll);
    EXPECT_THAT(published(), ElementsAre("text caption"));
    EXPECT_THAT(codec.calls(), IsEmpty());
}

TEST_F(ClipboardWatcherTest, AnEmptyTextIsNoText) {
    connect();
    codec.answerWith(bytes("jpeg"));
    pasteboard.copyContents({.text = "", .data = {{pasteboard_type::kPng, bytes("png")}}});
    queue.advance(kPoll);
    EXPECT_THAT(published(), ElementsAre("image jpeg"));
}

TEST_F(ClipboardWatcherTest, PrefersPngThenTiffThenAnyOtherImage) {
    connect();
    codec.answerWith(bytes("jpeg"));
    pasteboard.copyContents({.text = std::nullopt,
                             .data = {{pasteboard_type::kAnyImage, bytes("any")},
                                      {pasteboard_type::kTiff, bytes("tiff")},
                                      {pasteboard_type::kPng, bytes("png")}}});
    queue.advance(kPoll);
    pasteboard.copyContents(
        {.text = std::nullopt,
         .data = {{pasteboard_type::kAnyImage, bytes("any")}, {pasteboard_type::kTiff, bytes("tiff")}}});
    queue.advance(kPoll);
    pasteboard.copyData(pasteboard_type::kAnyImage, bytes("any"));
    queue.advance(kPoll);
    std::vector<std::string> converted;
    for (const auto& call : codec.calls()) {
        converted.emplace_back(textOf(call.image));
        EXPECT_EQ(call.quality, 0.85);
    }
    EXPECT_THAT(converted, ElementsAre("png", "tiff", "any"));
    EXPECT_THAT(published(), ElementsAre("image jpeg", "image jpeg", "image jpeg"));
}

TEST_F(ClipboardWatcherTest, AnImageThatCannotBeReadIsReportedWithoutBytes) {
    connect();
    codec.answerWith(std::nullopt);
    pasteboard.copyData(pasteboard_type::kPng, bytes("no image"));
    queue.advance(kPoll);
    EXPECT_THAT(published(), ElementsAre("image without bytes"));
}

TEST_F(ClipboardWatcherTest, WhatIsNeitherTextNorImageIsNotReported) {
    connect();
    pasteboard.copyData("application/x-something", bytes("data"));
    queue.advance(kPoll);
    EXPECT_THAT(published(), IsEmpty());
}

TEST_F(ClipboardWatcherTest, ATextOf4096CharactersIsSentAndOneMoreIsNot) {
    connect();
    std::string longest;
    for (int i = 0; i < 4096; ++i)
        longest += "e\u0301"; // one character each, three bytes
    pasteboard.copy(longest + "x");
    queue.advance(kPoll);
    EXPECT_THAT(published(), IsEmpty());
    pasteboard.copy(longest);
    queue.advance(kPoll);
    EXPECT_THAT(published(), ElementsAre("text " + longest));
}

TEST_F(ClipboardWatcherTest, AFrozenOwnerDelaysNothingElse) {
    connect();
    pasteboard.freezeOwner(true);
    pasteboard.copy("never given");
    queue.advance(kPoll);
    pasteboard.freezeOwner(false);
    pasteboard.copy("given");
    queue.advance(kPoll);
    EXPECT_THAT(published(), ElementsAre("text given"));
    queue.advance(20s);
    EXPECT_THAT(published(), ElementsAre("text given"));
}

TEST_F(ClipboardWatcherTest, AConcealedOwnerThatThawsAfterItsTypeListTimedOutIsNotRead) {
    connect();
    pasteboard.copy("secret", {pasteboard_type::kConcealed});
    pasteboard.freezeOwner(true);
    queue.advance(kPoll + MemoryPasteboard::kReadDeadline - 1ms);
    EXPECT_THAT(pasteboard.reads(), ElementsAre(MemoryPasteboard::kTypesRead));
    // It is back when the text is asked for, right after the list was given up.
    const Timer thaw = queue.after(1ms, [this] { pasteboard.freezeOwner(false); });
    queue.advance(20s);
    EXPECT_THAT(published(), IsEmpty());
    pasteboard.copy("harmless");
    queue.advance(kPoll);
    EXPECT_THAT(published(), ElementsAre("text harmless"));
}

TEST_F(ClipboardWatcherTest, ChangesAreReportedInTheOrderInWhichTheyWereSeen) {
    connect();
    codec.answerWith(bytes("jpeg"));
    processing.hold(true);
    pasteboard.copyData(pasteboard_type::kPng, bytes("png"));
    queue.advance(kPoll);
    pasteboard.copy("text");
    queue.advance(kPoll);
    EXPECT_THAT(published(), IsEmpty());
    processing.hold(false);
    queue.runUntilIdle();
    EXPECT_THAT(published(), ElementsAre("image jpeg", "text text"));
}

TEST_F(ClipboardWatcherTest, CopiesWaitWhileTooMuchIsBeingConverted) {
    connect();
    codec.answerWith(bytes("jpeg"));
    processing.hold(true);
    pasteboard.copyData(pasteboard_type::kPng, Bytes(ClipboardWatcher::kMaxUnprocessedBytes + 1));
    queue.advance(kPoll);
    pasteboard.copy("missed");
    queue.advance(kPoll);
    pasteboard.copy("seen");
    queue.advance(kPoll);
    EXPECT_EQ(processing.waiting(), 1U);
    EXPECT_EQ(pasteboard.readsOf(pasteboard_type::kString), 1U);
    processing.hold(false);
    queue.advance(kPoll);
    EXPECT_THAT(published(), ElementsAre("image jpeg", "text seen"));
}

TEST_F(ClipboardWatcherTest, NothingIsPublishedOnceTheWatcherIsGone) {
    connect();
    processing.hold(true);
    pasteboard.copy("text");
    queue.advance(kPoll);
    watcher.reset();
    processing.hold(false);
    queue.advance(kPoll * 4);
    EXPECT_THAT(published(), IsEmpty());
}

} // namespace
} // namespace vexil
