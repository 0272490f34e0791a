// SPDX-License-Identifier: Apache-2.0
// What the panel does to an entry, but for picking it.
#include "panel/panel_fixture.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

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
    [[nodiscard]] const ClipboardRowSummary& row(const PanelRows& rows, const std::string& name) {
        return rows[rows.indexOf(idOf(name)).value()];
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
