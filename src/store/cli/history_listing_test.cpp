// SPDX-License-Identifier: Apache-2.0
#include "store/cli/history_listing.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace vexil {
namespace {

class HistoryListingTest : public testing::Test {
protected:
    HistoryListingTest() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }

    static StoredEntry entry(const char* id, ClipboardKind kind, std::uint64_t size, std::string preview) {
        StoredEntry entry;
        entry.row.id = Uuid::parse(id).value();
        entry.row.kind = kind;
        entry.row.preview = std::move(preview);
        entry.row.lastCopiedAt = Date{750'000'000.25};
        entry.createdAt = Date{749'999'999.5};
        entry.size = size;
        return entry;
    }

    ClipboardCategory work{Uuid::parse("C0000000-0000-4000-8000-000000000003").value(), "work", "red", 0};

    std::string table() { return historyTable(two, {work}).text(std::nullopt); }

    std::vector<StoredEntry> two = {
        entry("3F2A9C11-0000-4000-8000-000000000001", ClipboardKind::image, 48'213, "800 × 600 pixels, 48.2 kB"),
        entry("A1B2C3D4-0000-4000-8000-000000000002", ClipboardKind::text, 5, "hello")};
};

TEST_F(HistoryListingTest, ATableHasAlignedColumns) {
    EXPECT_EQ(table(), "3F2A9C11  image  48.2 kB  2024-10-07 13:20  800 × 600 pixels, 48.2 kB\n"
                       "A1B2C3D4  text       5 B  2024-10-07 13:20  hello\n");
}

TEST_F(HistoryListingTest, PinsFavoritesCategoriesAndAliasesAreShown) {
    two[0].row.isFavorite = true;
    two[1].row.isPinned = true;
    two[1].row.isFavorite = true;
    two[1].row.alias = "greeting";
    two[1].row.categoryID = work.id;
    EXPECT_EQ(table(), "3F2A9C11  *   image  48.2 kB  2024-10-07 13:20  800 × 600 pixels, 48.2 kB\n"
                       "A1B2C3D4  ^*  text       5 B  2024-10-07 13:20  [work] greeting · hello\n");
}

TEST_F(HistoryListingTest, IdsAreLongEnoughToTellThemApart) {
    two[1].row.id = Uuid::parse("3F2A9C11-0000-4000-8000-000000000002").value();
    EXPECT_TRUE(table().starts_with("3F2A9C11-0000-4000-8000-000000000001  image"));
    two[1].row.id = Uuid::parse("3F2A9C11-1000-4000-8000-000000000002").value();
    EXPECT_TRUE(table().starts_with("3F2A9C11-0  image"));
}

TEST_F(HistoryListingTest, ALineWithoutPreviewEndsAfterTheTime) {
    two.resize(1);
    two[0].row.preview.clear();
    EXPECT_EQ(table(), "3F2A9C11  image  48.2 kB  2024-10-07 13:20\n");
}

TEST_F(HistoryListingTest, ADateThatNoCalendarHasIsSaidToBeUnknown) {
    two.resize(1);
    two[0].row.lastCopiedAt = Date{1e300};
    EXPECT_EQ(table(), "3F2A9C11  image  48.2 kB  unknown time  800 × 600 pixels, 48.2 kB\n");
}

TEST_F(HistoryListingTest, AnEmptyHistoryIsAnEmptyTableAndAnEmptyArray) {
    EXPECT_EQ(historyTable({}, {}).text(std::nullopt), "");
    EXPECT_EQ(textOf(historyJson({}, {})), "[]\n");
}

TEST_F(HistoryListingTest, JsonHasOneObjectALine) {
    two[1].row.alias = "greeting";
    two[1].row.isPinned = true;
    two[1].row.categoryID = work.id;
    EXPECT_EQ(
        textOf(historyJson(two, {work})),
        "[\n"
        R"({"id":"3F2A9C11-0000-4000-8000-000000000001","kind":"image","size":48213,"createdAt":749999999.5,)"
        R"("lastCopiedAt":750000000.25,"isPinned":false,"isFavorite":false,)"
        R"("preview":"800 × 600 pixels, 48.2 kB"},)"
        "\n"
        R"({"id":"A1B2C3D4-0000-4000-8000-000000000002","kind":"text","size":5,"createdAt":749999999.5,)"
        R"("lastCopiedAt":750000000.25,"isPinned":true,"isFavorite":false,"categoryID":"C0000000-0000-4000-8000-000000000003","category":"work",)"
        R"("alias":"greeting",)"
        R"("preview":"hello"})"
        "\n]\n");
}

} // namespace
} // namespace vexil
