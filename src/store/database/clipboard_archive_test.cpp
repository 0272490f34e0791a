// SPDX-License-Identifier: Apache-2.0
#include "store/database/jpeg_fixture.h"
#include "store/database/store_fixture.h"

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Items = std::vector<ArchivedItem>;
using Outcome = ClipboardArchive::Outcome;

class ClipboardArchiveTest : public StoreFixture {
protected:
    Items exported() {
        Items items;
        EXPECT_TRUE(database.archive().read([](ClipboardArchive::Size) { return Done{}; },
                                            [&](const ArchivedItem& item) -> Result<Done, StoreError> {
                                                items.push_back(item);
                                                return Done{};
                                            }));
        return items;
    }
    Result<Outcome, StoreError> import(const Items& items) {
        return database.archive().write(
            [&, next = std::size_t{0}]() mutable -> Result<std::optional<ArchivedItem>, StoreError> {
                return next == items.size() ? std::nullopt : std::optional(items[next++]);
            });
    }
    // The sentence with which it is refused; nothing may have changed.
    std::string refusal(const Items& items) {
        const auto before = exported();
        const auto revisionBefore = revision();
        const auto imported = import(items);
        EXPECT_EQ(exported(), before);
        EXPECT_EQ(revision(), revisionBefore);
        return imported ? "imported" : imported.error().sentence;
    }
    void wipe() {
        EXPECT_TRUE(database.entries().clear(ClipboardEntries::Clear::everything));
        const auto list = database.categories().list().value();
        for (const auto& category : list)
            EXPECT_TRUE(database.categories().remove(category.id));
    }
    // One of each kind, with everything that an entry can have.
    void fill() {
        const Uuid work = addCategory("work", "blue");
        addCategory("home");
        const Uuid one = copy("one");
        const Uuid gone = copy("a favorite that left the history");
        const Uuid image = record(ClipboardKind::image, makeJpeg({120, 90}));
        copy("last \xF0\x9F\x98\x80");
        auto entries = database.entries();
        EXPECT_EQ(entries.addToFavorites(gone, work).value(), EntryChange::done);
        EXPECT_EQ(entries.remove(gone, ClipboardScope::history).value(), EntryChange::done);
        EXPECT_EQ(entries.pin(one, nextSecond()).value(), EntryChange::done);
        EXPECT_EQ(entries.pin(image, nextSecond()).value(), EntryChange::done);
        EXPECT_EQ(entries.setAlias(image, "picture").value(), EntryChange::done);
        EXPECT_EQ(entries.use(one, nextSecond()).value(), EntryChange::done);
        EXPECT_EQ(entries.use(one, nextSecond()).value(), EntryChange::done);
        EXPECT_EQ(entries.setText(copy("same"), "one").value(), EntryChange::done); // two of the same content
        EXPECT_TRUE(raw.run("UPDATE entries SET image_file_name = 'a.jpg' WHERE kind = 'image'"));
    }
    std::vector<ClipboardRowSummary> rows(ClipboardScope scope) {
        std::vector<ClipboardRowSummary> rows;
        const auto entries = database.lists().entries({.scope = scope, .withThumbnails = true}).value();
        for (const auto& entry : entries)
            rows.push_back(entry.row);
        return rows;
    }
    ArchivedEntry archivedText(const std::string& text) {
        copy(text);
        const auto items = exported();
        EXPECT_TRUE(database.entries().clear(ClipboardEntries::Clear::everything));
        return std::get<ArchivedEntry>(items.back());
    }
};

TEST_F(ClipboardArchiveTest, HandsOutEverythingInTheOrderOfCopies) {
    fill();
    const auto items = exported();
    ASSERT_EQ(items.size(), 7U);
    EXPECT_EQ(std::get<ClipboardCategory>(items[0]).name, "work");
    EXPECT_EQ(std::get<ClipboardCategory>(items[1]).name, "home");
    const auto& one = std::get<ArchivedEntry>(items[2]);
    EXPECT_EQ(one.entry.text, "one");
    EXPECT_EQ(one.entry.usageTimestamps->size(), 2U);
    EXPECT_TRUE(one.entry.pinnedAt);
    EXPECT_EQ(one.entry.contentHash.size(), 64U);
    const auto& favorite = std::get<ArchivedEntry>(items[3]);
    EXPECT_FALSE(favorite.isInHistory);
    EXPECT_TRUE(favorite.entry.isFavorite);
    EXPECT_EQ(favorite.entry.categoryID, std::get<ClipboardCategory>(items[0]).id);
    EXPECT_EQ(favorite.entry.usageTimestamps, std::nullopt);
    const auto& image = std::get<ArchivedEntry>(items[4]).entry;
    EXPECT_EQ(image.kind, ClipboardKind::image);
    EXPECT_EQ(image.imageData, makeJpeg({120, 90}));
    EXPECT_EQ(image.imageFileName, "a.jpg");
    EXPECT_EQ(image.alias, "picture");
    EXPECT_EQ(image.text, std::nullopt);
}

