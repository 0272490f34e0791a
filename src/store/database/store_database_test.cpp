// SPDX-License-Identifier: Apache-2.0
#include "store/database/byte_count.h"
#include "store/database/jpeg_fixture.h"
#include "store/database/scratch_folder_fixture.h"
#include "store/database/store_database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Change = EntryChange;
using Mode = StoreDatabase::Mode;

constexpr std::size_t kAll = 1'000'000;

class StoreDatabaseTest : public testing::Test {
protected:
    // A second later than the copy before.
    Uuid copy(std::string_view text) {
        const auto recorded = database.entries().record(ClipboardKind::text, bytesOf(text), nextSecond());
        EXPECT_TRUE(recorded) << recorded.error().sentence;
        return newest();
    }

    Date nextSecond() { return Date{++now}; }

    Uuid newest() { return rawId("SELECT id FROM entries ORDER BY copied_revision DESC LIMIT 1"); }

    Uuid rawId(std::string_view sql) {
        auto statement = raw.prepare(sql);
        EXPECT_TRUE(statement && *statement->step());
        return statement->id(0).value_or(Uuid());
    }

    Uuid addCategory(std::string_view name, int order) {
        const Uuid id = Uuid::random();
        EXPECT_TRUE(raw.run("INSERT INTO categories VALUES (?, ?, 'red', ?)", id, name, order));
        return id;
    }

    std::vector<std::string> previews(ClipboardScope scope, std::size_t limit = kAll) {
        std::vector<std::string> previews;
        const auto entries = database.lists().entries({.scope = scope, .limit = limit}).value();
        for (const auto& entry : entries)
            previews.push_back(entry.row.preview);
        return previews;
    }
    std::vector<std::string> history() { return previews(ClipboardScope::history); }
    std::vector<std::string> favorites() { return previews(ClipboardScope::favorites); }

    std::string textOfEntry(const Uuid& id) {
        const auto content = database.lists().content(id).value();
        return content ? std::string(textOf(content->data)) : "none";
    }

    ScratchFolder scratch;
    std::filesystem::path file = scratch.path() / "store.db";
    StoreDatabase database = StoreDatabase::open(file, Mode::createIfMissing).value();
    SqliteConnection raw = SqliteConnection::open(file, Mode::existing).value(); // what another program would see
    double now = 800'000'000;
};

TEST_F(StoreDatabaseTest, TheLatestCopyComesFirst) {
    copy("one");
    copy("two");
    EXPECT_THAT(history(), ElementsAre("two", "one"));
    EXPECT_THAT(previews(ClipboardScope::history, 1), ElementsAre("two"));
    EXPECT_THAT(favorites(), IsEmpty());
}

TEST_F(StoreDatabaseTest, AKnownCopyMovesItsEntryToTheTop) {
    const Uuid one = copy("one");
    copy("two");
    EXPECT_EQ(copy("one"), one);
    EXPECT_THAT(history(), ElementsAre("one", "two"));
    const StoredEntry entry = database.lists().entries({.limit = 1})->front();
    EXPECT_EQ(entry.createdAt, Date{800'000'001});
    EXPECT_EQ(entry.row.lastCopiedAt, Date{800'000'003});
}

TEST_F(StoreDatabaseTest, SaysWhetherACopyWasKnown) {
    EXPECT_EQ(database.entries().record(ClipboardKind::text, bytesOf("a"), nextSecond())->isNew, true);
    EXPECT_EQ(database.entries().record(ClipboardKind::text, bytesOf("a"), nextSecond())->isNew, false);
    EXPECT_EQ(database.entries().record(ClipboardKind::image, bytesOf("a"), nextSecond())->isNew, true);
}

TEST_F(StoreDatabaseTest, AClockThatWasSetBackDoesNotBuryANewCopy) {
    copy("one");
    now -= 1'000'000;
    copy("two");
    EXPECT_THAT(history(), ElementsAre("two", "one"));
}

TEST_F(StoreDatabaseTest, KeepsTextAsItIs) {
    const std::string text("  a\0b\r\n\tü \xF0\x9F\x98\x80 \n", 18);
    EXPECT_EQ(textOfEntry(copy(text)), text);
    const std::string large(1'000'000, 'x');
    EXPECT_EQ(textOfEntry(copy(large)), large);
}

