// SPDX-License-Identifier: Apache-2.0
#include "base/text_search.h"

#include <gtest/gtest.h>

#include <vector>

namespace vexil {
namespace {

using text::CaseRules;
using text::Query;

bool contains(std::string_view text, std::string_view query, CaseRules rules = CaseRules::common) {
    return Query(query, rules).isIn(text::fold(text, rules));
}

bool narrows(std::string_view query, std::string_view former) {
    return Query(query, CaseRules::common).narrows(Query(former, CaseRules::common));
}

TEST(TextSearchTest, FindsAQueryWhateverTheCase) {
    EXPECT_TRUE(contains("xxabcxx", "ABC"));
    EXPECT_TRUE(contains("XXABCXX", "abc"));
    EXPECT_TRUE(contains("Straße", "STRASSE"));
    EXPECT_TRUE(contains("STRASSE", "ß"));
    EXPECT_TRUE(contains("ПРИВЕТ", "ивет"));
    EXPECT_TRUE(contains("ΛΌΓΟΣ", "λόγος"));
    EXPECT_FALSE(contains("abc", "abd"));
    EXPECT_FALSE(contains("ab", "abc"));
}

TEST(TextSearchTest, FindsAnAccentHoweverItIsWritten) {
    for (const std::string_view text : {"caf\u00e9", "cafe\u0301", "CAF\u00c9", "CAFE\u0301"}) {
        EXPECT_TRUE(contains(text, "f\u00e9")) << text;
        EXPECT_TRUE(contains(text, "E\u0301")) << text;
        EXPECT_TRUE(contains(text, "caf")) << text;
        EXPECT_FALSE(contains(text, "cafe")) << text;
        EXPECT_FALSE(contains(text, "e")) << text;
        EXPECT_FALSE(contains(text, "\u00e8")) << text;
    }
    EXPECT_FALSE(contains("cafe", "caf\u00e9"));
}

TEST(TextSearchTest, ALetterIsNotFoundInOneThatHasMoreAccents) {
    EXPECT_FALSE(contains("x\u0302", "x")) << "there is no such character, but the same letter";
    EXPECT_TRUE(contains("x\u0302", "X\u0302"));
    EXPECT_FALSE(contains("\u1ed9", "\u1ecd"));
    EXPECT_FALSE(contains("o\u0323\u0302", "o\u0302"));
    EXPECT_FALSE(contains("\uac01", "\uac00"));
    EXPECT_TRUE(contains("xe\u0301 xe", "xe")) << "the second one";
    EXPECT_TRUE(contains("\u0915\u093f", "\u0915")) << "a vowel sign is a character of its own";
}

TEST(TextSearchTest, AMarkAloneIsFoundOnlyWhereItBelongsToNoLetter) {
    EXPECT_FALSE(contains("x\u0302", "\u0302"));
    EXPECT_FALSE(contains("\u00ea", "\u0302"));
    EXPECT_TRUE(contains("\u0302x", "\u0302"));
    const Query mark("\u0302", CaseRules::common);
    EXPECT_EQ(mark.find(std::string("x\xFF\u0302y\xFF"), 0), 2U);
}

TEST(TextSearchTest, FindsTheTwoLettersIByTheRulesOfTurkish) {
    EXPECT_TRUE(contains("DİYARBAKIR", "diyarbakır", CaseRules::turkic));
    EXPECT_TRUE(contains("I\u0307zmir", "izmir", CaseRules::turkic));
    EXPECT_FALSE(contains("TITLE", "title", CaseRules::turkic));
    EXPECT_TRUE(contains("TITLE", "title", CaseRules::common));
    EXPECT_FALSE(contains("İzmir", "izmir", CaseRules::common));
}

TEST(TextSearchTest, BlanksCountLikeAnyOtherCharacter) {
    EXPECT_TRUE(contains("a b", " "));
    EXPECT_FALSE(contains("ab", " "));
    EXPECT_FALSE(contains("a b", "a b "));
    EXPECT_FALSE(contains("a b", "  "));
}

TEST(TextSearchTest, AnEmptyQueryIsInEveryText) {
    EXPECT_TRUE(contains("", ""));
    EXPECT_TRUE(contains("a", ""));
    EXPECT_FALSE(contains("", "a"));
    EXPECT_TRUE(Query().isEmpty());
    EXPECT_EQ(Query().find("ab", 1), 1U);
    EXPECT_EQ(Query().find("ab", 3), Query::kNotFound);
    EXPECT_EQ(Query().find("ab", 1, 1), Query::kNotFound);
}

TEST(TextSearchTest, IllFormedTextIsSearchedAsIfRepaired) {
    EXPECT_TRUE(contains("\xFF"
                         "Abc",
                         "abc"));
    EXPECT_TRUE(contains("a\xE2\x82", "\uFFFD"));
    EXPECT_TRUE(contains("a\xFF", "\xFE")) << "both count as U+FFFD";
    EXPECT_FALSE(contains("abc", "\xFF"));
}

TEST(TextSearchTest, FindsAHitAtEveryPlaceOfALongText) {
    for (const std::string_view needle : {"q", "qz", "qzé", "zq z", "ünï"}) {
        for (std::size_t size = 0; size < 300; ++size) {
            const std::string text =
                text::fold(std::string(size, 'a') + std::string(needle) + std::string(200, 'b'), CaseRules::common);
            ASSERT_EQ(Query(needle, CaseRules::common).find(text, 0), size) << needle;
            ASSERT_EQ(Query(needle, CaseRules::common).find(text, size), size) << needle;
            ASSERT_EQ(Query(needle, CaseRules::common).find(text, size + 1), Query::kNotFound) << needle;
            ASSERT_EQ(Query(needle, CaseRules::common).find(text, 0, size), Query::kNotFound) << needle;
            ASSERT_EQ(Query(needle, CaseRules::common).find(text, 0, size + 1), size) << needle;
            const std::string atTheEnd = text.substr(0, text.find('b'));
            ASSERT_EQ(Query(needle, CaseRules::common).find(atTheEnd, 0), size) << needle;
        }
    }
}

TEST(TextSearchTest, IsNotMisledByWhatOnlyLooksLikeAHit) {
    const std::string text = std::string(500, 'a') + "ab" + std::string(500, 'a') + "aab" + std::string(70, 'a');
    EXPECT_EQ(Query("aaab", CaseRules::common).find(text, 0), 498U);
    EXPECT_EQ(Query("aaab", CaseRules::common).find(text, 499), 1001U);
    EXPECT_EQ(Query("baab", CaseRules::common).find(text, 0), Query::kNotFound);
}

TEST(TextSearchTest, NoHitCrossesTheEndOfAText) {
    const std::string two = std::string("abc") + text::kEndOfText + "def" + text::kEndOfText;
    EXPECT_EQ(Query("cd", CaseRules::common).find(two, 0), Query::kNotFound);
    EXPECT_EQ(Query("c", CaseRules::common).find(two, 0), 2U);
    EXPECT_EQ(Query("def", CaseRules::common).find(two, 0), 4U);
    const std::string accents = std::string("e") + text::kEndOfText + "\u0301" + text::kEndOfText;
    EXPECT_EQ(Query("e", CaseRules::common).find(accents, 0), 0U);
}

TEST(TextSearchTest, ALongerQueryNarrowsAShorterOne) {
    EXPECT_TRUE(narrows("abc", "ab"));
    EXPECT_TRUE(narrows("xab", "AB"));
    EXPECT_TRUE(narrows("ab", "ab"));
    EXPECT_TRUE(narrows("ab", ""));
    EXPECT_FALSE(narrows("ab", "abc"));
    EXPECT_FALSE(narrows("abx", "abc"));
    EXPECT_FALSE(narrows("cafe\u0301", "cafe")) << "the rows of the former query do not have the accent";
    EXPECT_FALSE(narrows("x\u0302", "x"));
    EXPECT_FALSE(narrows("\uac01", "\uac00"));
}

TEST(TextSearchTest, AQueryThatGoesOnExtendsTheFormerOne) {
    const auto extends = [](std::string_view query, std::string_view former) {
        return Query(query, CaseRules::common).extends(Query(former, CaseRules::common));
    };
    EXPECT_TRUE(extends("abc", "AB"));
    EXPECT_TRUE(extends("abc", ""));
    EXPECT_FALSE(extends("xab", "ab"));
    EXPECT_FALSE(extends("abx", "abc"));
    EXPECT_FALSE(extends("cafe\u0301", "cafe"));
}

TEST(TextSearchTest, LooselyNeitherCaseNorAccentsCount) {
    EXPECT_TRUE(text::containsLoosely("Crème brûlée", "CREME", CaseRules::common));
    EXPECT_TRUE(text::containsLoosely("Creme", "cre\u0301me", CaseRules::common));
    EXPECT_TRUE(text::containsLoosely("Straßen", "STRASSE", CaseRules::common));
    EXPECT_FALSE(text::containsLoosely("Creme", "crime", CaseRules::common));
    EXPECT_TRUE(text::containsLoosely("İzmir", "izmir", CaseRules::turkic));
    EXPECT_FALSE(text::containsLoosely("Iğdır", "iğdır", CaseRules::turkic));
}

TEST(TextSearchTest, LooselyWhiteSpaceAroundTheQueryDoesNotCount) {
    EXPECT_TRUE(text::containsLoosely("Work", " work\n", CaseRules::common));
    EXPECT_TRUE(text::containsLoosely("Work", " \u3000\n", CaseRules::common));
    EXPECT_TRUE(text::containsLoosely("", "", CaseRules::common));
    EXPECT_TRUE(text::containsLoosely("To do", "o d", CaseRules::common));
    EXPECT_FALSE(text::containsLoosely("Todo", "o d", CaseRules::common));
}

} // namespace
} // namespace vexil
