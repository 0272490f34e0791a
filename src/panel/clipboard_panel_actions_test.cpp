// SPDX-License-Identifier: Apache-2.0
// What the panel does to an entry.
#include "panel/panel_fixture.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Not;
using testing::Optional;

const ClipboardCategory kWork = categoryOf("work");

ClipboardStoreSnapshot store() {
    return {.revision = 1,
            .history = {historyRow("h1"), historyRow("h2"), imageRow("i1")},
            .favorites = {favoriteRow("h2"), favoriteRow("f1", kWork.id)},
            .categories = {kWork}};
}

ClipboardStoreSnapshot withoutCategories() {
    ClipboardStoreSnapshot snapshot = store();
    snapshot.categories.clear();
    return snapshot;
}

class ClipboardPanelActionsTest : public PanelFixture {
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

    [[nodiscard]] const ClipboardRowSummary& row(const PanelRows& rows, const std::string& name) {
        return rows[rows.indexOf(idOf(name)).value()];
    }

    // What the watcher would report, were it to look now.
    [[nodiscard]] std::size_t reportsAfterPolling() {
        watcher.start();
        queue.advance(ClipboardWatcher::kPollInterval);
        return main->events.size();
    }
};

// Showing the panel.

TEST_F(ClipboardPanelActionsTest, ShowingThePanelResetsWhatIsTransient) {
    connect(store());
    model->setQuery("h");
    model->setFavoriteCandidate(historyRow("h1"));
    model->beginEdit(historyRow("h1"));
    model->setFocus(PanelFocus::row(idOf("h1")));
    model->selectCategory(kWork.id);
    model->prepareForShow();
    EXPECT_EQ(model->query(), "");
    EXPECT_EQ(model->favoriteCandidate(), std::nullopt);
    EXPECT_EQ(model->editingRow(), std::nullopt);
    EXPECT_EQ(model->focus(), PanelFocus::search());
    EXPECT_EQ(model->focusToken(), 1);
    EXPECT_EQ(model->selectedCategoryID(), kWork.id) << "this one stays";
    model->prepareForShow();
    EXPECT_EQ(model->focusToken(), 2);
}

TEST_F(ClipboardPanelActionsTest, ShowingThePanelFetchesTheSnapshotOnlyWhereItIsStale) {
    connect(store());
    model->prepareForShow();
    queue.runUntilIdle();
    EXPECT_THAT(asked(), IsEmpty());
    main->tell(ClipboardLinkMethod::storeChanged);
    model->prepareForShow();
    model->prepareForShow();
    queue.runUntilIdle();
    EXPECT_THAT(asked(), ElementsAre("store.snapshot"));
}

TEST_F(ClipboardPanelActionsTest, ShowingThePanelWithoutALinkAsksNobody) {
    model->prepareForShow();
    queue.runUntilIdle();
    EXPECT_EQ(model->focusToken(), 1);
}

// Picking.