TEST_F(ClipboardArchiveTest, SaysFirstHowMuchIsToCome) {
    fill();
    ClipboardArchive::Size size;
    ASSERT_TRUE(database.archive().read(
        [&](ClipboardArchive::Size announced) -> Result<Done, StoreError> {
            size = announced;
            return Done{};
        },
        [](const ArchivedItem&) { return Done{}; }));
    EXPECT_EQ(size.entries, 5U);
    EXPECT_GT(size.contentBytes, makeJpeg({120, 90}).size());
}

TEST_F(ClipboardArchiveTest, AFailureOfTheTakerEndsTheReading) {
    fill();
    int taken = 0;
    const auto read = database.archive().read([](ClipboardArchive::Size) { return Done{}; },
                                              [&](const ArchivedItem&) -> Result<Done, StoreError> {
                                                  if (++taken == 3)
                                                      return Failure{StoreError{"the disk is full"}};
                                                  return Done{};
                                              });
    ASSERT_FALSE(read);
    EXPECT_EQ(read.error().sentence, "the disk is full");
    EXPECT_EQ(taken, 3);
    copy("goes on");
}

TEST_F(ClipboardArchiveTest, WhatWasExportedAndWipedComesBackTheSame) {
    fill();
    const auto items = exported();
    const auto historyBefore = rows(ClipboardScope::history);
    const auto favoritesBefore = rows(ClipboardScope::favorites);
    const auto categoriesBefore = database.categories().list().value();
    wipe();
    EXPECT_THAT(exported(), IsEmpty());
    EXPECT_EQ(import(items).value(), (Outcome{.added = 5, .categories = 2}));
    EXPECT_EQ(exported(), items);
    EXPECT_EQ(rows(ClipboardScope::history), historyBefore);
    EXPECT_EQ(rows(ClipboardScope::favorites), favoritesBefore);
    EXPECT_EQ(database.categories().list().value(), categoriesBefore);
}

TEST_F(ClipboardArchiveTest, ToImportTwiceChangesNothing) {
    fill();
    const auto items = exported();
    const auto before = revision();
    EXPECT_EQ(import(items).value(), (Outcome{.known = 5}));
    EXPECT_EQ(exported(), items);
    EXPECT_EQ(revision(), before);
}

TEST_F(ClipboardArchiveTest, ImportedEntriesTakeTheirPlaceByDate) {
    copy("a");
    copy("b");
    copy("c");
    const auto items = exported();
    wipe();
    ASSERT_TRUE(import({items[0], items[2]}));
    now -= 1.5; // between b and c
    copy("between");
    copy("new");
    EXPECT_THAT(history(), ElementsAre("new", "between", "c", "a"));
    const auto before = revision();
    ASSERT_TRUE(import({items[1]}));
    EXPECT_GT(revision(), before);
    EXPECT_EQ(history().back(), "a");
    EXPECT_THAT(history(), testing::Contains("b"));
    copy("newest");
    EXPECT_EQ(history().front(), "newest");
}

TEST_F(ClipboardArchiveTest, WhatTheHistoryHasNoRoomForFallsOutAtItsEnd) {
    for (const char* text : {"a", "b", "c", "d"})
        copy(text);
    const auto items = exported();
    wipe();
    ASSERT_TRUE(database.entries().setHistoryLimit(2));
    EXPECT_EQ(import(items).value(), (Outcome{.added = 4, .fellOut = 2}));
    EXPECT_THAT(history(), ElementsAre("d", "c"));
}

TEST_F(ClipboardArchiveTest, ACategoryOfTheSameNameIsTheSameCategory) {
    fill();
    const auto items = exported();
    wipe();
    const Uuid work = addCategory("WORK", "green");
    EXPECT_EQ(import(items)->categories, 1U);
    const auto favorite = rows(ClipboardScope::favorites).at(0);
    EXPECT_EQ(favorite.categoryID, work);
    EXPECT_EQ(database.categories().withId(work).value()->colorTag, "green");
}

TEST_F(ClipboardArchiveTest, HostsProfilesComeBackAsTheyWere) {
    fill();
    const HostsProfile work{Uuid::random(), "Work", "1.2.3.4 a\n", false, Date{1.5}};
    const HostsProfile home{Uuid::random(), "Home", "", true, Date{2.5}};
    ASSERT_TRUE(database.hostsProfiles().add(work));
    ASSERT_TRUE(database.hostsProfiles().add(home));
    const auto items = exported();
    ASSERT_EQ(items.size(), 9U);
    EXPECT_EQ(std::get<HostsProfile>(items[2]), work);
    wipe();
    ASSERT_TRUE(database.hostsProfiles().remove(work.id));
    ASSERT_TRUE(database.hostsProfiles().remove(home.id));
    EXPECT_EQ(import(items)->hostsProfiles, 2U);
    EXPECT_THAT(database.hostsProfiles().list().value(), ElementsAre(work, home));
    EXPECT_EQ(exported(), items);
}

