// SPDX-License-Identifier: Apache-2.0
#include "base/json.h"
#include "store/database/jpeg_fixture.h"
#include "store/database/store_fixture.h"

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

class SnapshotJsonTest : public StoreFixture {
protected:
    static constexpr std::size_t kMegabyte = 1'000'000;

    ClipboardStoreSnapshot snapshot(std::size_t historyRows = 100, std::size_t maxBytes = kMegabyte) {
        const auto encoded = database.lists().snapshotJson(historyRows, maxBytes, 0);
        EXPECT_TRUE(encoded) << encoded.error().sentence;
        const auto read = json::read<ClipboardStoreSnapshot>(encoded->json);
        EXPECT_TRUE(read) << read.error().reason;
        EXPECT_EQ(read->revision, encoded->revision);
        length = encoded->json.size();
        return *read;
    }
    static std::vector<std::string> previewsOf(const std::vector<ClipboardRowSummary>& rows) {
        std::vector<std::string> previews;
        for (const auto& row : rows)
            previews.push_back(row.preview);
        return previews;
    }

    std::size_t length = 0;
};

TEST_F(SnapshotJsonTest, AnEmptyStoreIsASnapshotToo) {
    EXPECT_EQ(snapshot(), ClipboardStoreSnapshot{});
}

TEST_F(SnapshotJsonTest, HoldsTheListsAsTheyAreListed) {
    const Uuid work = addCategory("work \"1\"");
    const Uuid one = copy("one\n\"two\" \xF0\x9F\x98\x80");
    copy("two");
    const Uuid image = record(ClipboardKind::image, makeJpeg({200, 100}));
    ASSERT_EQ(database.entries().addToFavorites(one, work).value(), EntryChange::done);
    ASSERT_EQ(database.entries().setAlias(one, "first").value(), EntryChange::done);
    ASSERT_EQ(database.entries().pin(one, nextSecond()).value(), EntryChange::done);
    ASSERT_EQ(database.entries().pin(image, nextSecond()).value(), EntryChange::done);

    const auto view = snapshot();
    EXPECT_EQ(view.revision, revision());
    EXPECT_EQ(view.categories, database.categories().list().value());
    for (const auto scope : {ClipboardScope::history, ClipboardScope::favorites}) {
        std::vector<ClipboardRowSummary> expected;
        const auto entries = database.lists().entries({.scope = scope, .withThumbnails = true}).value();
        for (const auto& entry : entries)
            expected.push_back(entry.row);
        EXPECT_EQ(scope == ClipboardScope::history ? view.history : view.favorites, expected);
    }
    ASSERT_THAT(view.history, SizeIs(3));
    EXPECT_EQ(view.history[0].id, image);
    EXPECT_TRUE(view.history[0].thumbnail);
    EXPECT_EQ(view.history[1].alias, "first");
    EXPECT_EQ(view.history[2].thumbnail, std::nullopt); // nothing of the row before is left
    EXPECT_EQ(view.history[2].alias, std::nullopt);
    ASSERT_THAT(view.favorites, SizeIs(1));
    EXPECT_EQ(view.favorites[0].categoryID, work);
}

TEST_F(SnapshotJsonTest, HoldsTheNewestRowsAndAllThatArePinnedOrFavorites) {
    std::vector<Uuid> ids;
    for (int i = 0; i < 20; ++i)
        ids.push_back(copy(std::to_string(i)));
    ASSERT_EQ(database.entries().pin(ids[3], nextSecond()).value(), EntryChange::done);
    ASSERT_EQ(database.entries().pin(ids[2], nextSecond()).value(), EntryChange::done);
    ASSERT_EQ(database.entries().addToFavorites(ids[1], std::nullopt).value(), EntryChange::done);
    const auto view = snapshot(2);
    EXPECT_THAT(previewsOf(view.history), ElementsAre("2", "3", "19", "18"));
    EXPECT_THAT(previewsOf(view.favorites), ElementsAre("1"));
    EXPECT_THAT(snapshot(0).history, SizeIs(2));
}

TEST_F(SnapshotJsonTest, KeepsWithinItsBytesByLeavingOutTheLastRows) {
    for (int i = 0; i < 20; ++i)
        copy(std::to_string(i) + std::string(150, '"'));
    const auto whole = snapshot();
    const std::size_t wholeLength = length;
    EXPECT_THAT(whole.history, SizeIs(20));
    EXPECT_THAT(snapshot(100, wholeLength + 64).history, SizeIs(20));
    std::size_t last = 20;
    for (const std::size_t bytes : {wholeLength - 1, wholeLength / 2, wholeLength / 4, std::size_t{500}}) {
        const auto view = snapshot(100, bytes);
        EXPECT_LE(length, bytes);
        EXPECT_LT(view.history.size(), last);
        last = view.history.size();
        EXPECT_TRUE(std::equal(view.history.begin(), view.history.end(), whole.history.begin()));
    }
    EXPECT_EQ(last, 0U);
}

TEST_F(SnapshotJsonTest, FavoritesLeaveAThirdToTheHistory) {
    for (int i = 0; i < 60; ++i)
        ASSERT_EQ(database.entries().addToFavorites(copy(std::to_string(i)), std::nullopt).value(), EntryChange::done);
    const auto view = snapshot(100, 6000);
    EXPECT_LE(length, 6000U);
    EXPECT_LT(view.favorites.size(), 60U);
    EXPECT_GT(view.history.size(), 5U);
    EXPECT_GT(view.favorites.size(), view.history.size());
}

} // namespace
} // namespace vexil
