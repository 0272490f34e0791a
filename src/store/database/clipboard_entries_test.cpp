// SPDX-License-Identifier: Apache-2.0
#include "store/database/byte_count.h"
#include "store/database/jpeg_fixture.h"
#include "store/database/store_fixture.h"

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Change = EntryChange;
using Mode = StoreDatabase::Mode;

class ClipboardEntriesTest : public StoreFixture {};

TEST_F(ClipboardEntriesTest, TheLatestCopyComesFirst) {
    copy("one");
    copy("two");
    EXPECT_THAT(history(), ElementsAre("two", "one"));
    EXPECT_THAT(previews({.limit = 1}), ElementsAre("two"));
    EXPECT_THAT(favorites(), IsEmpty());
}

TEST_F(ClipboardEntriesTest, AKnownCopyMovesItsEntryToTheTop) {
    const Uuid one = copy("one");
    copy("two");
    EXPECT_EQ(copy("one"), one);
    EXPECT_THAT(history(), ElementsAre("one", "two"));
    const StoredEntry entry = database.lists().entries({.limit = 1})->front();
    EXPECT_EQ(entry.createdAt, Date{800'000'001});
    EXPECT_EQ(entry.row.lastCopiedAt, Date{800'000'003});
}

TEST_F(ClipboardEntriesTest, SaysWhetherACopyWasKnown) {
    EXPECT_EQ(database.entries().record(ClipboardKind::text, bytesOf("a"), nextSecond())->isNew, true);
    EXPECT_EQ(database.entries().record(ClipboardKind::text, bytesOf("a"), nextSecond())->isNew, false);
    EXPECT_EQ(database.entries().record(ClipboardKind::image, bytesOf("a"), nextSecond())->isNew, true);
}

TEST_F(ClipboardEntriesTest, AClockThatWasSetBackDoesNotBuryANewCopy) {
    copy("one");
    now -= 1'000'000;
    copy("two");
    EXPECT_THAT(history(), ElementsAre("two", "one"));
}

TEST_F(ClipboardEntriesTest, KeepsTextAsItIs) {
    const std::string text("  a\0b\r\n\tü \xF0\x9F\x98\x80 \n", 18);
    EXPECT_EQ(textOfEntry(copy(text)), text);
    const std::string large(1'000'000, 'x');
    EXPECT_EQ(textOfEntry(copy(large)), large);
}

TEST_F(ClipboardEntriesTest, KeepsAnImageAsItCameWithAThumbnail) {
    const Bytes jpeg = makeJpeg({640, 480});
    const auto content = database.lists().content(record(ClipboardKind::image, jpeg)).value();
    ASSERT_TRUE(content);
    EXPECT_EQ(content->kind, ClipboardKind::image);
    EXPECT_EQ(content->data, jpeg);
    const StoredEntry entry = database.lists().entries({.limit = 1, .withThumbnails = true})->front();
    EXPECT_EQ(entry.row.kind, ClipboardKind::image);
    EXPECT_EQ(entry.row.preview, "640 × 480 pixels, " + byteCountText(jpeg.size()));
    EXPECT_EQ(entry.size, jpeg.size());
    ASSERT_TRUE(entry.row.thumbnail);
    EXPECT_EQ(jpegSize(*entry.row.thumbnail), (PixelSize{96, 72}));
}

TEST_F(ClipboardEntriesTest, ReopeningFindsEverything) {
    const Uuid one = copy("one");
    const auto revision = database.revision().value();
    database = StoreDatabase::open(file, Mode::existing).value();
    EXPECT_EQ(textOfEntry(one), "one");
    EXPECT_EQ(database.revision().value(), revision);
}

TEST_F(ClipboardEntriesTest, PinnedEntriesComeFirstTheLatestPinLeading) {
    const Uuid one = copy("one");
    const Uuid two = copy("two");
    copy("three");
    EXPECT_EQ(database.entries().pin(one, nextSecond()).value(), Change::done);
    EXPECT_EQ(database.entries().pin(two, nextSecond()).value(), Change::done);
    EXPECT_THAT(history(), ElementsAre("two", "one", "three"));
    EXPECT_EQ(database.entries().pin(two, std::nullopt).value(), Change::done);
    EXPECT_THAT(history(), ElementsAre("one", "three", "two"));
}

TEST_F(ClipboardEntriesTest, FavoritesFollowTheirCategoriesThenTheLatestCopy) {
    const Uuid sooner = addCategory("sooner");
    const Uuid later = addCategory("later");
    for (const auto& [text, category] : std::vector<std::pair<std::string, std::optional<Uuid>>>{
             {"a", later}, {"b", std::nullopt}, {"c", sooner}, {"d", later}})
        EXPECT_EQ(database.entries().addToFavorites(copy(text), category).value(), Change::done);
    EXPECT_THAT(favorites(), ElementsAre("c", "d", "a", "b"));
}

