// SPDX-License-Identifier: Apache-2.0
#include "panel/panel_fixture.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

const ClipboardCategory kWork = categoryOf("work");
const ClipboardCategory kHome = categoryOf("home");

ClipboardStoreSnapshot threeAndThree() {
    return {.revision = 1,
            .history = {historyRow("h1"), historyRow("h2"), historyRow("h3")},
            .favorites = {favoriteRow("f1", kWork.id), favoriteRow("f2"), favoriteRow("f3", kHome.id)},
            .categories = {kWork, kHome}};
}

ClipboardStoreSnapshot withoutCategories() {
    ClipboardStoreSnapshot snapshot = threeAndThree();
    snapshot.categories.clear();
    return snapshot;
}

class ClipboardPanelModelTest : public PanelFixture {};

// Construction and the tab.

TEST_F(ClipboardPanelModelTest, BeginsEmptyWithTheFocusOnTheSearchField) {
    EXPECT_THAT(previewsOf(model->history()), IsEmpty());
    EXPECT_THAT(previewsOf(model->favorites()), IsEmpty());
    EXPECT_THAT(model->categories(), IsEmpty());
    EXPECT_FALSE(model->isConnected());
    EXPECT_EQ(model->query(), "");
    EXPECT_EQ(model->selectedCategoryID(), std::nullopt);
    EXPECT_EQ(model->focus(), PanelFocus::search());
    EXPECT_EQ(model->favoriteCandidate(), std::nullopt);
    EXPECT_EQ(model->editingRow(), std::nullopt);
    EXPECT_EQ(model->editingText(), "");
    EXPECT_FALSE(model->isLoadingEdit());
    EXPECT_FALSE(model->isSavingEdit());
    EXPECT_EQ(model->editError(), std::nullopt);
    EXPECT_EQ(model->originalEditingText(), std::nullopt);
    EXPECT_EQ(model->focusToken(), 0);
}

TEST_F(ClipboardPanelModelTest, AFirstLaunchShowsTheFavorites) {
    EXPECT_TRUE(model->showFavorites());
    EXPECT_THAT(defaultsFile->booleans, IsEmpty());
}

TEST_F(ClipboardPanelModelTest, ShowsTheTabOfTheLastRun) {
    defaults.setBoolean(ClipboardPanelModel::kShowsFavoritesKey, false);
    makeModel();
    EXPECT_FALSE(model->showFavorites());
    defaults.setBoolean(ClipboardPanelModel::kShowsFavoritesKey, true);
    makeModel();
    EXPECT_TRUE(model->showFavorites());
}

TEST_F(ClipboardPanelModelTest, AnotherTabIsKeptForTheNextRunAndMovesTheFocusToTheSearchField) {
    connect(threeAndThree());
    ASSERT_TRUE(model->moveSelection(-1));
    model->setShowFavorites(false);
    EXPECT_FALSE(model->showFavorites());
    EXPECT_EQ(model->focus(), PanelFocus::search());
    EXPECT_THAT(visible(), ElementsAre("h1", "h2", "h3"));
    EXPECT_THAT(MemoryUserDefaults(queue, defaultsFile).boolean("clipboardPanel.showsFavorites"), Optional(false));
}

TEST_F(ClipboardPanelModelTest, TheSameTabAgainWritesNothingAndKeepsTheFocus) {
    connect(threeAndThree());
    ASSERT_TRUE(model->moveSelection(-1));
    const auto focus = model->focus();
    const auto assignments = model->changes().assignments();
    model->setShowFavorites(true);
    EXPECT_EQ(model->focus(), focus);
    EXPECT_THAT(defaultsFile->booleans, IsEmpty());
    EXPECT_EQ(model->changes().assignments(), assignments);
}

TEST_F(ClipboardPanelModelTest, ATabThatCannotBeKeptIsShownAllTheSame) {
    defaultsFile->isWritable = false;
    model->setShowFavorites(false);
    EXPECT_FALSE(model->showFavorites());
}

// Reloading.

TEST_F(ClipboardPanelModelTest, ShowsASnapshotThatWasThereBeforeIt) {
    connect(threeAndThree());
    makeModel();
    EXPECT_TRUE(model->isConnected());
    EXPECT_THAT(previewsOf(model->history()), ElementsAre("h1", "h2", "h3"));
    EXPECT_THAT(previewsOf(model->favorites()), ElementsAre("f1", "f2", "f3"));
    EXPECT_THAT(model->categories(), ElementsAre(kWork, kHome));
}

TEST_F(ClipboardPanelModelTest, FollowsTheSnapshotInItsOrder) {
    connect(threeAndThree());
    EXPECT_THAT(visible(), ElementsAre("f1", "f2", "f3"));
    ClipboardStoreSnapshot next = threeAndThree();
    std::reverse(next.favorites.begin(), next.favorites.end());
    next.history.pop_back();
    sendSnapshot(next);
    EXPECT_THAT(visible(), ElementsAre("f3", "f2", "f1"));
    EXPECT_THAT(previewsOf(model->history()), ElementsAre("h1", "h2"));
}

