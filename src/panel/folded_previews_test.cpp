// SPDX-License-Identifier: Apache-2.0
#include "panel/folded_previews.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using text::CaseRules;
using Rows = std::vector<ClipboardRowSummary>;

ClipboardRowSummary rowOf(std::string preview) {
    ClipboardRowSummary row;
    row.id = Uuid::random();
    row.preview = std::move(preview);
    return row;
}

Rows rowsOf(const std::vector<std::string>& previews) {
    Rows rows;
    std::transform(previews.begin(), previews.end(), std::back_inserter(rows), rowOf);
    return rows;
}

FoldedPreviews foldedOf(Rows rows, const FoldedPreviews* former = nullptr) {
    return {std::make_shared<const Rows>(std::move(rows)), CaseRules::common, former};
}

text::Query queryOf(std::string_view query) {
    return {query, CaseRules::common};
}

TEST(FoldedPreviewsTest, NamesTheRowsWithTheQueryInTheirOrder) {
    const FoldedPreviews folded = foldedOf(rowsOf({"Straße", "", "cafe", "STRASSE strasse", "Café", "ras"}));
    EXPECT_THAT(folded.matching(queryOf("RAS")), ElementsAre(0, 3, 5));
    EXPECT_THAT(folded.matching(queryOf("cafe\u0301")), ElementsAre(4));
    EXPECT_THAT(folded.matching(queryOf("cafe")), ElementsAre(2));
    EXPECT_THAT(folded.matching(queryOf("nowhere")), IsEmpty());
}

TEST(FoldedPreviewsTest, AnEmptyQueryMatchesEveryRow) {
    EXPECT_THAT(foldedOf(rowsOf({"a", "", "b", ""})).matching(queryOf("")), ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(foldedOf({}).matching(queryOf("")), IsEmpty());
    EXPECT_THAT(foldedOf({}).matching(queryOf("a")), IsEmpty());
}

TEST(FoldedPreviewsTest, NoMatchSpansTwoRows) {
    const FoldedPreviews folded = foldedOf(rowsOf({"abc", "def", "e", "\u0301x"}));
    EXPECT_THAT(folded.matching(queryOf("cd")), IsEmpty());
    EXPECT_THAT(folded.matching(queryOf("e")), ElementsAre(1, 2));
}

TEST(FoldedPreviewsTest, LooksAmongTheRowsOfAFormerAnswer) {
    const FoldedPreviews folded = foldedOf(rowsOf({"abc", "abd", "xabd", "bd"}));
    EXPECT_THAT(folded.matching(queryOf("abd"), {0, 2}), ElementsAre(2));
    EXPECT_THAT(folded.matching(queryOf("abd"), {}), IsEmpty());
}

TEST(FoldedPreviewsTest, AnswersAsALookAtEachRowByItself) {
    std::mt19937 random(7);
    const std::vector<std::string> pieces = {"a", "B", "ab", "é", "e\u0301", "e", "ß", "SS", "д", "世", " ", "\u0301"};
    Rows rows;
    for (int i = 0; i < 500; ++i) {
        std::string preview;
        for (std::size_t n = random() % 60; n > 0; --n)
            preview += pieces[random() % pieces.size()];
        rows.push_back(rowOf(preview));
    }
    const FoldedPreviews folded = foldedOf(rows);
    for (int i = 0; i < 200; ++i) {
        const auto query = queryOf(pieces[random() % pieces.size()] + pieces[random() % pieces.size()]);
        FoldedPreviews::Numbers expected;
        FoldedPreviews::Numbers everyOther;
        FoldedPreviews::Numbers expectedAmong;
        for (std::uint32_t row = 0; row < rows.size(); ++row) {
            const bool isIn = query.isIn(text::fold(rows[row].preview, CaseRules::common));
            if (isIn)
                expected.push_back(row);
            if (row % 2 == 0)
                everyOther.push_back(row);
            if (isIn && row % 2 == 0)
                expectedAmong.push_back(row);
        }
        ASSERT_EQ(folded.matching(query), expected);
        ASSERT_EQ(folded.matching(query, everyOther), expectedAmong);
    }
}

TEST(FoldedPreviewsTest, TakesOverFromAFormerListWhatIsTheSame) {
    std::mt19937 random(11);
    std::vector<std::string> previews;
    for (int i = 0; i < 300; ++i)
        previews.push_back("Größe " + std::to_string(i));
    Rows rows = rowsOf(previews);
    auto former = std::make_shared<const FoldedPreviews>(foldedOf(rows));
    for (int round = 0; round < 50; ++round) {
        const auto place = static_cast<std::ptrdiff_t>(random() % rows.size());
        switch (round % 5) {
        case 0:
            rows.insert(rows.begin() + place, rowOf("Neu " + std::to_string(round)));
            break;
        case 1:
            rows.erase(rows.begin() + place);
            break;
        case 2:
            std::rotate(rows.begin(), rows.begin() + place, rows.begin() + place + 1); // used again: to the front
            break;
        case 3:
            rows[static_cast<std::size_t>(place)].preview = "Geändert " + std::to_string(round);
            break;
        default:
            std::shuffle(rows.begin() + place / 2, rows.begin() + place, random);
        }
        const auto next = std::make_shared<const FoldedPreviews>(foldedOf(rows, former.get()));
        ASSERT_EQ(next->text(), foldedOf(rows).text()) << round;
        former = next;
    }
}

TEST(FoldedPreviewsTest, IllFormedPreviewsDoNotMixWithTheirNeighbours) {
    const FoldedPreviews folded = foldedOf(rowsOf({"a\xC3", "\xFF",
                                                   "\xA4"
                                                   "b",
                                                   "ä"}));
    EXPECT_THAT(folded.matching(queryOf("ä")), ElementsAre(3));
    EXPECT_THAT(folded.matching(queryOf("\uFFFD")), ElementsAre(0, 1, 2));
    EXPECT_THAT(folded.matching(queryOf("\xFF")), ElementsAre(0, 1, 2)) << "ill-formed itself";
}

} // namespace
} // namespace vexil
