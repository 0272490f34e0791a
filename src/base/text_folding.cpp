// SPDX-License-Identifier: Apache-2.0
#include "base/text_folding.h"

#include "base/folding_table.h"
#include "base/text.h"
#include "base/utf8_points.h"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <utility>

namespace vexil::text {

namespace {

constexpr char32_t kCombiningDotAbove = 0x307;
constexpr std::string_view kDotlessI = "\u0131";

unsigned char byteOf(char c) {
    return static_cast<unsigned char>(c);
}

bool isAsciiUpper(unsigned char c) {
    return static_cast<unsigned char>(c - 'A') < 26;
}

icu::StringPiece pieceOf(std::string_view utf8) {
    return {utf8.data(), static_cast<std::int32_t>(utf8.size())};
}

enum class Form { composed, decomposed };

// Where ICU fails, which takes a lack of memory, these two hand back what they were given.
std::string normalized(std::string utf8, Form form) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* normalizer =
        form == Form::composed ? icu::Normalizer2::getNFCInstance(status) : icu::Normalizer2::getNFDInstance(status);
    if (U_FAILURE(status))
        return utf8;
    std::string result;
    icu::StringByteSink<std::string> sink(&result, static_cast<std::int32_t>(utf8.size()));
    normalizer->normalizeUTF8(0, pieceOf(utf8), sink, nullptr, status);
    return U_SUCCESS(status) ? result : utf8;
}

std::string caseFolded(std::string_view utf8) {
    UErrorCode status = U_ZERO_ERROR;
    std::string result;
    icu::StringByteSink<std::string> sink(&result, static_cast<std::int32_t>(utf8.size()));
    icu::CaseMap::utf8Fold(U_FOLD_CASE_DEFAULT, pieceOf(utf8), sink, nullptr, status);
    return U_SUCCESS(status) ? result : std::string(utf8);
}

// The end of the dot above that belongs to the letter that ends at `at`; none where it has none. A mark in between that
// sits in the same place takes the dot away from the letter.
std::optional<std::size_t> endOfDotAbove(std::string_view decomposed, std::size_t at) {
    static constexpr std::uint8_t kAbove = 230;
    while (const auto point = nextPoint(decomposed, at)) {
        if (*point == kCombiningDotAbove)
            return at;
        const std::uint8_t place = u_getCombiningClass(static_cast<UChar32>(*point));
        if (place == 0 || place == kAbove)
            break;
    }
    return std::nullopt;
}

// Decomposed text with I in lower case as Turkish has it: ı, or i where it carries a dot.
std::string withTurkicI(std::string_view decomposed) {
    static constexpr std::size_t kDotSize = 2;
    std::string result;
    for (std::size_t i = 0; i < decomposed.size(); ++i) {
        if (decomposed[i] != 'I') {
            result += decomposed[i];
        } else if (const auto dotEnd = endOfDotAbove(decomposed, i + 1)) {
            result += 'i';
            result += decomposed.substr(i + 1, *dotEnd - kDotSize - (i + 1));
            i = *dotEnd - 1;
        } else {
            result += kDotlessI;
        }
    }
    return result;
}

// U+0345, the iota below a Greek letter, or the beginning of a character that has one.
bool mayHaveIotaBelow(std::string_view utf8) {
    static constexpr std::string_view kMark = "\u0345";
    static constexpr std::string_view kComposed[] = {"\xE1\xBE", "\xE1\xBF"};
    return utf8.find(kMark) != std::string_view::npos ||
           std::any_of(std::begin(kComposed), std::end(kComposed),
                       [&](std::string_view lead) { return utf8.find(lead) != std::string_view::npos; });
}

// By the book: two texts are the same, whatever their case, where the decomposed forms of their folded decomposed forms
// are. It matters that the text is decomposed first only where folding makes a letter of a mark: the iota below.
std::string foldedInSomeForm(std::string_view utf8, CaseRules rules) {
    if (!isValidUtf8(utf8))
        return foldedInSomeForm(repairedUtf8(utf8), rules);
    if (rules == CaseRules::turkic)
        return caseFolded(withTurkicI(normalized(std::string(utf8), Form::decomposed)));
    if (mayHaveIotaBelow(utf8))
        return caseFolded(normalized(std::string(utf8), Form::decomposed));
    return caseFolded(utf8);
}

std::string foldedByTheBook(std::string_view utf8, CaseRules rules) {
    return normalized(foldedInSomeForm(utf8, rules), Form::composed);
}

// Marks with a place of their own (kana, Indian scripts, Thai, Tibetan) make another letter or vowel.
bool isAccent(char32_t point) {
    static constexpr std::uint8_t kOverlay = 1;
    static constexpr std::uint8_t kFirstHebrew = 10;
    static constexpr std::uint8_t kLastSyriac = 36;
    static constexpr std::uint8_t kFirstGeneral = 200;
    const std::uint8_t place = u_getCombiningClass(static_cast<UChar32>(point));
    return place == kOverlay || (place >= kFirstHebrew && place <= kLastSyriac) || place >= kFirstGeneral;
}

template <CaseRules Rules> const FoldingTable& foldingTable() {
    static const FoldingTable kTable([](std::string_view utf8) { return foldedByTheBook(utf8, Rules); });
    return kTable;
}

// False, with nothing appended, where the text is not ASCII.
bool appendFoldedAscii(std::string& folded, std::string_view utf8, CaseRules rules) {
    const std::size_t begin = folded.size();
    folded.resize(begin + utf8.size());
    char* const to = folded.data() + begin;
    unsigned char seen = 0;
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        const unsigned char c = byteOf(utf8[i]);
        seen |= c;
        to[i] = static_cast<char>(c + (isAsciiUpper(c) ? 'a' - 'A' : 0));
    }
    const bool isCommon = rules == CaseRules::common || utf8.find('I') == std::string_view::npos;
    if (seen < 0x80 && isCommon)
        return true;
    folded.resize(begin);
    return false;
}

} // namespace