TEST_F(ClipboardEntriesTest, AnUnknownCategoryIsRefused) {
    const Uuid one = copy("one");
    EXPECT_EQ(database.entries().addToFavorites(one, Uuid::random()).value(), Change::noSuchCategory);
    EXPECT_EQ(database.entries().edit(one, std::nullopt, Uuid::random(), std::nullopt).value(), Change::noSuchCategory);
    EXPECT_THAT(favorites(), IsEmpty());
}

TEST_F(ClipboardEntriesTest, AnEntryLeavesOneListAndStaysOnTheOther) {
    const Uuid one = copy("one");
    ASSERT_EQ(database.entries().addToFavorites(one, std::nullopt).value(), Change::done);
    ASSERT_EQ(database.entries().pin(one, nextSecond()).value(), Change::done);
    EXPECT_EQ(database.entries().remove(one, ClipboardScope::history).value(), Change::done);
    EXPECT_THAT(history(), IsEmpty());
    EXPECT_THAT(favorites(), ElementsAre("one"));
    EXPECT_EQ(database.entries().remove(one, ClipboardScope::history).value(), Change::noSuchEntry);
    EXPECT_EQ(database.entries().pin(one, nextSecond()).value(), Change::noSuchEntry);

    EXPECT_EQ(copy("one"), one); // back in the history, not pinned
    EXPECT_EQ(database.entries().remove(one, ClipboardScope::favorites).value(), Change::done);
    EXPECT_THAT(favorites(), IsEmpty());
    const auto rows = database.lists().entries({}).value();
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_FALSE(rows[0].row.isPinned);
    EXPECT_FALSE(rows[0].row.isFavorite);
}

TEST_F(ClipboardEntriesTest, AnEntryOnNoListIsGoneWithItsContent) {
    const Uuid one = copy("one");
    ASSERT_EQ(database.entries().use(one, nextSecond()).value(), Change::done);
    EXPECT_EQ(database.entries().remove(one, ClipboardScope::history).value(), Change::done);
    EXPECT_EQ(textOfEntry(one), "none");
    EXPECT_EQ(raw.number("SELECT (SELECT count(*) FROM contents) + (SELECT count(*) FROM usages)").value(), 0);
    EXPECT_NE(copy("one"), one);
}

TEST_F(ClipboardEntriesTest, RemembersTheLatestHundredUses) {
    const Uuid one = copy("one");
    for (int i = 0; i < 103; ++i)
        ASSERT_EQ(database.entries().use(one, nextSecond()).value(), Change::done);
    EXPECT_EQ(raw.number("SELECT count(*) FROM usages").value(), 100);
    EXPECT_EQ(raw.number("SELECT max(used_at) FROM usages").value(), static_cast<std::int64_t>(now));
}

TEST_F(ClipboardEntriesTest, AnEditSetsAliasAndCategory) {
    const Uuid category = addCategory("work");
    const Uuid one = copy("one");
    EXPECT_EQ(database.entries().edit(one, "first", category, std::nullopt).value(), Change::done);
    const auto edited = database.lists().entries({.limit = 1})->front().row;
    EXPECT_EQ(edited.alias, "first");
    EXPECT_EQ(edited.categoryID, category);
    EXPECT_EQ(textOfEntry(one), "one");
    EXPECT_EQ(database.entries().edit(one, std::nullopt, std::nullopt, std::nullopt).value(), Change::done);
    const auto cleared = database.lists().entries({.limit = 1})->front().row;
    EXPECT_EQ(cleared.alias, std::nullopt);
    EXPECT_EQ(cleared.categoryID, std::nullopt);
}

TEST_F(ClipboardEntriesTest, AnEditedTextIsKnownByItsNewContent) {
    const Uuid one = copy("one");
    copy("two");
    EXPECT_EQ(database.entries().edit(one, std::nullopt, std::nullopt, "edited").value(), Change::done);
    EXPECT_EQ(textOfEntry(one), "edited");
    EXPECT_THAT(history(), ElementsAre("two", "edited"));
    EXPECT_EQ(database.lists().entries({})->back().size, 6U);
    EXPECT_EQ(copy("edited"), one);
    EXPECT_NE(copy("one"), one);
}

TEST_F(ClipboardEntriesTest, AnEditMayRepeatAnotherText) {
    const Uuid one = copy("one");
    const Uuid two = copy("two");
    EXPECT_EQ(database.entries().edit(one, std::nullopt, std::nullopt, "two").value(), Change::done);
    EXPECT_THAT(history(), ElementsAre("two", "two"));
    EXPECT_EQ(copy("two"), two);
}

