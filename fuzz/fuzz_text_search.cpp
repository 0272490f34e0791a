// SPDX-License-Identifier: Apache-2.0
// A query and texts to search. The lowest bit of the first byte says by which rules, the next one whether the other
// bytes are UTF-8 (or fail to be) or each stand for a character that is hard to fold. They are cut at each 0xFE into
// the query, a query that may narrow it, and texts. What is found must be what a slow search finds that has no short
// cuts: it works in UTF-16 and compares decomposed texts.
#include "base/text.h"
#include "base/text_search.h"

#include "fuzz/fuzz_target.h"
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace vexil {
namespace {

using fuzz::require;
using text::CaseRules;

const icu::Normalizer2& form(bool composed) {
    UErrorCode status = U_ZERO_ERROR;
    const auto* normalizer =
        composed ? icu::Normalizer2::getNFCInstance(status) : icu::Normalizer2::getNFDInstance(status);
    require(U_SUCCESS(status) != 0, "ICU has its data");
    return *normalizer;
}

icu::UnicodeString normalized(const icu::UnicodeString& utf16, bool composed) {
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString result = form(composed).normalize(utf16, status);
    require(U_SUCCESS(status) != 0, "ICU normalizes");
    return result;
}

// An I has its dot where no mark between them sits above as well; what is decomposed is in the order of places.
void lowerTurkicI(icu::UnicodeString& decomposed) {
    for (int32_t i = 0; i < decomposed.length(); ++i) {
        if (decomposed[i] != u'I')
            continue;
        int32_t dot = i + 1;
        while (dot < decomposed.length()) {
            const auto place = form(false).getCombiningClass(decomposed.char32At(dot));
            if (decomposed[dot] == 0x307 || place == 0 || place == 230)
                break;
            dot = decomposed.moveIndex32(dot, 1);
        }
        const bool hasDot = dot < decomposed.length() && decomposed[dot] == 0x307;
        decomposed.setCharAt(i, hasDot ? u'i' : u'\u0131');
        if (hasDot)
            decomposed.remove(dot, 1);
    }
}

icu::UnicodeString slowlyFolded(std::string_view utf8, CaseRules rules) {
    auto folded = normalized(icu::UnicodeString::fromUTF8(icu::StringPiece(text::repairedUtf8(utf8))), false);
    if (rules == CaseRules::turkic)
        lowerTurkicI(folded);
    return normalized(folded.foldCase(), true);
}

// Between two letters, the marks of a letter and the parts of a syllable counting as one.
bool isBoundary(const icu::UnicodeString& folded, int32_t at) {
    return at == 0 || at == folded.length() || form(true).hasBoundaryBefore(folded.char32At(at)) != 0;
}

bool slowlyContains(const icu::UnicodeString& folded, const icu::UnicodeString& query) {
    for (int32_t hit = 0; hit + query.length() <= folded.length(); ++hit) {
        if (isBoundary(folded, hit) && isBoundary(folded, hit + query.length()) &&
            normalized(folded.tempSubString(hit, query.length()), false) == normalized(query, false))
            return true;
    }
    return false;
}

// Letters whose case is odd, marks of all places, parts of letters and of syllables, and plain neighbours for them.
std::string hardCharacter(char pick) {
    static constexpr std::string_view kHard[] = {
        "i",      "I",      "\u0130", "\u0131", "\u0307",     "\u0301",     "\u0323",     "\u0345", "\u0302", "\u00ed",
        "\u00cc", "\u012e", "s",      "\u00df", "\u1e9e",     "\u017f",     "\ufb00",     "\ufb05", "\u0149", "\u01f0",
        "\u03c3", "\u03c2", "\u03a3", "\u03b1", "\u0391",     "\u1fb3",     "\u1fbc",     "\u1fb7", "\u0399", "\u03b9",
        "\u1fbe", "\u0390", "\u1fd3", "\u212b", "\u00e5",     "k",          "\u212a",     "\u1100", "\u1161", "\u11a8",
        "\uac00", "\uac01", "\u304b", "\u304c", "\u3099",     "\u0915",     "\u093c",     "\u0958", "\u09c7", "\u09be",
        "\u0f71", "\u0f73", "\u4e16", "\uf900", "\U0001F600", "\U00010400", "\U0001D160", " ",      "x",      "\u1e69",
        "\u200d", "\u0587", "\u13a0", "\uab70"};
    return std::string(kHard[static_cast<unsigned char>(pick) % std::size(kHard)]);
}

std::vector<std::string> partsOf(std::string_view input) {
    std::vector<std::string> parts;
    for (std::size_t end = 0; end != std::string_view::npos; input.remove_prefix(std::min(input.size(), end + 1))) {
        end = input.find('\xFE');
        parts.emplace_back(input.substr(0, end));
        if (end == std::string_view::npos)
            break;
    }
    return parts;
}

void checkText(std::string_view utf8, const std::string& folded, const text::Query& query, const std::string& queryText,
               CaseRules rules) {
    std::string slow;
    slowlyFolded(utf8, rules).toUTF8String(slow);
    require(folded == slow, "a text folds as the standard defines");
    require(text::fold(folded, rules) == folded, "folding twice changes nothing");
    std::string decomposed;
    normalized(icu::UnicodeString::fromUTF8(icu::StringPiece(text::repairedUtf8(utf8))), false)
        .toUTF8String(decomposed);
    require(text::fold(decomposed, rules) == folded, "another spelling folds to the same");
    const bool isIn = queryText.empty() || slowlyContains(slowlyFolded(utf8, rules), slowlyFolded(queryText, rules));
    require(query.isIn(folded) == isIn, "a query is found where a slow search finds it");
    require(text::containsLoosely(utf8, utf8, rules), "a name contains itself");
}

} // namespace
} // namespace vexil

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vexil;
    if (size == 0)
        return 0;
    const auto rules = data[0] % 2 == 0 ? text::CaseRules::common : text::CaseRules::turkic;
    auto parts = partsOf({reinterpret_cast<const char*>(data) + 1, size - 1});
    if (data[0] / 2 % 2 == 1) {
        for (auto& part : parts) {
            std::string hard;
            for (const char pick : part)
                hard += hardCharacter(pick);
            part = hard;
        }
    }
    parts.resize(std::max<std::size_t>(parts.size(), 3));
    const text::Query query(parts[0], rules);
    const text::Query longer(parts[1], rules);

    std::string joined;
    bool isInAny = false;
    for (std::size_t i = 2; i < parts.size(); ++i) {
        const std::string folded = text::fold(parts[i], rules);
        checkText(parts[i], folded, query, parts[0], rules);
        fuzz::require(!longer.narrows(query) || !longer.isIn(folded) || query.isIn(folded),
                      "what has the longer query has the shorter one");
        isInAny = isInAny || query.isIn(folded);
        joined += folded + text::kEndOfText;
    }
    fuzz::require(query.isEmpty() || query.isIn(joined) == isInAny, "texts side by side do not mix");
    return 0;
}