TEST_F(ClipboardPanelActionsTest, PickingATextWritesItReportsItsUseAndIsFinished) {
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

TEST_F(ClipboardPanelActionsTest, APickIsFinishedOnlyOnceThePasteboardHasIt) {
    connect(store());
    std::string atPick;
    model->onPick = [&] { atPick = pasteboard.contents().text.value_or("nothing"); };
    pick(historyRow("h1"));
    answerText("the text");
    EXPECT_EQ(atPick, "the text");
}

TEST_F(ClipboardPanelActionsTest, ATextThatIsAbsentIsWrittenAsEmpty) {
    connect(store());
    pick(historyRow("h1"));
    replyText(take("entry.payload"), std::nullopt);
    EXPECT_THAT(pasteboard.contents().text, Optional(std::string()));
}

TEST_F(ClipboardPanelActionsTest, AWatcherDoesNotReportWhatWasPicked) {
    connect(store());
    pick(historyRow("h1"));
    answerText("the text");
    EXPECT_EQ(reportsAfterPolling(), 0U);
    pasteboard.copy("a copy of the person's");
    queue.advance(ClipboardWatcher::kPollInterval);
    EXPECT_EQ(main->events.size(), 1U);
}

TEST_F(ClipboardPanelActionsTest, PickingAnImageOffersItAsItIsAndAsPng) {
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

TEST_F(ClipboardPanelActionsTest, APngIsOfferedAsItIs) {
    codec.answerTypeWith(pasteboard_type::kPng);
    connect(store());
    pick(imageRow("i1"));
    answerImage(bytes("png"));
    ASSERT_EQ(pasteboard.contents().data.size(), 1U);
    EXPECT_EQ(pasteboard.contents().data.front().type, pasteboard_type::kPng);
    EXPECT_FALSE(pasteboard.contents().promise);
}

TEST_F(ClipboardPanelActionsTest, AnImageOfAFormatWithoutATypeIsOfferedAsPngAlone) {
    codec.answerTypeWith(pasteboard_type::kAnyImage);
    codec.answerPngWith(bytes("png"));
    connect(store());
    pick(imageRow("i1"));
    answerImage(bytes("webp"));
    ASSERT_EQ(pasteboard.contents().data.size(), 1U);
    EXPECT_EQ(pasteboard.contents().data.front().bytes, bytes("png"));
}

TEST_F(ClipboardPanelActionsTest, AnImageWithoutBytesClearsThePasteboardAndTheWatcherKnows) {
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

TEST_F(ClipboardPanelActionsTest, AnImageThatCannotBeReadClearsThePasteboard) {
    codec.answerTypeWith(std::nullopt);
    pasteboard.copy("what was there");
    connect(store());
    pick(imageRow("i1"));
    answerImage(bytes("no image"));
    EXPECT_EQ(pasteboard.contents().text, std::nullopt);
    EXPECT_THAT(pasteboard.contents().data, IsEmpty());
    EXPECT_EQ(picks, 1);
}

TEST_F(ClipboardPanelActionsTest, OfTwoPicksTheLaterOneStaysThoughTheFirstIsSlow) {
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

TEST_F(ClipboardPanelActionsTest, PickingWithoutALinkFinishesAtOnceAndWritesNothing) {
    pasteboard.copy("what was there");
    model->pick(historyRow("h1"));
    EXPECT_EQ(picks, 1);
    queue.runUntilIdle();
    EXPECT_EQ(picks, 1);
    EXPECT_THAT(pasteboard.writes(), IsEmpty());
}

TEST_F(ClipboardPanelActionsTest, ARefusedPickFinishesAndLeavesThePasteboardAlone) {
    connect(store());
    pick(historyRow("h1"));
    refuse("entry.payload", "not_found", "No such entry");
    EXPECT_EQ(picks, 1);
    EXPECT_THAT(pasteboard.writes(), IsEmpty());
    EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(ClipboardPanelActionsTest, APickThatIsNeverAnsweredFinishesOnceAndALateAnswerDoesNothing) {
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

TEST_F(ClipboardPanelActionsTest, ASecondAnswerToAPickDoesNothing) {
    connect(store());
    pick(historyRow("h1"));
    const auto request = take("entry.payload");
    for (const char* text : {"first", "second"})
        replyText(request, text);
    EXPECT_EQ(picks, 1);
    EXPECT_EQ(pasteboard.writes().size(), 1U);
}

TEST_F(ClipboardPanelActionsTest, ALinkThatClosesInThePickFinishesIt) {
    connect(store());
    pick(historyRow("h1"));
    disconnect();
    EXPECT_EQ(picks, 1);
    EXPECT_THAT(pasteboard.writes(), IsEmpty());
}

TEST_F(ClipboardPanelActionsTest, APasteboardThatCannotBeTakenFinishesThePick) {
    pasteboard.refuseWrites(true);
    connect(store());
    pick(historyRow("h1"));
    answerText("the text");
    EXPECT_EQ(picks, 1);
}

TEST_F(ClipboardPanelActionsTest, AnAnswerToAPickOnceTheModelIsGoneIsDropped) {
    connect(store());
    pick(historyRow("h1"));
    model.reset();
    answerText("the text");
    EXPECT_THAT(pasteboard.writes(), IsEmpty());
}

TEST_F(ClipboardPanelActionsTest, WithoutACallbackAPickJustEnds) {
    model->onPick = nullptr;
    model->pick(historyRow("h1"));
    connect(store());
    pick(historyRow("h1"));
    answerText("the text");
    EXPECT_EQ(pasteboard.writes().size(), 1U);
}

TEST_F(ClipboardPanelActionsTest, ASnapshotInTheMiddleOfAPickDoesNotDisturbIt) {
    connect(store());
    model->setShowFavorites(false);
    pick(model->visibleRows()[0]);
    sendSnapshot({});
    answerText("the text");
    EXPECT_EQ(picks, 1);
    EXPECT_EQ(pasteboard.writes().size(), 1U);
}

// Deleting.

TEST_F(ClipboardPanelActionsTest, DeletingTakesTheRowOffBothListsAndAsksForIt) {
    connect(store());
    model->setShowFavorites(false);
    model->deleteRow(idOf("h2"));
    EXPECT_THAT(previewsOf(model->history()), ElementsAre("h1", "i1"));
    EXPECT_THAT(previewsOf(model->favorites()), ElementsAre("f1"));
    queue.runUntilIdle();
    EXPECT_EQ(taken<ClipboardEntryRef>("entry.delete"),
              (ClipboardEntryRef{.id = idOf("h2"), .scope = ClipboardScope::history}));
}

TEST_F(ClipboardPanelActionsTest, AnEntryOnBothListsIsDeletedFromTheOneThatIsShown) {
    connect(store());
    model->deleteRow(idOf("h2"));
    queue.runUntilIdle();
    EXPECT_EQ(taken<ClipboardEntryRef>("entry.delete").scope, ClipboardScope::favorites);
    model->deleteRow(idOf("h1"));
    queue.runUntilIdle();
    EXPECT_EQ(taken<ClipboardEntryRef>("entry.delete").scope, ClipboardScope::history) << "it is on that one only";
}

TEST_F(ClipboardPanelActionsTest, DeletingTheFocusedRowMovesTheFocusToTheSearchField) {
    connect(store());
    model->setFocus(PanelFocus::row(idOf("f1")));
    model->deleteRow(idOf("h2"));
    EXPECT_EQ(model->focus(), PanelFocus::row(idOf("f1")));
    EXPECT_EQ(model->selectedIndex(), 0U);
    model->deleteRow(model->selectedRow()->id);
    EXPECT_EQ(model->focus(), PanelFocus::search());
}

TEST_F(ClipboardPanelActionsTest, DeletingARowThatIsGoneAsksForNothing) {
    connect(store());
    model->deleteRow(idOf("gone"));
    queue.runUntilIdle();
    EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(ClipboardPanelActionsTest, ADeletionThatIsRefusedIsUndoneByTheSnapshot) {
    connect(store());
    model->deleteRow(idOf("f1"));
    queue.runUntilIdle();
    refuse("entry.delete", "failed", "The disk is full");
    EXPECT_THAT(visible(), ElementsAre("h2"));
    answer("store.snapshot", store());
    EXPECT_THAT(visible(), ElementsAre("h2", "f1"));
}

TEST_F(ClipboardPanelActionsTest, ASnapshotFromBeforeADeletionBringsTheRowBackUntilTheNext) {
    connect(store());
    model->deleteRow(idOf("f1"));
    sendSnapshot(store());
    EXPECT_THAT(visible(), ElementsAre("h2", "f1"));
}

// Pinning.

TEST_F(ClipboardPanelActionsTest, PinningShowsAtOnceAndAsksForTheNewState) {
    connect(store());
    model->togglePin(model->history()[0]);
    EXPECT_TRUE(row(model->history(), "h1").isPinned);
    queue.runUntilIdle();
    EXPECT_EQ(taken<ClipboardPinRequest>("entry.pin"), (ClipboardPinRequest{.id = idOf("h1"), .isPinned = true}));
    model->togglePin(model->history()[0]);
    EXPECT_FALSE(row(model->history(), "h1").isPinned);
    queue.runUntilIdle();
    EXPECT_FALSE(taken<ClipboardPinRequest>("entry.pin").isPinned);
}

TEST_F(ClipboardPanelActionsTest, PinningAnEntryOnBothListsShowsOnBoth) {
    connect(store());
    model->togglePin(model->history()[1]);
    EXPECT_TRUE(row(model->history(), "h2").isPinned);
    EXPECT_TRUE(row(model->favorites(), "h2").isPinned);
}

TEST_F(ClipboardPanelActionsTest, AFavoriteIsNotPinned) {
    connect(store());
    model->togglePin(model->favorites()[0]);
    queue.advance(1s);
    EXPECT_FALSE(row(model->favorites(), "h2").isPinned);
    EXPECT_FALSE(row(model->history(), "h2").isPinned);
    EXPECT_THAT(asked(), IsEmpty());
}

// Favorites.

TEST_F(ClipboardPanelActionsTest, UnfavoritingShowsAtOnceAndAsksForIt) {
    connect(store());
    model->toggleFavorite(model->favorites()[1]);
    EXPECT_FALSE(row(model->favorites(), "f1").isFavorite);
    EXPECT_EQ(row(model->favorites(), "f1").categoryID, kWork.id);
    queue.runUntilIdle();
    EXPECT_EQ(
        taken<ClipboardFavoriteRequest>("entry.favorite"),
        (ClipboardFavoriteRequest{
            .id = idOf("f1"), .scope = ClipboardScope::favorites, .isFavorite = false, .categoryID = std::nullopt}));
    EXPECT_EQ(model->favoriteCandidate(), std::nullopt);
}

TEST_F(ClipboardPanelActionsTest, FavoritingAsksForACategoryFirst) {
    connect(store());
    model->toggleFavorite(model->history()[0]);
    EXPECT_EQ(model->favoriteCandidate(), historyRow("h1"));
    queue.advance(1s);
    EXPECT_THAT(asked(), IsEmpty());
    model->favorite(*model->favoriteCandidate(), kWork.id);
    EXPECT_EQ(model->favoriteCandidate(), std::nullopt);
    EXPECT_TRUE(row(model->history(), "h1").isFavorite);
    EXPECT_EQ(row(model->history(), "h1").categoryID, kWork.id);
    queue.runUntilIdle();
    EXPECT_EQ(taken<ClipboardFavoriteRequest>("entry.favorite"),
              (ClipboardFavoriteRequest{
                  .id = idOf("h1"), .scope = ClipboardScope::history, .isFavorite = true, .categoryID = kWork.id}));
}

TEST_F(ClipboardPanelActionsTest, WithoutCategoriesFavoritingAsksForNothing) {
    connect(withoutCategories());
    model->toggleFavorite(model->history()[0]);
    EXPECT_EQ(model->favoriteCandidate(), std::nullopt);
    EXPECT_TRUE(row(model->history(), "h1").isFavorite);
    queue.runUntilIdle();
    EXPECT_EQ(taken<ClipboardFavoriteRequest>("entry.favorite").categoryID, std::nullopt);
}

TEST_F(ClipboardPanelActionsTest, AnotherCategoryMovesAFavoriteOutOfTheSelectedOne) {
    connect(store());
    model->selectCategory(kWork.id);
    EXPECT_THAT(visible(), ElementsAre("f1"));
    model->favorite(model->favorites()[1], std::nullopt);
    EXPECT_THAT(visible(), IsEmpty());
}

// Refreshing.

TEST_F(ClipboardPanelActionsTest, EachActionFetchesTheSnapshotALittleLater) {
    const std::vector<std::pair<std::string, std::function<void()>>> actions = {
        {"entry.delete", [this] { model->deleteRow(idOf("h1")); }},
        {"entry.pin", [this] { model->togglePin(model->history()[0]); }},
        {"entry.favorite", [this] { model->favorite(model->history()[0], std::nullopt); }},
        {"entry.favorite", [this] { model->toggleFavorite(model->favorites()[0]); }}};
    connect(store());
    for (const auto& [method, act] : actions) {
        act();
        queue.advance(ClipboardPanelModel::kRefreshDelay - 1ms);
        EXPECT_THAT(asked(), ElementsAre(method));
        answer(method, ClipboardLinkEmpty{});
        queue.advance(1ms);
        EXPECT_THAT(asked(), ElementsAre("store.snapshot")) << method;
        answer("store.snapshot", store());
    }
}

TEST_F(ClipboardPanelActionsTest, RefreshesAreNotGatheredAndDoNotOverlap) {
    connect(store());
    model->scheduleRefresh();
    queue.advance(100ms);
    model->scheduleRefresh();
    queue.advance(200ms);
    EXPECT_THAT(asked(), ElementsAre("store.snapshot"));
    queue.advance(100ms);
    EXPECT_THAT(asked(), ElementsAre("store.snapshot")) << "one is under way";
    answer("store.snapshot", store());
    model->scheduleRefresh();
    queue.advance(300ms);
    EXPECT_THAT(asked(), ElementsAre("store.snapshot"));
}

TEST_F(ClipboardPanelActionsTest, ARefreshOnceTheModelIsGoneDoesNotHappen) {
    connect(store());
    model->scheduleRefresh();
    model.reset();
    queue.advance(1s);
    EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(ClipboardPanelActionsTest, WithoutALinkActionsShowUntilTheNextSnapshot) {
    connect(store());
    main->connection().close();
    main.reset(); // the server has not noticed yet
    model->deleteRow(idOf("h1"));
    model->togglePin(model->history()[0]);
    EXPECT_THAT(previewsOf(model->history()), ElementsAre("h2", "i1"));
    EXPECT_TRUE(model->history()[0].isPinned);
    queue.advance(1s);
    EXPECT_THAT(previewsOf(model->history()), IsEmpty());
    connect(store());
    EXPECT_THAT(previewsOf(model->history()), ElementsAre("h1", "h2", "i1"));
    EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(ClipboardPanelActionsTest, ASnapshotInTheMiddleOfEachActionIsWhatIsShown) {
    connect(store());
    model->togglePin(model->history()[0]);
    model->favorite(model->history()[0], kWork.id);
    model->deleteRow(idOf("h2"));
    sendSnapshot(store());
    EXPECT_THAT(previewsOf(model->history()), ElementsAre("h1", "h2", "i1"));
    EXPECT_EQ(model->history()[0], historyRow("h1"));
    for (const char* method : {"entry.pin", "entry.favorite", "entry.delete"})
        answer(method, ClipboardLinkEmpty{});
    EXPECT_EQ(model->history()[0], historyRow("h1"));
}

} // namespace
} // namespace vexil
