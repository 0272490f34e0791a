// SPDX-License-Identifier: Apache-2.0
#include "base/text_columns.h"

#include "base/text.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>

namespace vexil::text {

namespace {

struct CloseText {
    void operator()(UText* text) const { utext_close(text); }
};
using OpenText = std::unique_ptr<UText, CloseText>;

OpenText openText(std::string_view utf8) {
    UErrorCode status = U_ZERO_ERROR;
    OpenText view(utext_openUTF8(nullptr, utf8.data(), static_cast<std::int64_t>(utf8.size()), &status));
    return U_SUCCESS(status) != 0 ? std::move(view) : nullptr;
}

constexpr UChar32 kReplacement = 0xFFFD;
constexpr UChar32 kSoftHyphen = 0xAD;
constexpr UChar32 kEmojiVariation = 0xFE0F;

bool isPlainAscii(std::string_view utf8) {
    return std::all_of(utf8.begin(), utf8.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
}

std::size_t columnsOfPoint(UChar32 point) {
    switch (u_charType(point)) {
    case U_NON_SPACING_MARK:
    case U_ENCLOSING_MARK:
    case U_CONTROL_CHAR:
        return 0;
    case U_FORMAT_CHAR:
        return point == kSoftHyphen ? 1 : 0;
    default:
        break;
    }
    // The vowel and the end of a syllable are drawn into the cells of its beginning.
    const auto syllable = u_getIntPropertyValue(point, UCHAR_HANGUL_SYLLABLE_TYPE);
    if (syllable == U_HST_VOWEL_JAMO || syllable == U_HST_TRAILING_JAMO)
        return 0;
    const auto width = u_getIntPropertyValue(point, UCHAR_EAST_ASIAN_WIDTH);
    return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

// Of the one user-perceived character of `text` that begins and ends there.
std::size_t columnsOfCharacter(UText* text, std::int32_t begin, std::int32_t end) {
    std::size_t columns = 0;
    utext_setNativeIndex(text, begin);
    while (utext_getNativeIndex(text) < end) {
        const UChar32 point = utext_next32(text);
        if (u_hasBinaryProperty(point, UCHAR_EMOJI_PRESENTATION) || point == kEmojiVariation)
            return 2;
        columns += columnsOfPoint(point);
    }
    return columns;
}

// Calls `visit` with the columns and the end of one user-perceived character after the other, until it returns false.
template <class Visit> void eachCharacter(std::string_view utf8, Visit visit) {
    UErrorCode status = U_ZERO_ERROR;
    const OpenText view = openText(utf8);
    const std::unique_ptr<icu::BreakIterator> characters(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (!view || U_FAILURE(status) != 0)
        return; // without ICU's data nothing has a width
    characters->setText(view.get(), status);
    if (U_FAILURE(status) != 0)
        return;
    std::int32_t begin = characters->first();
    for (std::int32_t end = characters->next(); end != icu::BreakIterator::DONE; end = characters->next()) {
        if (!visit(columnsOfCharacter(view.get(), begin, end), static_cast<std::size_t>(end)))
            return;
        begin = end;
    }
}

// None of the marks that a right-to-left script needs: those that reorder what stands around them.
bool turnsDirection(UChar32 point) {
    return (point >= 0x202A && point <= 0x202E) || (point >= 0x2066 && point <= 0x2069);
}

UChar32 visibleForm(UChar32 point) {
    constexpr UChar32 kPictures = 0x2400;
    constexpr UChar32 kPictureOfDelete = 0x2421;
    if (point < 0x20)
        return kPictures + point;
    if (point == 0x7F)
        return kPictureOfDelete;
    const bool isSeparator = point == 0x2028 || point == 0x2029;
    return u_isISOControl(point) || isSeparator || turnsDirection(point) ? kReplacement : point;
}

} // namespace

std::size_t columnCount(std::string_view utf8) {
    if (isPlainAscii(utf8))
        return utf8.size();
    std::size_t columns = 0;
    eachCharacter(utf8, [&](std::size_t width, std::size_t) {
        columns += width;
        return true;
    });
    return columns;
}

std::string_view cutToColumns(std::string_view utf8, std::size_t columns) {
    if (isPlainAscii(utf8))
        return utf8.substr(0, columns);
    std::size_t cut = 0;
    eachCharacter(utf8, [&](std::size_t width, std::size_t end) {
        if (width > columns)
            return false;
        columns -= width;
        cut = end;
        return true;
    });
    return utf8.substr(0, cut);
}

std::string withVisibleControls(std::string_view utf8, LineBreaks lineBreaks) {
    if (isPlainAscii(utf8))
        return std::string(utf8);
    const std::string wellFormed = repairedUtf8(utf8);
    const OpenText view = openText(wellFormed);
    std::string visible;
    visible.reserve(wellFormed.size());
    for (UChar32 point = view ? utext_next32(view.get()) : U_SENTINEL; point != U_SENTINEL;
         point = utext_next32(view.get())) {
        const bool isKept = lineBreaks == LineBreaks::keep && (point == '\n' || point == '\t');
        icu::UnicodeString(isKept ? point : visibleForm(point)).toUTF8String(visible);
    }
    return visible;
}

} // namespace vexil::text