TEST_F(ClipboardEntriesTest, AnImageHasNoTextToEdit) {
    const Uuid image = record(ClipboardKind::image, makeJpeg({8, 8}));
    EXPECT_EQ(database.entries().edit(image, "name", std::nullopt, "text").value(), Change::notAText);
    EXPECT_EQ(database.lists().entries({.limit = 1})->front().row.alias, std::nullopt);
}

TEST_F(ClipboardEntriesTest, UnknownIdsChangeNothing) {
    copy("one");
    const auto revision = database.revision().value();
    const Uuid unknown = Uuid::random();
    EXPECT_EQ(database.entries().use(unknown, nextSecond()).value(), Change::noSuchEntry);
    EXPECT_EQ(database.entries().pin(unknown, nextSecond()).value(), Change::noSuchEntry);
    EXPECT_EQ(database.entries().addToFavorites(unknown, std::nullopt).value(), Change::noSuchEntry);
    EXPECT_EQ(database.entries().remove(unknown, ClipboardScope::history).value(), Change::noSuchEntry);
    EXPECT_EQ(database.entries().edit(unknown, "a", std::nullopt, "b").value(), Change::noSuchEntry);
    EXPECT_FALSE(database.lists().content(unknown).value());
    EXPECT_EQ(database.revision().value(), revision);
}

TEST_F(ClipboardEntriesTest, EveryChangeRaisesTheRevision) {
    EXPECT_EQ(database.revision().value(), 0);
    const Uuid one = copy("one");
    EXPECT_EQ(database.revision().value(), 1);
    copy("one");
    EXPECT_EQ(database.revision().value(), 2);
    ASSERT_EQ(database.entries().pin(one, nextSecond()).value(), Change::done);
    EXPECT_EQ(database.revision().value(), 3);
}

TEST_F(ClipboardEntriesTest, SetsAndTakesAwayAnAlias) {
    const Uuid one = copy("one");
    EXPECT_EQ(database.entries().setAlias(one, "first").value(), Change::done);
    EXPECT_EQ(newestEntry().row.alias, "first");
    EXPECT_EQ(database.entries().setAlias(one, std::nullopt).value(), Change::done);
    EXPECT_EQ(newestEntry().row.alias, std::nullopt);
    EXPECT_EQ(database.entries().setAlias(Uuid::random(), "x").value(), Change::noSuchEntry);
}

TEST_F(ClipboardEntriesTest, ReplacesATextAndNothingElse) {
    const Uuid one = copy("one");
    ASSERT_EQ(database.entries().setAlias(one, "first").value(), Change::done);
    EXPECT_EQ(database.entries().setText(one, "other").value(), Change::done);
    EXPECT_EQ(textOfEntry(one), "other");
    EXPECT_EQ(newestEntry().row.preview, "other");
    EXPECT_EQ(newestEntry().row.alias, "first");
    EXPECT_EQ(database.entries().setText(record(ClipboardKind::image, makeJpeg({8, 8})), "x").value(),
              Change::notAText);
}

TEST_F(ClipboardEntriesTest, AnEntryLeavesBothListsAtOnce) {
    const Uuid one = copy("one");
    ASSERT_EQ(database.entries().addToFavorites(one, std::nullopt).value(), Change::done);
    EXPECT_EQ(database.entries().removeEverywhere(one).value(), Change::done);
    EXPECT_EQ(textOfEntry(one), "none");
    EXPECT_EQ(database.entries().removeEverywhere(one).value(), Change::noSuchEntry);
}

TEST_F(ClipboardEntriesTest, ClearingTheHistoryKeepsWhatIsPinnedOrAFavorite) {
    const Uuid pinned = copy("pinned");
    const Uuid favorite = copy("favorite");
    copy("one");
    copy("two");
    ASSERT_EQ(database.entries().pin(pinned, nextSecond()).value(), Change::done);
    ASSERT_EQ(database.entries().addToFavorites(favorite, addCategory("work")).value(), Change::done);
    const auto before = revision();
    EXPECT_EQ(database.entries().clear(ClipboardEntries::Clear::history).value(), 2U);
    EXPECT_THAT(history(), ElementsAre("pinned", "favorite"));
    EXPECT_THAT(favorites(), ElementsAre("favorite"));
    EXPECT_EQ(revision(), before + 1);
    EXPECT_EQ(database.entries().clear(ClipboardEntries::Clear::history).value(), 0U);
    EXPECT_EQ(revision(), before + 1);
    EXPECT_EQ(database.entries().clear(ClipboardEntries::Clear::everything).value(), 2U);
    EXPECT_THAT(history(), IsEmpty());
    EXPECT_THAT(favorites(), IsEmpty());
    EXPECT_EQ(database.categories().list()->size(), 1U);
}