TEST_F(StoreDatabaseTest, KeepsAnImageAsItCameWithAThumbnail) {
    const Bytes jpeg = makeJpeg({640, 480});
    ASSERT_TRUE(database.entries().record(ClipboardKind::image, jpeg, nextSecond()));
    const auto content = database.lists().content(newest()).value();
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

TEST_F(StoreDatabaseTest, ReopeningFindsEverything) {
    const Uuid one = copy("one");
    const auto revision = database.revision().value();
    database = StoreDatabase::open(file, Mode::existing).value();
    EXPECT_EQ(textOfEntry(one), "one");
    EXPECT_EQ(database.revision().value(), revision);
}

TEST_F(StoreDatabaseTest, PinnedEntriesComeFirstTheLatestPinLeading) {
    const Uuid one = copy("one");
    const Uuid two = copy("two");
    copy("three");
    EXPECT_EQ(database.entries().pin(one, nextSecond()).value(), Change::done);
    EXPECT_EQ(database.entries().pin(two, nextSecond()).value(), Change::done);
    EXPECT_THAT(history(), ElementsAre("two", "one", "three"));
    EXPECT_EQ(database.entries().pin(two, std::nullopt).value(), Change::done);
    EXPECT_THAT(history(), ElementsAre("one", "three", "two"));
}

TEST_F(StoreDatabaseTest, FavoritesFollowTheirCategoriesThenTheLatestCopy) {
    const Uuid later = addCategory("later", 2);
    const Uuid sooner = addCategory("sooner", 1);
    for (const auto& [text, category] : std::vector<std::pair<std::string, std::optional<Uuid>>>{
             {"a", later}, {"b", std::nullopt}, {"c", sooner}, {"d", later}})
        EXPECT_EQ(database.entries().addToFavorites(copy(text), category).value(), Change::done);
    EXPECT_THAT(favorites(), ElementsAre("c", "d", "a", "b"));
}

TEST_F(StoreDatabaseTest, AnUnknownCategoryIsRefused) {
    const Uuid one = copy("one");
    EXPECT_EQ(database.entries().addToFavorites(one, Uuid::random()).value(), Change::noSuchCategory);
    EXPECT_EQ(database.entries().edit(one, std::nullopt, Uuid::random(), std::nullopt).value(), Change::noSuchCategory);
    EXPECT_THAT(favorites(), IsEmpty());
}

TEST_F(StoreDatabaseTest, AnEntryLeavesOneListAndStaysOnTheOther) {
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
    const auto rows = database.lists().entries({.limit = kAll}).value();
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_FALSE(rows[0].row.isPinned);
    EXPECT_FALSE(rows[0].row.isFavorite);
}

TEST_F(StoreDatabaseTest, AnEntryOnNoListIsGoneWithItsContent) {
    const Uuid one = copy("one");
    ASSERT_EQ(database.entries().use(one, nextSecond()).value(), Change::done);
    EXPECT_EQ(database.entries().remove(one, ClipboardScope::history).value(), Change::done);
    EXPECT_EQ(textOfEntry(one), "none");
    EXPECT_EQ(raw.number("SELECT (SELECT count(*) FROM contents) + (SELECT count(*) FROM usages)").value(), 0);
    EXPECT_NE(copy("one"), one);
}

TEST_F(StoreDatabaseTest, RemembersTheLatestHundredUses) {
    const Uuid one = copy("one");
    for (int i = 0; i < 103; ++i)
        ASSERT_EQ(database.entries().use(one, nextSecond()).value(), Change::done);
    EXPECT_EQ(raw.number("SELECT count(*) FROM usages").value(), 100);
    EXPECT_EQ(raw.number("SELECT max(used_at) FROM usages").value(), static_cast<std::int64_t>(now));
}

TEST_F(StoreDatabaseTest, AnEditSetsAliasAndCategory) {
    const Uuid category = addCategory("work", 1);
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

TEST_F(StoreDatabaseTest, AnEditedTextIsKnownByItsNewContent) {
    const Uuid one = copy("one");
    copy("two");
    EXPECT_EQ(database.entries().edit(one, std::nullopt, std::nullopt, "edited").value(), Change::done);
    EXPECT_EQ(textOfEntry(one), "edited");
    EXPECT_THAT(history(), ElementsAre("two", "edited"));
    EXPECT_EQ(database.lists().entries({.limit = kAll})->back().size, 6U);
    EXPECT_EQ(copy("edited"), one);
    EXPECT_NE(copy("one"), one);
}

TEST_F(StoreDatabaseTest, AnEditMayRepeatAnotherText) {
    const Uuid one = copy("one");
    const Uuid two = copy("two");
    EXPECT_EQ(database.entries().edit(one, std::nullopt, std::nullopt, "two").value(), Change::done);
    EXPECT_THAT(history(), ElementsAre("two", "two"));
    EXPECT_EQ(copy("two"), two);
}

TEST_F(StoreDatabaseTest, AnImageHasNoTextToEdit) {
    ASSERT_TRUE(database.entries().record(ClipboardKind::image, makeJpeg({8, 8}), nextSecond()));
    const Uuid image = newest();
    EXPECT_EQ(database.entries().edit(image, "name", std::nullopt, "text").value(), Change::notAText);
    EXPECT_EQ(database.lists().entries({.limit = 1})->front().row.alias, std::nullopt);
}

TEST_F(StoreDatabaseTest, UnknownIdsChangeNothing) {
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

TEST_F(StoreDatabaseTest, EveryChangeRaisesTheRevision) {
    EXPECT_EQ(database.revision().value(), 0);
    const Uuid one = copy("one");
    EXPECT_EQ(database.revision().value(), 1);
    copy("one");
    EXPECT_EQ(database.revision().value(), 2);
    ASSERT_EQ(database.entries().pin(one, nextSecond()).value(), Change::done);
    EXPECT_EQ(database.revision().value(), 3);
}

TEST_F(StoreDatabaseTest, FindsIdsByTheirBeginning) {
    const Uuid one = copy("one");
    const Uuid two = copy("two");
    EXPECT_THAT(database.lists().idsStartingWith(one.toString(), 2).value(), ElementsAre(one));
    EXPECT_THAT(database.lists().idsStartingWith("", 9).value(), testing::UnorderedElementsAre(one, two));
    EXPECT_EQ(database.lists().idsStartingWith("", 1)->size(), 1U);
    EXPECT_THAT(database.lists().idsStartingWith("X", 9).value(), IsEmpty());
    EXPECT_THAT(database.lists().idsStartingWith("%", 9).value(), IsEmpty());
    EXPECT_THAT(database.lists().idsStartingWith(one.toString() + "0", 9).value(), IsEmpty());
}

TEST_F(StoreDatabaseTest, TwoProcessesSeeEachOthersChanges) {
    auto other = StoreDatabase::open(file, Mode::existing).value();
    copy("one");
    EXPECT_EQ(other.lists().entries({.limit = kAll})->size(), 1U);
    ASSERT_TRUE(other.entries().record(ClipboardKind::text, bytesOf("two"), nextSecond()));
    EXPECT_THAT(history(), ElementsAre("two", "one"));
}

} // namespace
} // namespace vexil
