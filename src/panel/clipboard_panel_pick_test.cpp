// SPDX-License-Identifier: Apache-2.0
// From a picked row to the pasteboard.
#include "panel/panel_fixture.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

const ClipboardCategory kWork = categoryOf("work");

ClipboardStoreSnapshot store() {
    return {.revision = 1,
            .history = {historyRow("h1"), historyRow("h2"), imageRow("i1")},
            .favorites = {favoriteRow("h2"), favoriteRow("f1", kWork.id)},
            .categories = {kWork}};
}

class ClipboardPanelPickTest : public PanelFixture {
protected:
    static Bytes bytes(std::string_view text) { return copyOf(bytesOf(text)); }

    void answerImage(std::optional<Bytes> image) {
        const bool hasAttachment = image.has_value();
        answer(
            "entry.payload",
            ClipboardEntryPayload{.kind = ClipboardKind::image, .text = std::nullopt, .hasAttachment = hasAttachment},
            std::move(image));
    }

    // Asks for `row` and leaves the request unanswered.
    void pick(const ClipboardRowSummary& row) {
        model->pick(row);
        queue.runUntilIdle();
    }

    // What the watcher would report, were it to look now.
    [[nodiscard]] std::size_t reportsAfterPolling() {
        watcher.start();
        queue.advance(ClipboardWatcher::kPollInterval);
        return main->events.size();
    }
};

TEST_F(ClipboardPanelPickTest, PickingATextWritesItReportsItsUseAndIsFinished) {
    connect(store());
    pick(favoriteRow("h2"));
    EXPECT_EQ(picks, 0);
    answerText("the text");
    ASSERT_EQ(pasteboard.writes().size(), 1U);
    EXPECT_THAT(pasteboard.contents().text, Optional(std::string("the text")));
    EXPECT_THAT(pasteboard.contents().data, IsEmpty());
    EXPECT_EQ(taken<ClipboardEntryRef>("entry.use"),
              (ClipboardEntryRef{.id = idOf("h2"), .scope = ClipboardScope::favorites}));
    EXPECT_EQ(picks, 1);
}

TEST_F(ClipboardPanelPickTest, APickIsFinishedOnlyOnceThePasteboardHasIt) {
    connect(store());
    std::string atPick;
    model->onPick = [&] { atPick = pasteboard.contents().text.value_or("nothing"); };
    pick(historyRow("h1"));
    answerText("the text");
    EXPECT_EQ(atPick, "the text");
}

TEST_F(ClipboardPanelPickTest, ATextThatIsAbsentIsWrittenAsEmpty) {
    connect(store());
    pick(historyRow("h1"));
    replyText(take("entry.payload"), std::nullopt);
    EXPECT_THAT(pasteboard.contents().text, Optional(std::string()));
}

TEST_F(ClipboardPanelPickTest, AWatcherDoesNotReportWhatWasPicked) {
    connect(store());
    pick(historyRow("h1"));
    answerText("the text");
    EXPECT_EQ(reportsAfterPolling(), 0U);
    pasteboard.copy("a copy of the person's");
    queue.advance(ClipboardWatcher::kPollInterval);
    EXPECT_EQ(main->events.size(), 1U);
}

TEST_F(ClipboardPanelPickTest, PickingAnImageOffersItAsItIsAndAsPng) {
    codec.answerTypeWith(pasteboard_type::kJpeg);
    codec.answerPngWith(bytes("png"));
    connect(store());
    pick(imageRow("i1"));
    answerImage(bytes("jpeg"));
    EXPECT_EQ(picks, 1);
    EXPECT_THAT(codec.pngCalls(), IsEmpty()) << "nobody has asked for it";
    std::vector<std::optional<Bytes>> read;
    for (const char* type : {pasteboard_type::kJpeg, pasteboard_type::kPng, pasteboard_type::kPng})
        pasteboard.data(type, [&read](auto data) { read.push_back(std::move(data)); });
    queue.runUntilIdle();
    EXPECT_THAT(read, ElementsAre(bytes("jpeg"), bytes("png"), bytes("png")));
    EXPECT_THAT(codec.pngCalls(), ElementsAre(bytes("jpeg"))) << "once";
    EXPECT_EQ(pasteboard.contents().text, std::nullopt);
    EXPECT_EQ(reportsAfterPolling(), 0U);
    EXPECT_THAT(asked(), Contains("entry.use"));
}

TEST_F(ClipboardPanelPickTest, APngIsOfferedAsItIs) {
    codec.answerTypeWith(pasteboard_type::kPng);
    connect(store());
    pick(imageRow("i1"));
    answerImage(bytes("png"));
    ASSERT_EQ(pasteboard.contents().data.size(), 1U);
    EXPECT_EQ(pasteboard.contents().data.front().type, pasteboard_type::kPng);
    EXPECT_FALSE(pasteboard.contents().promise);
}

TEST_F(ClipboardPanelPickTest, AnImageOfAFormatWithoutATypeIsOfferedAsPngAlone) {
    codec.answerTypeWith(pasteboard_type::kAnyImage);
    codec.answerPngWith(bytes("png"));
    connect(store());
    pick(imageRow("i1"));
    answerImage(bytes("webp"));
    ASSERT_EQ(pasteboard.contents().data.size(), 1U);
    EXPECT_EQ(pasteboard.contents().data.front().bytes, bytes("png"));
}

