// SPDX-License-Identifier: Apache-2.0
#include "store/database/jpeg_fixture.h"
#include "store/database/store_fixture.h"

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class ClipboardListsTest : public StoreFixture {
protected:
    std::vector<std::string> found(std::string_view wanted) { return previews({.search = std::string(wanted)}); }
};

TEST_F(ClipboardListsTest, FindsIdsByTheirBeginning) {
    const Uuid one = copy("one");
    const Uuid two = copy("two");
    EXPECT_THAT(database.lists().idsStartingWith(one.toString(), 2).value(), ElementsAre(one));
    EXPECT_THAT(database.lists().idsStartingWith("", 9).value(), testing::UnorderedElementsAre(one, two));
    EXPECT_EQ(database.lists().idsStartingWith("", 1)->size(), 1U);
    EXPECT_THAT(database.lists().idsStartingWith("X", 9).value(), IsEmpty());
    EXPECT_THAT(database.lists().idsStartingWith("%", 9).value(), IsEmpty());
    EXPECT_THAT(database.lists().idsStartingWith(one.toString() + "0", 9).value(), IsEmpty());
}

TEST_F(ClipboardListsTest, ListsWhatIsFiledUnderACategory) {
    const Uuid work = addCategory("work");
    const Uuid home = addCategory("home");
    for (const auto& [text, category] : std::vector<std::pair<std::string, std::optional<Uuid>>>{
             {"a", work}, {"b", home}, {"c", work}, {"d", std::nullopt}})
        ASSERT_EQ(database.entries().addToFavorites(copy(text), category).value(), EntryChange::done);
    copy("e");
    const auto scope = ClipboardScope::favorites;
    EXPECT_THAT(previews({.scope = scope, .category = work}), ElementsAre("c", "a"));
    EXPECT_THAT(previews({.category = work}), ElementsAre("c", "a"));
    EXPECT_THAT(previews({.scope = scope, .category = home}), ElementsAre("b"));
    EXPECT_THAT(previews({.scope = scope, .category = Uuid::random()}), IsEmpty());
    EXPECT_THAT(previews({.scope = scope, .category = work, .limit = 1}), ElementsAre("c"));
}

TEST_F(ClipboardListsTest, FindsTextsInAnyCase) {
    copy("The Quick Fox");
    copy("Größe ÄNDERN");
    copy("quick-and-dirty");
    copy("nothing");
    EXPECT_THAT(found("QUICK"), ElementsAre("quick-and-dirty", "The Quick Fox"));
    EXPECT_THAT(found("quick f"), ElementsAre("The Quick Fox"));
    EXPECT_THAT(found("grösse ändern"), ElementsAre("Größe ÄNDERN"));
    EXPECT_THAT(found("groesse"), IsEmpty());
    EXPECT_THAT(found("%"), IsEmpty());
}

TEST_F(ClipboardListsTest, LooksBehindTheEndOfThePreview) {
    copy("begin " + std::string(5000, '.') + " End");
    copy("begin " + std::string(5000, '.') + " \xC3\x84nd\xC3\x89");
    EXPECT_EQ(found(". end").size(), 1U);
    EXPECT_EQ(found("\xC3\xA4NDE\xCC\x81").size(), 1U); // an accent of its own
}

TEST_F(ClipboardListsTest, FindsAliasesAndWhatIsSaidOfAnImage) {
    const Uuid one = copy("one");
    const Uuid image = record(ClipboardKind::image, makeJpeg({640, 480}));
    ASSERT_EQ(database.entries().setAlias(one, "Übersicht").value(), EntryChange::done);
    EXPECT_THAT(found("übers"), ElementsAre("one"));
    EXPECT_EQ(found("640 \xC3\x97 480 PIXELS").size(), 1U);
    ASSERT_EQ(database.entries().setAlias(image, "Picture").value(), EntryChange::done);
    EXPECT_EQ(found("picture").size(), 1U);
    EXPECT_THAT(found("text"), IsEmpty()); // the kind is not part of it
}

TEST_F(ClipboardListsTest, AnEditedTextIsFoundByWhatItIsNow) {
    const Uuid one = copy("einfach");
    ASSERT_EQ(database.entries().setText(one, "ÜBER").value(), EntryChange::done);
    EXPECT_THAT(found("über"), ElementsAre("ÜBER"));
    ASSERT_EQ(database.entries().setText(one, "simple").value(), EntryChange::done);
    EXPECT_THAT(found("über"), IsEmpty());
    EXPECT_THAT(found("SIMPLE"), ElementsAre("simple"));
}

TEST_F(ClipboardListsTest, SearchKeepsToTheListItsOrderAndItsLimit) {
    const Uuid a = copy("x a");
    copy("x b");
    const Uuid c = copy("x c");
    copy("y");
    ASSERT_EQ(database.entries().pin(a, nextSecond()).value(), EntryChange::done);
    ASSERT_EQ(database.entries().addToFavorites(c, std::nullopt).value(), EntryChange::done);
    EXPECT_THAT(found("x"), ElementsAre("x a", "x c", "x b"));
    EXPECT_THAT(previews({.search = "x", .limit = 2}), ElementsAre("x a", "x c"));
    EXPECT_THAT(previews({.scope = ClipboardScope::favorites, .search = "x"}), ElementsAre("x c"));
}

TEST_F(ClipboardListsTest, FindsATextThatHasNoFoldedCopyYet) {
    copy("ÄLTER");
    ASSERT_TRUE(raw.execute("UPDATE contents SET folded = NULL"));
    EXPECT_THAT(found("älter"), ElementsAre("ÄLTER"));
}

TEST_F(ClipboardListsTest, AnEntryIsLookedAtByItsId) {
    const Uuid one = copy("one");
    EXPECT_EQ(database.lists().entry(one).value()->row, newestEntry().row);
    EXPECT_TRUE(database.lists().entry(one).value()->isInHistory);
    ASSERT_EQ(database.entries().addToFavorites(one, std::nullopt).value(), EntryChange::done);
    ASSERT_EQ(database.entries().remove(one, ClipboardScope::history).value(), EntryChange::done);
    const StoredEntry favorite = *database.lists().entry(one).value();
    EXPECT_FALSE(favorite.isInHistory);
    EXPECT_EQ(favorite.row.scope, ClipboardScope::favorites);
    EXPECT_FALSE(database.lists().entry(Uuid::random()).value());
}

TEST_F(ClipboardListsTest, CountsWhatThereIs) {
    EXPECT_EQ(database.lists().counts().value(), StoreCounts{});
    const Uuid one = copy("one");
    copy("three");
    const Bytes jpeg = makeJpeg({8, 8});
    const Uuid image = record(ClipboardKind::image, jpeg);
    ASSERT_EQ(database.entries().pin(one, nextSecond()).value(), EntryChange::done);
    ASSERT_EQ(database.entries().addToFavorites(image, addCategory("work")).value(), EntryChange::done);
    ASSERT_EQ(database.entries().remove(image, ClipboardScope::history).value(), EntryChange::done);
    EXPECT_EQ(
        database.lists().counts().value(),
        (StoreCounts{
            .history = 2, .pinned = 1, .favorites = 1, .images = 1, .categories = 1, .contentBytes = 8 + jpeg.size()}));
}

} // namespace
} // namespace vexil
