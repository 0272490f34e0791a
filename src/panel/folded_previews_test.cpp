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
    EXPECT_THAT(folded.matching(queryOf("RAS")).rows, ElementsAre(0, 3, 5));
    EXPECT_THAT(folded.matching(queryOf("cafe\u0301")).rows, ElementsAre(4));
    EXPECT_THAT(folded.matching(queryOf("cafe")).rows, ElementsAre(2));
    EXPECT_THAT(folded.matching(queryOf("nowhere")).rows, IsEmpty());
}

TEST(FoldedPreviewsTest, AnEmptyQueryMatchesEveryRow) {
    EXPECT_THAT(foldedOf(rowsOf({"a", "", "b", ""})).matching(queryOf("")).rows, ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(foldedOf({}).matching(queryOf("")).rows, IsEmpty());
    EXPECT_THAT(foldedOf({}).matching(queryOf("a")).rows, IsEmpty());
}

TEST(FoldedPreviewsTest, NoMatchSpansTwoRows) {
    const FoldedPreviews folded = foldedOf(rowsOf({"abc", "def", "e", "\u0301x"}));
    EXPECT_THAT(folded.matching(queryOf("cd")).rows, IsEmpty());
    EXPECT_THAT(folded.matching(queryOf("e")).rows, ElementsAre(1, 2));
}

TEST(FoldedPreviewsTest, SaysWhereTheFirstHitIs) {
    const FoldedPreviews folded = foldedOf(rowsOf({"abab", "xé ab", "b"}));
    const auto matches = folded.matching(queryOf("AB"));
    EXPECT_THAT(matches.rows, ElementsAre(0, 1));
    EXPECT_THAT(matches.hits, ElementsAre(0, 4));
}

TEST(FoldedPreviewsTest, NarrowsAFormerAnswer) {
    const FoldedPreviews folded = foldedOf(rowsOf({"abc", "ab abd", "xabd", "bd", "xab"}));
    const auto ab = folded.matching(queryOf("ab"));
    EXPECT_THAT(folded.matching(queryOf("abd"), ab).rows, ElementsAre(1, 2));
    EXPECT_THAT(folded.matching(queryOf("abd"), ab).hits, ElementsAre(3, 1));
    EXPECT_THAT(folded.matching(queryOf("xab"), ab).rows, ElementsAre(2, 4)) << "typed in front";
    EXPECT_THAT(folded.matching(queryOf("b"), ab).rows, ElementsAre(0, 1, 2, 3, 4)) << "not narrower";
    EXPECT_THAT(folded.matching(queryOf("abe"), ab).rows, IsEmpty());
}

TEST(FoldedPreviewsTest, AnswersAsALookAtEachRowByItself) {
    std::mt19937 random(7);
    const std::vector<std::string> pieces = {"a", "B", "ab", "é", "e\u0301", "e", "ß", "SS", "д", "世", " ", "\u0301"};
    const auto somePieces = [&](std::size_t count) {
        std::string made;
        for (; count > 0; --count)
            made += pieces[random() % pieces.size()];
        return made;
    };
    std::vector<std::string> previews;
    std::vector<std::string> foldedPreviews;
    for (int i = 0; i < 500; ++i) {
        previews.push_back(somePieces(random() % 60));
        foldedPreviews.push_back(text::fold(previews.back(), CaseRules::common));
    }
    const FoldedPreviews folded = foldedOf(rowsOf(previews));
    auto former = folded.matching(queryOf(""));
    for (int i = 0; i < 500; ++i) {
        const auto query = queryOf(somePieces(1 + random() % 3));
        FoldedPreviews::Numbers rows;
        std::vector<std::uint32_t> hits;
        for (std::uint32_t row = 0; row < previews.size(); ++row) {
            if (const auto hit = query.find(foldedPreviews[row], 0); hit != text::Query::kNotFound) {
                rows.push_back(row);
                hits.push_back(static_cast<std::uint32_t>(hit));
            }
        }
        former = folded.matching(query, former);
        ASSERT_EQ(former.rows, rows);
        ASSERT_EQ(former.hits, hits);
        ASSERT_EQ(folded.matching(query).rows, rows);
        ASSERT_EQ(folded.matching(query).hits, hits);
    }
}

TEST(FoldedPreviewsTest, TakesOverFromAFormerListWhatIsTheSame) {
    std::mt19937 random(11);
    std::vector<std::string> previews(300);
    for (std::size_t i = 0; i < previews.size(); ++i)
        previews[i] = "Größe " + std::to_string(i);
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
    EXPECT_THAT(folded.matching(queryOf("ä")).rows, ElementsAre(3));
    EXPECT_THAT(folded.matching(queryOf("\uFFFD")).rows, ElementsAre(0, 1, 2));
    EXPECT_THAT(folded.matching(queryOf("\xFF")).rows, ElementsAre(0, 1, 2)) << "ill-formed itself";
}

} // namespace
} // namespace vexil
