// SPDX-License-Identifier: Apache-2.0
#include "base/text.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

TEST(TextTest, CountsCharactersAsAPersonSeesThem) {
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
    const std::string combined = "e\u0301";
    const std::string flag = "\U0001F1E9\U0001F1EA";
    for (const auto& one : {family, combined, flag, std::string("\r\n")}) {
        EXPECT_FALSE(text::hasMoreCharactersThan(one, 1)) << one;
        EXPECT_TRUE(text::hasMoreCharactersThan(one, 0)) << one;
    }
}

TEST(TextTest, TheLimitItselfIsWithin) {
    EXPECT_FALSE(text::hasMoreCharactersThan(std::string(4096, 'x'), 4096));
    EXPECT_TRUE(text::hasMoreCharactersThan(std::string(4097, 'x'), 4096));
    std::string accents;
    for (int i = 0; i < 4096; ++i)
        accents += "e\u0301";
    EXPECT_FALSE(text::hasMoreCharactersThan(accents, 4096));
    EXPECT_TRUE(text::hasMoreCharactersThan(accents + "x", 4096));
}

TEST(TextTest, FoldsWhiteSpaceAndControlCharactersToOneBlank) {
    EXPECT_EQ(text::foldedToOneLine(" \t one\r\n\n two\u3000\u2028three \n", 200, 4096), "one two three");
    EXPECT_EQ(text::foldedToOneLine("a\x1B[31mb\u009Bc\x7F", 200, 4096), "a [31mb c");
    EXPECT_EQ(text::foldedToOneLine(std::string_view("a\0b", 3), 200, 4096), "a b");
    EXPECT_EQ(text::foldedToOneLine(" \n\t ", 200, 4096), "");
    EXPECT_EQ(text::foldedToOneLine("", 200, 4096), "");
}

TEST(TextTest, CutsALineBetweenCharactersAsAPersonSeesThem) {
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
    EXPECT_EQ(text::foldedToOneLine(family + family + family, 2, 4096), family + family);
    EXPECT_EQ(text::foldedToOneLine("e\u0301e\u0301", 1, 4096), "e\u0301");
    EXPECT_EQ(text::foldedToOneLine("abc", 3, 4096), "abc");
    EXPECT_EQ(text::foldedToOneLine("abc", 0, 4096), "");
    EXPECT_EQ(text::foldedToOneLine("abc def", 4, 4096), "abc");
    EXPECT_EQ(text::foldedToOneLine("abc\u0301d", 3, 4096), "abc\u0301");
    EXPECT_EQ(text::foldedToOneLine("abcd\u0301", 3, 4096), "abc");
    EXPECT_EQ(text::foldedToOneLine("abc \u0301", 3, 4096), "abc");
    EXPECT_EQ(text::foldedToOneLine("abc def", 200, 5), "abc d");
    EXPECT_EQ(text::foldedToOneLine("abc def", 200, 4), "abc");
}

TEST(TextTest, CutsALineOfEndlessCharactersByItsBytes) {
    std::string tower = "e";
    for (int i = 0; i < 10'000; ++i)
        tower += "\u0301";
    const std::string line = text::foldedToOneLine(tower, 200, 4096);
    EXPECT_EQ(line.size(), 4095U); // whole code points only
    EXPECT_TRUE(text::isValidUtf8(line));
}

TEST(TextTest, ALineOfIllFormedTextIsWellFormed) {
    EXPECT_EQ(text::foldedToOneLine("a\xFF"
                                    "b\xC3",
                                    200, 4096),
              "a\uFFFDb\uFFFD");
}

TEST(TextTest, TrimsWhiteSpaceOfEveryScriptFromBothEnds) {
    EXPECT_EQ(text::trimmed("  a b \n"), "a b");
    EXPECT_EQ(text::trimmed("\u3000\u2028gr\u00fcn\u00a0\r\n\t"), "gr\u00fcn");
    EXPECT_EQ(text::trimmed("\u00e9"), "\u00e9");
    for (const std::string_view blank : {"", " ", " \n", "\u2003\u2003"})
        EXPECT_EQ(text::trimmed(blank), "");
}

TEST(TextTest, LeavesIllFormedEndsAsTheyAre) {
    EXPECT_EQ(text::trimmed(" \xE2\x80 "), "\xE2\x80");
    EXPECT_EQ(text::trimmed("\xFF"), "\xFF");
}

TEST(TextTest, KnowsLettersAndNumbersOfAllScripts) {
    for (const char* word : {"", "aZ09", "b\u00fccher", "\u4f8b\u3048", "\u0661", "\u2167", "\u00bd", "\U00020000"})
        EXPECT_TRUE(text::hasOnlyLettersNumbersAnd("", word)) << word;
    for (const char* word :
         {" ", "a b", "-", "\u20ac", "\u00a0", "\U0001f600", "a\u200bb", "\xff", "a\xc3", "\xed\xa0\x80"})
        EXPECT_FALSE(text::hasOnlyLettersNumbersAnd("", word)) << word;
    EXPECT_FALSE(text::hasOnlyLettersNumbersAnd("", std::string_view("a\0", 2)));
}

TEST(TextTest, TakesWhatIsNamedBesideLettersAndNumbers) {
    EXPECT_TRUE(text::hasOnlyLettersNumbersAnd("-_", "-a_1-"));
    EXPECT_FALSE(text::hasOnlyLettersNumbersAnd("-_", "a.b"));
}

TEST(TextTest, AMarkBelongsToTheLetterBeforeIt) {
    EXPECT_TRUE(text::hasOnlyLettersNumbersAnd("-", "e\u0301\u0323t\u00e9"));
    EXPECT_TRUE(text::hasOnlyLettersNumbersAnd("-", "\u0939\u093f\u0928\u094d\u0926\u0940"));
    EXPECT_FALSE(text::hasOnlyLettersNumbersAnd("-", "\u0301e"));
    EXPECT_FALSE(text::hasOnlyLettersNumbersAnd("-", "e-\u0301"));
}

TEST(TextTest, RepairsIllFormedSequencesOnly) {
    EXPECT_EQ(text::repairedUtf8("gr\u00fcn"), "gr\u00fcn");
    EXPECT_EQ(text::repairedUtf8("a\xff"
                                 "b"),
              "a\uFFFDb");
    EXPECT_TRUE(text::isValidUtf8(text::repairedUtf8("\xed\xa0\x80\xc3")));
    EXPECT_FALSE(text::isValidUtf8("\xed\xa0\x80"));
}

TEST(TextTest, ReadsLatin1) {
    EXPECT_EQ(text::fromLatin1("gr\xfc\xdf"
                               "e"),
              "gr\u00fc\u00dfe");
}

TEST(TextTest, Latin1TakesWhatFitsAndRefusesTheRest) {
    EXPECT_EQ(text::toLatin1("Gr\xC3\xBC\xC3\x9F"
                             "e \xC2\x80\xC3\xBF"),
              std::optional<std::string>("Gr\xFC\xDF"
                                         "e \x80\xFF"));
    EXPECT_EQ(text::toLatin1(""), std::optional<std::string>(""));
    EXPECT_EQ(text::toLatin1("\xC4\x80"), std::nullopt) << "U+0100";
    EXPECT_EQ(text::toLatin1("\xE2\x82\xAC"), std::nullopt) << "the euro sign";
    EXPECT_EQ(text::toLatin1("a\xC3"), std::nullopt) << "cut in the middle";
}

} // namespace
} // namespace vexil