TEST_F(ClipboardPanelModelTest, AConnectionShowsBeforeItsFirstSnapshot) {
    connect();
    EXPECT_TRUE(model->isConnected());
    EXPECT_THAT(visible(), IsEmpty());
}

TEST_F(ClipboardPanelModelTest, ALostConnectionEmptiesEverything) {
    connect(threeAndThree());
    model->selectCategory(kWork.id);
    disconnect();
    EXPECT_FALSE(model->isConnected());
    EXPECT_THAT(previewsOf(model->history()), IsEmpty());
    EXPECT_THAT(visible(), IsEmpty());
    EXPECT_THAT(model->categories(), IsEmpty());
    EXPECT_EQ(model->selectedCategoryID(), std::nullopt);
}

TEST_F(ClipboardPanelModelTest, QueryTabPopoversAndFocusSurviveAReload) {
    connect(threeAndThree());
    model->setShowFavorites(false);
    model->setQuery("h");
    model->beginEdit(model->history()[0]);
    model->setFavoriteCandidate(model->history()[1]);
    ASSERT_TRUE(model->moveSelection(1));
    sendSnapshot(threeAndThree());
    EXPECT_FALSE(model->showFavorites());
    EXPECT_EQ(model->query(), "h");
    EXPECT_EQ(model->focus(), PanelFocus::row(idOf("h1")));
    EXPECT_EQ(model->editingRow(), historyRow("h1"));
    EXPECT_TRUE(model->isLoadingEdit());
    EXPECT_EQ(model->favoriteCandidate(), historyRow("h2"));
}

TEST_F(ClipboardPanelModelTest, AFocusedRowThatVanishesStopsMatching) {
    connect(withoutCategories());
    ASSERT_TRUE(model->moveSelection(1));
    EXPECT_EQ(selected(), "f1");
    EXPECT_EQ(model->selectedIndex(), 0U);
    ClipboardStoreSnapshot next = withoutCategories();
    next.favorites.erase(next.favorites.begin());
    sendSnapshot(next);
    EXPECT_EQ(model->selectedRowID(), idOf("f1"));
    EXPECT_EQ(model->selectedRow(), nullptr);
    EXPECT_EQ(model->selectedIndex(), std::nullopt);
    sendSnapshot(withoutCategories());
    EXPECT_EQ(selected(), "f1") << "it is back";
}

TEST_F(ClipboardPanelModelTest, ASelectedCategoryThatVanishesIsDropped) {
    connect(threeAndThree());
    model->selectCategory(kWork.id);
    EXPECT_THAT(visible(), ElementsAre("f1"));
    ClipboardStoreSnapshot next = threeAndThree();
    next.categories = {kHome};
    sendSnapshot(next);
    EXPECT_EQ(model->selectedCategoryID(), std::nullopt);
    EXPECT_THAT(visible(), ElementsAre("f1", "f2", "f3"));
}

TEST_F(ClipboardPanelModelTest, ASelectedCategoryThatStaysIsKept) {
    connect(threeAndThree());
    model->selectCategory(kHome.id);
    sendSnapshot(threeAndThree());
    EXPECT_EQ(model->selectedCategoryID(), kHome.id);
}

TEST_F(ClipboardPanelModelTest, OnceItIsGoneTheServersCallbacksDoNothing) {
    model.reset();
    connect(threeAndThree());
    disconnect();
}