TEST_F(ClipboardPanelPickTest, AnImageWithoutBytesClearsThePasteboardAndTheWatcherKnows) {
    pasteboard.copy("what was there");
    connect(store());
    pick(imageRow("i1"));
    answerImage(std::nullopt);
    EXPECT_EQ(pasteboard.contents().text, std::nullopt);
    EXPECT_THAT(pasteboard.contents().data, IsEmpty());
    EXPECT_EQ(picks, 1);
    EXPECT_EQ(reportsAfterPolling(), 0U);
    EXPECT_EQ(pasteboard.readsOf(MemoryPasteboard::kTypesRead), 0U) << "it was not even looked at";
    EXPECT_THAT(asked(), Contains("entry.use"));
}

TEST_F(ClipboardPanelPickTest, AnImageThatCannotBeReadClearsThePasteboard) {
    codec.answerTypeWith(std::nullopt);
    pasteboard.copy("what was there");
    connect(store());
    pick(imageRow("i1"));
    answerImage(bytes("no image"));
    EXPECT_EQ(pasteboard.contents().text, std::nullopt);
    EXPECT_THAT(pasteboard.contents().data, IsEmpty());
    EXPECT_EQ(picks, 1);
}

TEST_F(ClipboardPanelPickTest, OfTwoPicksTheLaterOneStaysThoughTheFirstIsSlow) {
    codec.answerTypeWith(pasteboard_type::kJpeg);
    connect(store());
    model->pick(imageRow("i1"));
    pick(historyRow("h1"));
    worker.hold(true);
    answerImage(bytes("jpeg"));
    answerText("the later one");
    worker.hold(false);
    queue.runUntilIdle();
    EXPECT_THAT(pasteboard.contents().text, Optional(std::string("the later one")));
    EXPECT_EQ(picks, 2);
}

TEST_F(ClipboardPanelPickTest, PickingWithoutALinkFinishesAtOnceAndWritesNothing) {
    pasteboard.copy("what was there");
    model->pick(historyRow("h1"));
    EXPECT_EQ(picks, 1);
    queue.runUntilIdle();
    EXPECT_EQ(picks, 1);
    EXPECT_THAT(pasteboard.writes(), IsEmpty());
}

TEST_F(ClipboardPanelPickTest, ARefusedPickFinishesAndLeavesThePasteboardAlone) {
    connect(store());
    pick(historyRow("h1"));
    refuse("entry.payload", "not_found", "No such entry");
    EXPECT_EQ(picks, 1);
    EXPECT_THAT(pasteboard.writes(), IsEmpty());
    EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(ClipboardPanelPickTest, APickThatIsNeverAnsweredFinishesOnceAndALateAnswerDoesNothing) {
    connect(store());
    pick(historyRow("h1"));
    queue.advance(5s - 1ms);
    EXPECT_EQ(picks, 0);
    queue.advance(1ms);
    EXPECT_EQ(picks, 1);
    answerText("too late");
    EXPECT_EQ(picks, 1);
    EXPECT_THAT(pasteboard.writes(), IsEmpty());
}

TEST_F(ClipboardPanelPickTest, ASecondAnswerToAPickDoesNothing) {
    connect(store());
    pick(historyRow("h1"));
    const auto request = take("entry.payload");
    for (const char* text : {"first", "second"})
        replyText(request, text);
    EXPECT_EQ(picks, 1);
    EXPECT_EQ(pasteboard.writes().size(), 1U);
}

TEST_F(ClipboardPanelPickTest, ALinkThatClosesInThePickFinishesIt) {
    connect(store());
    pick(historyRow("h1"));
    disconnect();
    EXPECT_EQ(picks, 1);
    EXPECT_THAT(pasteboard.writes(), IsEmpty());
}

TEST_F(ClipboardPanelPickTest, APasteboardThatCannotBeTakenFinishesThePick) {
    pasteboard.refuseWrites(true);
    connect(store());
    pick(historyRow("h1"));
    answerText("the text");
    EXPECT_EQ(picks, 1);
}

TEST_F(ClipboardPanelPickTest, AnAnswerToAPickOnceTheModelIsGoneIsDropped) {
    connect(store());
    pick(historyRow("h1"));
    model.reset();
    answerText("the text");
    EXPECT_THAT(pasteboard.writes(), IsEmpty());
}

TEST_F(ClipboardPanelPickTest, WithoutACallbackAPickJustEnds) {
    model->onPick = nullptr;
    model->pick(historyRow("h1"));
    connect(store());
    pick(historyRow("h1"));
    answerText("the text");
    EXPECT_EQ(pasteboard.writes().size(), 1U);
}

TEST_F(ClipboardPanelPickTest, ASnapshotInTheMiddleOfAPickDoesNotDisturbIt) {
    connect(store());
    model->setShowFavorites(false);
    pick(model->visibleRows()[0]);
    sendSnapshot({});
    answerText("the text");
    EXPECT_EQ(picks, 1);
    EXPECT_EQ(pasteboard.writes().size(), 1U);
}

} // namespace
} // namespace vexil