class HistoryLimitTest : public StoreFixture {
protected:
    HistoryLimitTest() { EXPECT_TRUE(database.entries().setHistoryLimit(3)); }
    // Counted anew, against what the triggers counted.
    void expectCounted() {
        EXPECT_EQ(raw.number("SELECT loose_entries FROM store").value(),
                  raw.number("SELECT count(*) FROM entries WHERE in_history AND pinned_at IS NULL AND NOT is_favorite")
                      .value());
    }
};

TEST_F(HistoryLimitTest, IsAThousandUnlessItIsSet) {
    auto other = StoreDatabase::open(scratch.path() / "other.db", StoreDatabase::Mode::createIfMissing).value();
    EXPECT_EQ(other.entries().historyLimit().value(), 1000U);
    EXPECT_TRUE(other.entries().setHistoryLimit(9'999'999));
    EXPECT_EQ(other.entries().historyLimit().value(), ClipboardEntries::kMaxHistoryLimit);
}

TEST_F(HistoryLimitTest, TheOldestCopyFallsOutWithItsContent) {
    for (const char* text : {"a", "b", "c", "d", "e"})
        copy(text);
    EXPECT_THAT(history(), ElementsAre("e", "d", "c"));
    EXPECT_EQ(raw.number("SELECT count(*) FROM contents").value(), 3);
    copy("c");
    copy("f");
    EXPECT_THAT(history(), ElementsAre("f", "c", "e"));
    expectCounted();
}

TEST_F(HistoryLimitTest, PinnedAndFavoriteEntriesNeverFallOutAndDoNotCount) {
    const Uuid pinned = copy("pinned");
    const Uuid favorite = copy("favorite");
    const Uuid both = copy("both");
    auto entries = database.entries();
    for (const Uuid& id : {pinned, both})
        ASSERT_EQ(entries.pin(id, nextSecond()).value(), Change::done);
    for (const Uuid& id : {favorite, both})
        ASSERT_EQ(entries.addToFavorites(id, std::nullopt).value(), Change::done);
    for (const char* text : {"a", "b", "c", "d"})
        copy(text);
    EXPECT_THAT(history(), ElementsAre("both", "pinned", "d", "c", "b", "favorite"));
    expectCounted();
    ASSERT_EQ(entries.remove(favorite, ClipboardScope::history).value(), Change::done);
    ASSERT_EQ(entries.remove(both, ClipboardScope::favorites).value(), Change::done);
    expectCounted();
    copy("favorite"); // is back in the history
    copy("e");
    EXPECT_THAT(history(), ElementsAre("both", "pinned", "e", "favorite", "d", "c"));
    expectCounted();
}

TEST_F(HistoryLimitTest, WhatIsLetLooseStaysUntilTheNextCopy) {
    const Uuid old = copy("old");
    ASSERT_EQ(database.entries().pin(old, nextSecond()).value(), Change::done);
    for (const char* text : {"a", "b", "c"})
        copy(text);
    ASSERT_EQ(database.entries().pin(old, std::nullopt).value(), Change::done);
    EXPECT_THAT(history(), ElementsAre("c", "b", "a", "old"));
    copy("d");
    EXPECT_THAT(history(), ElementsAre("d", "c", "b"));
    expectCounted();
}

TEST_F(HistoryLimitTest, ALowerLimitHoldsAtOnce) {
    for (const char* text : {"a", "b", "c"})
        copy(text);
    const auto before = revision();
    ASSERT_TRUE(database.entries().setHistoryLimit(3));
    EXPECT_EQ(revision(), before);
    ASSERT_TRUE(database.entries().setHistoryLimit(1));
    EXPECT_THAT(history(), ElementsAre("c"));
    EXPECT_EQ(revision(), before + 1);
    expectCounted();
}

TEST_F(HistoryLimitTest, HoldsForOtherProcessesToo) {
    auto other = StoreDatabase::open(file, StoreDatabase::Mode::existing).value();
    EXPECT_EQ(other.entries().historyLimit().value(), 3U);
    for (const char* text : {"a", "b", "c", "d"})
        ASSERT_TRUE(other.entries().record(ClipboardKind::text, bytesOf(text), nextSecond()));
    EXPECT_THAT(history(), ElementsAre("d", "c", "b"));
}

TEST_F(ClipboardEntriesTest, TwoProcessesSeeEachOthersChanges) {
    auto other = StoreDatabase::open(file, Mode::existing).value();
    copy("one");
    EXPECT_EQ(other.lists().entries({})->size(), 1U);
    ASSERT_TRUE(other.entries().record(ClipboardKind::text, bytesOf("two"), nextSecond()));
    EXPECT_THAT(history(), ElementsAre("two", "one"));
}

} // namespace
} // namespace vexil