TEST_F(ClipboardPanelModelTest, RowsTooManyToCopyAreShownAsTheyAre) {
    ClipboardStoreSnapshot many;
    for (int i = 0; i < 20'000; ++i)
        many.favorites.push_back(favoriteRow("r"));
    connect(many);
    EXPECT_EQ(&model->visibleRows()[7], &server.snapshot()->favorites[7]);
}

// Filtering.

TEST_F(ClipboardPanelModelTest, AnEmptyQueryKeepsEveryRow) {
    connect(threeAndThree());
    EXPECT_THAT(visible(), ElementsAre("f1", "f2", "f3"));
}

TEST_F(ClipboardPanelModelTest, ACategoryKeepsItsOwnRowsAndHidesThoseWithoutOne) {
    connect(threeAndThree());
    model->selectCategory(kHome.id);
    EXPECT_THAT(visible(), ElementsAre("f3"));
    model->selectCategory(std::nullopt);
    EXPECT_THAT(visible(), ElementsAre("f1", "f2", "f3"));
}

TEST_F(ClipboardPanelModelTest, ACategoryDoesNotFilterTheHistory) {
    connect(threeAndThree());
    model->selectCategory(kWork.id);
    model->setShowFavorites(false);
    EXPECT_THAT(visible(), ElementsAre("h1", "h2", "h3"));
    EXPECT_EQ(model->selectedCategoryID(), kWork.id);
}

TEST_F(ClipboardPanelModelTest, AQueryIsSearchedInThePreviewWhateverTheCaseAndNotInTheAlias) {
    ClipboardStoreSnapshot snapshot;
    snapshot.history = {historyRow("r1"), historyRow("r2"), historyRow("r3")};
    snapshot.history[0].preview = "an xabcx inside";
    snapshot.history[1].preview = "nothing of it";
    snapshot.history[1].alias = "abc";
    snapshot.history[2].preview = "ABC";
    connect(snapshot);
    model->setShowFavorites(false);
    model->setQuery("aBC");
    EXPECT_THAT(visible(), ElementsAre("an xabcx inside", "ABC"));
}

TEST_F(ClipboardPanelModelTest, AQueryIsNotTrimmed) {
    ClipboardStoreSnapshot snapshot;
    snapshot.favorites = {favoriteRow("oneword"), favoriteRow("two words")};
    connect(snapshot);
    model->setQuery(" ");
    EXPECT_THAT(visible(), ElementsAre("two words"));
}

TEST_F(ClipboardPanelModelTest, QueryAndCategoryFilterTogether) {
    ClipboardStoreSnapshot snapshot = threeAndThree();
    snapshot.favorites.push_back(favoriteRow("x1", kWork.id));
    connect(snapshot);
    model->setQuery("1");
    EXPECT_THAT(visible(), ElementsAre("f1", "x1"));
    model->selectCategory(kWork.id);
    model->setQuery("X");
    EXPECT_THAT(visible(), ElementsAre("x1"));
}

TEST_F(ClipboardPanelModelTest, AQueryHoldsForTheNextSnapshotAndTheOtherTab) {
    connect(threeAndThree());
    model->setQuery("3");
    EXPECT_THAT(visible(), ElementsAre("f3"));
    sendSnapshot({.revision = 2, .history = {historyRow("3")}, .favorites = {favoriteRow("33")}, .categories = {}});
    EXPECT_THAT(visible(), ElementsAre("33"));
    model->setShowFavorites(false);
    EXPECT_THAT(visible(), ElementsAre("3"));
}

TEST_F(ClipboardPanelModelTest, AnotherQueryMovesTheFocusToTheSearchField) {
    connect(withoutCategories());
    ASSERT_TRUE(model->moveSelection(1));
    model->setQuery("f");
    EXPECT_EQ(model->focus(), PanelFocus::search());
}

TEST_F(ClipboardPanelModelTest, TheSameQueryChangesNothing) {
    connect(withoutCategories());
    model->setQuery("f");
    ASSERT_TRUE(model->moveSelection(1));
    model->setQuery("f");
    EXPECT_EQ(model->focus(), PanelFocus::row(idOf("f1")));
}

// Observation.

TEST_F(ClipboardPanelModelTest, AViewDrawsOnceForAllThatASnapshotChanges) {
    std::vector<PanelFields> told;
    const auto observation = model->observe([&told](const PanelFields& fields) { told.push_back(fields); });
    connect(threeAndThree());
    told.clear();
    sendSnapshot(threeAndThree());
    EXPECT_THAT(told, ElementsAre(PanelFields{PanelField::history, PanelField::favorites, PanelField::categories}));
}

TEST_F(ClipboardPanelModelTest, EveryAssignmentOfAFieldIsTold) {
    const std::vector<std::pair<PanelField, std::function<void()>>> assignments = {
        {PanelField::query, [this] { model->setQuery(model->query()); }},
        {PanelField::focus, [this] { model->setFocus(model->focus()); }},
        {PanelField::favoriteCandidate, [this] { model->setFavoriteCandidate(std::nullopt); }},
        {PanelField::editingText, [this] { model->setEditingText(model->editingText()); }},
        {PanelField::showFavorites, [this] { model->setShowFavorites(!model->showFavorites()); }},
        {PanelField::selectedCategoryID, [this] { model->selectCategory(kWork.id); }},
        {PanelField::focusToken, [this] { model->prepareForShow(); }},
        {PanelField::editingRow, [this] { model->endEdit(); }},
        {PanelField::isConnected, [this] { connect(); }},
        {PanelField::history, [this] { model->reload(); }},
    };
    for (const auto& [field, assign] : assignments) {
        PanelFields told;
        const auto observation = model->observe([&told](const PanelFields& fields) { told = fields; });
        assign();
        queue.runUntilIdle();
        EXPECT_TRUE(told.contains(field)) << static_cast<int>(field);
    }
}

TEST_F(ClipboardPanelModelTest, AnObserverFindsTheModelAsItIsAfterTheWholeTurn) {
    connect(withoutCategories());
    std::vector<std::string> seen;
    const auto observation = model->observe([&](const PanelFields&) { seen = visible(); });
    model->setQuery("f1");
    model->setQuery("f2");
    queue.runUntilIdle();
    EXPECT_THAT(seen, ElementsAre("f2"));
}

} // namespace
} // namespace vexil
