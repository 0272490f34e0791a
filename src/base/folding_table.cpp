// SPDX-License-Identifier: Apache-2.0
#include "base/folding_table.h"

#include "base/utf8_points.h"

#include <unicode/normalizer2.h>

#include <algorithm>
#include <utility>

namespace vexil::text {

namespace {

// Begin and end of ranges outside of the table that fold to themselves and do not fuse with a character before them.
constexpr std::pair<char32_t, char32_t> kFoldToThemselves[] = {
    {0x4E00, 0xA000},   // ideographs
    {0xAC00, 0xD7A4},   // Hangul syllables
    {0x3041, 0x3097},   // Hiragana
    {0x30A0, 0x3100},   // Katakana
    {0x3001, 0x302A},   // punctuation of both
    {0x2010, 0x2028},   // dashes and quotation marks
    {0x2030, 0x205F},   // more punctuation
    {0x2190, 0x2329},   // arrows and mathematics
    {0x2500, 0x2800},   // lines, boxes and symbols
    {0x3400, 0x4DC0},   // more ideographs
    {0x1F300, 0x1FB00}, // emoji
};

bool foldsToItself(char32_t point) {
    for (const auto& [begin, end] : kFoldToThemselves) {
        if (point >= begin && point < end)
            return true;
    }
    return false;
}

struct First {
    char32_t point; // zero, which no table has, where the text is ill-formed
    std::size_t size;
};

First firstOf(std::string_view utf8) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(utf8.data());
    const auto isTrail = [bytes](std::size_t i) { return (bytes[i] & 0xC0) == 0x80; };
    const auto bitsOf = [bytes](std::size_t i) { return static_cast<char32_t>(bytes[i] & 0x3F); };
    const char32_t lead = bytes[0];
    if (lead < 0x80)
        return {lead, 1};
    if (lead >= 0xC2 && lead < 0xE0 && utf8.size() >= 2 && isTrail(1))
        return {(lead & 0x1F) << 6 | bitsOf(1), 2};
    if (lead >= 0xE0 && lead < 0xF0 && utf8.size() >= 3 && isTrail(1) && isTrail(2)) {
        const char32_t point = (lead & 0x0F) << 12 | bitsOf(1) << 6 | bitsOf(2);
        return {point >= 0x800 ? point : 0, 3};
    }
    if (lead >= 0xF0 && lead < 0xF5 && utf8.size() >= 4 && isTrail(1) && isTrail(2) && isTrail(3)) {
        const char32_t point = (lead & 0x07) << 18 | bitsOf(1) << 12 | bitsOf(2) << 6 | bitsOf(3);
        return {point >= 0x10000 ? point : 0, 4};
    }
    return {0, 0};
}

// Returns the end.
char* append(char* to, char32_t point) {
    if (point < 0x80) {
        *to++ = static_cast<char>(point);
    } else if (point < 0x800) {
        *to++ = static_cast<char>(0xC0 | point >> 6);
        *to++ = static_cast<char>(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        *to++ = static_cast<char>(0xE0 | point >> 12);
        *to++ = static_cast<char>(0x80 | (point >> 6 & 0x3F));
        *to++ = static_cast<char>(0x80 | (point & 0x3F));
    } else {
        *to++ = static_cast<char>(0xF0 | point >> 18);
        *to++ = static_cast<char>(0x80 | (point >> 12 & 0x3F));
        *to++ = static_cast<char>(0x80 | (point >> 6 & 0x3F));
        *to++ = static_cast<char>(0x80 | (point & 0x3F));
    }
    return to;
}

std::string utf8Of(char32_t point) {
    char bytes[4];
    return {bytes, append(bytes, point)};
}

} // namespace

FoldingTable::FoldingTable(std::string (*fold)(std::string_view utf8)) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* composition = icu::Normalizer2::getNFCInstance(status);
    const icu::Normalizer2* decomposition = icu::Normalizer2::getNFDInstance(status);
    if (U_FAILURE(status) != 0)
        return;
    const auto standsAlone = [](const icu::Normalizer2* form, char32_t point) {
        return form->hasBoundaryBefore(static_cast<UChar32>(point)) != 0;
    };
    for (char32_t point = 0; point < kSecondEnd; point = point + 1 == kEnd ? kSecondBegin : point + 1) {
        const std::string utf8 = utf8Of(point);
        const std::string folded = fold(utf8);
        bool allStandAlone = standsAlone(decomposition, point) && folded.size() <= kMaxGrowth * utf8.size();
        char32_t last = 0;
        std::size_t count = 0;
        for (std::size_t at = 0; const auto next = nextPoint(folded, at); ++count) {
            last = *next;
            allStandAlone = allStandAlone && last < kSeveral && standsAlone(composition, last);
        }
        if (!allStandAlone)
            continue;
        points_[indexOf(point)] = static_cast<std::uint16_t>(count == 1 ? last : kSeveral);
        if (count != 1)
            several_.emplace(point, folded);
    }
}

bool FoldingTable::appendFolded(std::string& folded, std::string_view utf8) const {
    const std::size_t begin = folded.size();
    folded.resize(begin + kMaxGrowth * utf8.size());
    char* to = folded.data() + begin;
    while (!utf8.empty()) {
        const auto [point, size] = firstOf(utf8);
        const bool isInTable = point < kEnd || (point >= kSecondBegin && point < kSecondEnd);
        const char32_t one = isInTable ? points_[indexOf(point)] : 0;
        if (one == kSeveral)
            to = std::copy_n(several_.at(point).data(), several_.at(point).size(), to);
        else if (one != 0)
            to = append(to, one);
        else if (!isInTable && foldsToItself(point))
            to = append(to, point);
        else
            break;
        utf8.remove_prefix(size);
    }
    const bool isWhole = utf8.empty();
    folded.resize(isWhole ? static_cast<std::size_t>(to - folded.data()) : begin);
    return isWhole;
}

} // namespace vexil::text