CaseRules caseRulesOf(std::string_view locale) {
    std::string language;
    for (const char c : locale.substr(0, locale.find_first_of("_-.@")))
        language += static_cast<char>(isAsciiUpper(byteOf(c)) ? c + ('a' - 'A') : c);
    const bool isTurkic = language == "tr" || language == "tur" || language == "az" || language == "aze";
    return isTurkic ? CaseRules::turkic : CaseRules::common;
}

CaseRules caseRulesOf(const char* lcAll, const char* lcCtype, const char* lang) {
    for (const char* value : {lcAll, lcCtype, lang}) {
        if (value != nullptr && *value != '\0')
            return caseRulesOf(std::string_view(value));
    }
    return CaseRules::common;
}

void appendFolded(std::string& folded, std::string_view utf8, CaseRules rules) {
    if (appendFoldedAscii(folded, utf8, rules))
        return;
    const auto& table =
        rules == CaseRules::turkic ? foldingTable<CaseRules::turkic>() : foldingTable<CaseRules::common>();
    if (!table.appendFolded(folded, utf8))
        folded += foldedByTheBook(utf8, rules);
}

std::string fold(std::string_view utf8, CaseRules rules) {
    std::string folded;
    appendFolded(folded, utf8, rules);
    return folded;
}

std::string foldWithoutAccents(std::string_view utf8, CaseRules rules) {
    const std::string decomposed = normalized(foldedInSomeForm(utf8, rules), Form::decomposed);
    std::string bare;
    std::size_t at = 0;
    for (std::size_t begin = 0; const auto point = nextPoint(decomposed, at); begin = at) {
        if (!isAccent(*point))
            bare += decomposed.substr(begin, at - begin);
    }
    return normalized(std::move(bare), Form::composed);
}

} // namespace vexil::text