TEST_F(ClipboardArchiveTest, AHostsProfileOfTheSameNameStaysAsItIs) {
    HostsProfile work{Uuid::random(), "Work", "1.2.3.4 a\n", false, Date{1.5}};
    ASSERT_TRUE(database.hostsProfiles().add(work));
    HostsProfile other = work;
    other.content = "5.6.7.8 b\n";
    EXPECT_EQ(import({other}).value(), Outcome{});
    other.id = Uuid::random();
    other.name = "WORK";
    EXPECT_EQ(import({other}).value(), Outcome{});
    EXPECT_THAT(database.hostsProfiles().list().value(), ElementsAre(work));
}

TEST_F(ClipboardArchiveTest, AHostsProfileThatMakesNoSenseIsRefused) {
    const ArchivedEntry good = archivedText("good");
    const HostsProfile bad{Uuid::random(), "bad\n", "", true, Date{}};
    EXPECT_EQ(refusal({good, bad}), "the hosts profile " + bad.id.toString() + " has a name or lines that cannot be");
    const HostsProfile large{Uuid::random(), "large", std::string(HostsProfiles::kMaxBytes, 'x'), true, Date{}};
    EXPECT_THAT(refusal({large}), HasSubstr("more in the hosts profiles than the link"));
}

TEST_F(ClipboardArchiveTest, AnEntryThatMakesNoSenseIsRefusedWithAllOthers) {
    const ArchivedEntry good = archivedText("good");
    const std::string id = "the entry " + good.entry.id.toString();
    const auto changed = [&](auto change) {
        ArchivedEntry entry = good;
        change(entry);
        return refusal({ArchivedItem(entry)});
    };
    EXPECT_EQ(changed([](auto& a) { a.entry.text = "other"; }),
              id + " does not have the content that its hash was made of");
    EXPECT_EQ(changed([](auto& a) { a.entry.contentHash.clear(); }),
              id + " does not have the content that its hash was made of");
    for (const auto& content : {std::optional<std::string>(), std::optional<std::string>("")})
        EXPECT_EQ(changed([&](auto& a) { a.entry.text = content; }), id + " has no content of its kind");
    EXPECT_EQ(changed([](auto& a) { a.entry.kind = ClipboardKind::image; }), id + " has no content of its kind");
    EXPECT_EQ(changed([](auto& a) { a.entry.imageData = Bytes{1}; }), id + " has no content of its kind");
    EXPECT_EQ(changed([](auto& a) { a.isInHistory = false; }), id + " is neither in the history nor a favorite");
    EXPECT_EQ(changed([](auto& a) {
                  a.isInHistory = false;
                  a.entry.isFavorite = true;
                  a.entry.pinnedAt = Date{1};
              }),
              id + " is pinned and not in the history");
    EXPECT_EQ(changed([](auto& a) { a.entry.alias = std::string(4097, 'x'); }),
              id + " has an alias of more than 4096 bytes");
    EXPECT_EQ(changed([](auto& a) { a.entry.categoryID = Uuid::random(); }),
              id + " is filed under a category that does not come before it");
    EXPECT_EQ(refusal({good, good}), id + " comes twice");
    EXPECT_EQ(import({good}).value(), (Outcome{.added = 1}));
}

TEST_F(ClipboardArchiveTest, ACategoryThatMakesNoSenseIsRefused) {
    EXPECT_THAT(refusal({ClipboardCategory{Uuid::random(), "a\nb", "red", 0}}), HasSubstr("a name or a color that"));
    EXPECT_THAT(refusal({ClipboardCategory{Uuid::random(), "a", std::string(99, 'x'), 0}}),
                HasSubstr("that cannot be"));
}

TEST_F(ClipboardArchiveTest, ASourceThatFailsLeavesTheStoreAsItWas) {
    fill();
    const auto before = exported();
    const ArchivedItem item = [&] {
        auto other = std::get<ArchivedEntry>(before.back());
        other.entry.id = Uuid::random();
        return other;
    }();
    int given = 0;
    const auto imported = database.archive().write([&]() -> Result<std::optional<ArchivedItem>, StoreError> {
        if (given++ == 0)
            return std::optional<ArchivedItem>(ClipboardCategory{Uuid::random(), "new", "red", 0});
        return Failure{StoreError{"line 2 is not JSON"}};
    });
    ASSERT_FALSE(imported);
    EXPECT_EQ(imported.error().sentence, "line 2 is not JSON");
    EXPECT_EQ(exported(), before);
}

} // namespace
} // namespace vexil
