// SPDX-License-Identifier: Apache-2.0
#include "base/text.h"
#include "base/text_folding.h"

#include <gtest/gtest.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

namespace vexil {
namespace {

using text::CaseRules;

std::string common(std::string_view utf8) {
    return text::fold(utf8, CaseRules::common);
}

std::string turkic(std::string_view utf8) {
    return text::fold(utf8, CaseRules::turkic);
}

std::string bare(std::string_view utf8) {
    return text::foldWithoutAccents(utf8, CaseRules::common);
}

// Folded by ICU in UTF-16, the way that the Unicode standard defines: none of our own short cuts.
std::string byDefinition(const icu::UnicodeString& utf16) {
    UErrorCode status = U_ZERO_ERROR;
    const auto* composed = icu::Normalizer2::getNFCInstance(status);
    const auto* decomposed = icu::Normalizer2::getNFDInstance(status);
    icu::UnicodeString folded = decomposed->normalize(utf16, status);
    folded.foldCase();
    std::string utf8;
    composed->normalize(folded, status).toUTF8String(utf8);
    EXPECT_TRUE(U_SUCCESS(status));
    return utf8;
}

std::string utf8Of(const icu::UnicodeString& utf16) {
    std::string utf8;
    return utf16.toUTF8String(utf8);
}

TEST(TextFoldingTest, FoldsEveryAsciiLetterAndNothingElseOfAscii) {
    for (int c = 0; c < 0x80; ++c) {
        const bool isUpper = c >= 'A' && c <= 'Z';
        const std::string one(1, static_cast<char>(c));
        EXPECT_EQ(common(one), std::string(1, static_cast<char>(isUpper ? c + 32 : c))) << c;
    }
    EXPECT_EQ(common(std::string("A\0B", 3)), std::string("a\0b", 3));
    EXPECT_EQ(common(""), "");
}

TEST(TextFoldingTest, CaseDoesNotCountInAnyScript) {
    EXPECT_EQ(common("GRÜẞE"), common("grüße"));
    EXPECT_EQ(common("Straße"), common("STRASSE"));
    EXPECT_EQ(common("ΟΔΟΣ"), common("οδος")); // with a final sigma
    EXPECT_EQ(common("ὈΔΥΣΣΕΎΣ"), common("ὀδυσσεύς"));
    EXPECT_EQ(common("ПРИВЕТ, Ёж"), common("привет, ёЖ"));
    EXPECT_EQ(common("ՀԱՅԵՐԵՆ"), common("հայերեն"));
    EXPECT_EQ(common("Ｆｕｌｌ"), common("ｆＵＬＬ"));
    EXPECT_EQ(common("𐐀"), common("𐐨"));
    EXPECT_EQ(common("ﬁn"), common("FIN"));
}

TEST(TextFoldingTest, HowAnAccentIsWrittenDoesNotCount) {
    EXPECT_EQ(common("\u00e9"), common("E\u0301"));
    EXPECT_EQ(common("\u1ed9"), common("O\u0323\u0302"));
    EXPECT_EQ(common("o\u0302\u0323"), common("O\u0323\u0302"));
    EXPECT_EQ(common("\u212b"), common("a\u030a")); // the sign of the ångström
    EXPECT_EQ(common("\uac01"), common("\u1100\u1161\u11a8"));
    EXPECT_EQ(common("\u304c"), common("\u304b\u3099"));
    EXPECT_EQ(common("\u1fb3\u0323"), common("\u0391\u0323\u0399")); // the iota below becomes a letter
}

TEST(TextFoldingTest, AccentsCount) {
    EXPECT_NE(common("e"), common("é"));
    EXPECT_NE(common("u"), common("ü"));
    EXPECT_NE(common("か"), common("が"));
}

TEST(TextFoldingTest, ADottedIIsAnotherLetterButInTurkishAndAzeri) {
    EXPECT_EQ(common("I"), common("i"));
    EXPECT_EQ(common("\u0130"), common("I\u0307"));
    EXPECT_NE(common("\u0130"), common("i"));
    EXPECT_NE(common("\u0131"), common("I"));

    EXPECT_EQ(turkic("DİYARBAKIR"), turkic("diyarbakır"));
    EXPECT_EQ(turkic("I"), "\u0131");
    EXPECT_EQ(turkic("Istanbul"), turkic("\u0131stanbul"));
    EXPECT_EQ(turkic("\u0130"), "i");
    EXPECT_EQ(turkic("I\u0307"), "i");
    EXPECT_EQ(turkic("I\u0323\u0307"), turkic("i\u0323"));
    EXPECT_EQ(turkic("I\u0301\u0307"), turkic("\u0131\u0301\u0307")) << "the dot is not that of the letter";
    EXPECT_EQ(turkic("STRASSE"), turkic("straße"));
    EXPECT_EQ(turkic("TITLE"), "t\u0131tle");
}

TEST(TextFoldingTest, KnowsTheLocalesOfTheTwoLettersI) {
    for (const std::string_view locale : {"tr", "tr_TR", "tr_TR.UTF-8", "TR-tr", "az_AZ@latin", "aze", "tur.UTF-8"})
        EXPECT_EQ(text::caseRulesOf(locale), CaseRules::turkic) << locale;
    for (const std::string_view locale : {"", "C", "C.UTF-8", "POSIX", "en_TR.UTF-8", "trv_TW", "de_DE", "t", "ast_ES"})
        EXPECT_EQ(text::caseRulesOf(locale), CaseRules::common) << locale;
}

TEST(TextFoldingTest, TheFirstLocaleVariableThatIsNotEmptyCounts) {
    EXPECT_EQ(text::caseRulesOf(nullptr, nullptr, nullptr), CaseRules::common);
    EXPECT_EQ(text::caseRulesOf(nullptr, nullptr, "tr_TR"), CaseRules::turkic);
    EXPECT_EQ(text::caseRulesOf("", "tr_TR", "de_DE"), CaseRules::turkic);
    EXPECT_EQ(text::caseRulesOf("en_US.UTF-8", "tr_TR", "tr_TR"), CaseRules::common);
}

TEST(TextFoldingTest, FoldsEveryCharacterAsTheStandardDefines) {
    for (UChar32 point = 1; point <= 0x10FFFF; ++point) {
        if (U_IS_SURROGATE(point))
            continue;
        const icu::UnicodeString one(point);
        ASSERT_EQ(common(utf8Of(one)), byDefinition(one)) << std::hex << point;
    }
}

TEST(TextFoldingTest, FoldsACharacterTheSameWhateverStandsBesideIt) {
    static constexpr UChar32 kNeighbours[] = {'A',   0xE9,   0x130,  0x301,  0x323, 0x345,
                                              0x3A3, 0x1161, 0x11A8, 0x3099, 0x4F60};
    for (UChar32 point = 1; point < 0x20000; point += point < 0x3400 ? 1 : 61) {
        if (U_IS_SURROGATE(point))
            continue;
        for (const UChar32 neighbour : kNeighbours) {
            icu::UnicodeString before(neighbour);
            before.append(point);
            icu::UnicodeString after(point);
            after.append(neighbour);
            ASSERT_EQ(common(utf8Of(before)), byDefinition(before)) << std::hex << neighbour << ' ' << point;
            ASSERT_EQ(common(utf8Of(after)), byDefinition(after)) << std::hex << point << ' ' << neighbour;
        }
    }
}

// A letter of an Indian script is folded the long way, with all of its text.
TEST(TextFoldingTest, TheShortWayAndTheLongOneAgree) {
    for (UChar32 point = 1; point < 0x3400; ++point) {
        const std::string one = utf8Of(icu::UnicodeString(point));
        ASSERT_EQ(common(one) + "\u0905", common(one + "\u0905")) << std::hex << point;
        ASSERT_EQ(turkic(one) + "\u0905", turkic(one + "\u0905")) << std::hex << point;
        ASSERT_EQ(turkic("I" + one) + "\u0905", turkic("I" + one + "\u0905")) << std::hex << point;
    }
}

TEST(TextFoldingTest, FoldingTwiceChangesNothing) {
    for (const std::string_view sample :
         {"Größe ẞ", "DİYARBAKIR", "I\u0307", "\u1fb3\u0323", "\u0390 \u03b0", "각가"}) {
        EXPECT_EQ(common(common(sample)), common(sample));
        EXPECT_EQ(turkic(turkic(sample)), turkic(sample));
    }
}

TEST(TextFoldingTest, AnIllFormedSequenceCountsAsAReplacementCharacter) {
    EXPECT_EQ(common("A\xFFZ"), "a\uFFFDz");
    EXPECT_EQ(common("\xC3"), "\uFFFD");
    EXPECT_EQ(common("Ä\xE2\x82"), "ä\uFFFD");
    EXPECT_EQ(common("\xED\xA0\x80").find('\xED'), std::string::npos);
    EXPECT_TRUE(text::isValidUtf8(common("\xF0\x9F\x98 \xC0\x80 \xF5")));
    EXPECT_EQ(bare("\xFF"
                   "É"),
              "\uFFFDe");
}

TEST(TextFoldingTest, AppendsToWhatIsThere) {
    std::string text = "Before ";
    text::appendFolded(text, "ASCII ", CaseRules::common);
    text::appendFolded(text, "Größe ", CaseRules::common);
    text::appendFolded(text, "I", CaseRules::turkic);
    EXPECT_EQ(text, "Before ascii grösse ı");
}

TEST(TextFoldingTest, DropsTheAccentsThatAreNoLetters) {
    EXPECT_EQ(bare("Crème Brûlée"), "creme brulee");
    EXPECT_EQ(bare("Cre\u0300me"), "creme");
    EXPECT_EQ(bare("Tiếng Việt"), "tieng viet");
    EXPECT_EQ(bare("Ελληνικά"), bare("ΕΛΛΗΝΙΚΑ"));
    EXPECT_EQ(bare("Ёлка"), bare("елка"));
    EXPECT_EQ(bare("שָׁלוֹם"), bare("שלום"));
    EXPECT_EQ(bare("مَرْحَبًا"), bare("مرحبا"));
}

TEST(TextFoldingTest, KeepsTheMarksThatMakeAnotherLetter) {
    EXPECT_NE(bare("が"), bare("か"));
    EXPECT_NE(bare("हिन्दी"), bare("हिनदी")); // the mark that takes the vowel away
    EXPECT_NE(bare("각"), bare("가"));
    EXPECT_NE(bare("ø"), bare("o"));
    EXPECT_NE(bare("ı"), bare("i"));
}

} // namespace
} // namespace vexil
