// SPDX-License-Identifier: Apache-2.0
// Where the keys lead: among the rows, the search field and the categories.
#include "panel/panel_fixture.h"

namespace vexil {
namespace {

using testing::ElementsAre;

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

class ClipboardPanelNavigationTest : public PanelFixture {
protected:
    std::vector<bool> move(std::initializer_list<int> deltas) {
        std::vector<bool> used;
        for (const int delta : deltas)
            used.push_back(model->moveSelection(delta));
        return used;
    }
};

// The category bar.

TEST_F(ClipboardPanelNavigationTest, TheCategoryBarIsShownOnFavoritesWithCategories) {
    EXPECT_FALSE(model->showsCategoryBar());
    connect(threeAndThree());
    EXPECT_TRUE(model->showsCategoryBar());
    model->setShowFavorites(false);
    EXPECT_FALSE(model->showsCategoryBar());
}

TEST_F(ClipboardPanelNavigationTest, SelectingACategoryTakesTheFocusFromARowOnly) {
    connect(threeAndThree());
    ASSERT_TRUE(model->moveSelection(-1));
    model->selectCategory(kWork.id);
    EXPECT_EQ(model->focus(), PanelFocus::categories());
    model->setFocus(PanelFocus::search());
    model->selectCategory(kHome.id);
    EXPECT_EQ(model->focus(), PanelFocus::search());
    ASSERT_TRUE(model->moveSelection(-1));
    const auto focus = model->focus();
    model->selectCategory(kHome.id);
    EXPECT_EQ(model->focus(), focus) << "it was selected";
}

TEST_F(ClipboardPanelNavigationTest, StepsThroughTheCategoriesWithoutWrappingAround) {
    connect(threeAndThree());
    std::vector<std::optional<Uuid>> seen;
    for (const int delta : {-1, 1, 1, 1, -1, -1, -1}) {
        model->moveCategory(delta);
        seen.push_back(model->selectedCategoryID());
    }
    const std::optional<Uuid> all;
    EXPECT_THAT(seen, ElementsAre(all, kWork.id, kHome.id, kHome.id, kWork.id, all, all));
}

TEST_F(ClipboardPanelNavigationTest, StepsFromACategoryThatDoesNotExistToAll) {
    connect(threeAndThree());
    model->selectCategory(idOf("gone"));
    model->moveCategory(1);
    EXPECT_EQ(model->selectedCategoryID(), std::nullopt);
}

// Moving the focus.

TEST_F(ClipboardPanelNavigationTest, UpFromTheFirstRowGoesToTheCategoriesToTheSearchFieldAndToTheLastRow) {
    connect(threeAndThree());
    model->setFocus(PanelFocus::row(idOf("f1")));
    EXPECT_TRUE(model->moveSelection(-1));
    EXPECT_EQ(model->focus(), PanelFocus::categories());
    EXPECT_TRUE(model->moveSelection(-1));
    EXPECT_EQ(model->focus(), PanelFocus::search());
    EXPECT_TRUE(model->moveSelection(-1));
    EXPECT_EQ(model->focus(), PanelFocus::row(idOf("f3")));
}

TEST_F(ClipboardPanelNavigationTest, DownFromTheSearchFieldGoesThroughTheCategoriesToEachRow) {
    connect(threeAndThree());
    EXPECT_TRUE(model->moveSelection(1));
    EXPECT_EQ(model->focus(), PanelFocus::categories());
    for (const char* row : {"f1", "f2", "f3"}) {
        EXPECT_TRUE(model->moveSelection(1));
        EXPECT_EQ(selected(), row);
    }
}

TEST_F(ClipboardPanelNavigationTest, WithoutACategoryBarTheRowsFollowTheSearchField) {
    connect(withoutCategories());
    EXPECT_THAT(move({1, -1}), ElementsAre(true, true));
    EXPECT_EQ(model->focus(), PanelFocus::search());
    model->setShowFavorites(false);
    EXPECT_THAT(move({1, 1}), ElementsAre(true, true));
    EXPECT_EQ(selected(), "h2");
}

TEST_F(ClipboardPanelNavigationTest, DownOnTheLastRowStaysAndUsesTheKey) {
    connect(withoutCategories());
    EXPECT_THAT(move({-1, 1, 1}), ElementsAre(true, true, true));
    EXPECT_EQ(selected(), "f3");
    EXPECT_EQ(model->selectedIndex(), 2U);
}

TEST_F(ClipboardPanelNavigationTest, AnEmptyListLeavesTheKeyAlone) {
    EXPECT_THAT(move({1, -1}), ElementsAre(false, false));
    model->setFocus(PanelFocus::row(idOf("gone")));
    EXPECT_THAT(move({1, -1}), ElementsAre(false, false));
    EXPECT_EQ(model->focus(), PanelFocus::row(idOf("gone")));
}

TEST_F(ClipboardPanelNavigationTest, AnEmptyCategoryLeavesTheKeyAloneOnTheWayDownOnly) {
    ClipboardStoreSnapshot snapshot = threeAndThree();
    snapshot.favorites.clear();
    connect(snapshot);
    EXPECT_THAT(move({1, 1}), ElementsAre(true, false));
    EXPECT_EQ(model->focus(), PanelFocus::categories());
    EXPECT_THAT(move({-1, -1}), ElementsAre(true, false));
}

TEST_F(ClipboardPanelNavigationTest, AFocusedRowThatIsNotVisibleEntersTheListAnew) {
    connect(withoutCategories());
    model->setFocus(PanelFocus::row(idOf("gone")));
    EXPECT_TRUE(model->moveSelection(1));
    EXPECT_EQ(selected(), "f1");
    model->setFocus(PanelFocus::row(idOf("h1")));
    EXPECT_EQ(model->selectedRow(), nullptr) << "it is on the other tab";
    EXPECT_TRUE(model->moveSelection(-1));
    EXPECT_EQ(selected(), "f3");
}

TEST_F(ClipboardPanelNavigationTest, MovesAmongTheRowsThatTheQueryLeaves) {
    ClipboardStoreSnapshot snapshot;
    for (const char* name : {"a1", "b1", "a2", "b2", "a3"})
        snapshot.favorites.push_back(favoriteRow(name));
    connect(snapshot);
    model->setQuery("a");
    EXPECT_THAT(move({1, 1}), ElementsAre(true, true));
    EXPECT_EQ(selected(), "a2");
    EXPECT_THAT(move({1, 1}), ElementsAre(true, true));
    EXPECT_EQ(selected(), "a3");
}

TEST_F(ClipboardPanelNavigationTest, ARowThatMovesIsFollowedByItsId) {
    connect(withoutCategories());
    ASSERT_TRUE(model->moveSelection(1));
    ClipboardStoreSnapshot next = withoutCategories();
    std::rotate(next.favorites.begin(), next.favorites.begin() + 1, next.favorites.end());
    sendSnapshot(next);
    EXPECT_EQ(model->selectedIndex(), 2U);
    EXPECT_TRUE(model->moveSelection(-1));
    EXPECT_EQ(selected(), "f3");
}

} // namespace
} // namespace vexil
