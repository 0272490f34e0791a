// SPDX-License-Identifier: Apache-2.0
#include "base/text.h"

#include "base/utf8_points.h"

#include <simdjson.h>
#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

namespace vexil::text {

namespace {

struct CloseText {
    void operator()(UText* text) const { utext_close(text); }
};

using OpenText = std::unique_ptr<UText, CloseText>;

OpenText openText(std::string_view utf8) {
    UErrorCode status = U_ZERO_ERROR;
    OpenText view(utext_openUTF8(nullptr, utf8.data(), static_cast<int64_t>(utf8.size()), &status));
    return U_SUCCESS(status) != 0 ? std::move(view) : nullptr;
}

// Where the first `count` characters of `utf8` end; none where ICU, without its data, cannot say.
std::optional<std::size_t> endOfCharacters(std::string_view utf8, std::size_t count) {
    UErrorCode status = U_ZERO_ERROR;
    const OpenText view = openText(utf8);
    const std::unique_ptr<icu::BreakIterator> characters(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (!view || U_FAILURE(status) != 0)
        return std::nullopt;
    characters->setText(view.get(), status);
    if (U_FAILURE(status) != 0)
        return std::nullopt;
    std::int32_t end = characters->first();
    for (std::size_t seen = 0; seen < count; ++seen) {
        const std::int32_t next = characters->next();
        if (next == icu::BreakIterator::DONE)
            return utf8.size();
        end = next;
    }
    return static_cast<std::size_t>(end);
}

// The same as foldedToOneLine(), for a text that is ASCII up to where it is cut: most are, and ICU takes twenty times
// as long. None for others.
std::optional<std::string> asciiOnOneLine(std::string_view utf8, std::size_t maxCharacters, std::size_t maxBytes) {
    std::string folded;
    bool needsBlank = false;
    for (const char c : utf8) {
        // One more than is wanted: a mark that follows belongs to the last character.
        if (folded.size() > maxCharacters)
            break;
        if (static_cast<unsigned char>(c) >= 0x80)
            return std::nullopt;
        if (c <= ' ' || c == 0x7F) {
            needsBlank = !folded.empty();
            continue;
        }
        if (folded.size() + (needsBlank ? 2 : 1) > maxBytes)
            break;
        if (std::exchange(needsBlank, false))
            folded.push_back(' ');
        folded.push_back(c);
    }
    if (folded.size() > maxCharacters)
        folded.resize(maxCharacters);
    if (folded.ends_with(' '))
        folded.pop_back();
    return folded;
}

} // namespace

bool hasMoreCharactersThan(std::string_view utf8, std::size_t limit) {
    if (utf8.size() <= limit)
        return false; // a character is at least one byte
    const auto end = endOfCharacters(utf8, limit);
    return !end || *end < utf8.size(); // an unmeasured text counts as too long
}

std::string foldedToOneLine(std::string_view utf8, std::size_t maxCharacters, std::size_t maxBytes) {
    if (auto ascii = asciiOnOneLine(utf8, maxCharacters, maxBytes))
        return *std::move(ascii);
    const OpenText view = openText(utf8);
    if (!view)
        return {};
    std::string folded;
    bool needsBlank = false;
    for (UChar32 point = utext_next32(view.get()); point != U_SENTINEL; point = utext_next32(view.get())) {
        if (u_isUWhiteSpace(point) || u_isISOControl(point)) {
            needsBlank = !folded.empty();
            continue;
        }
        std::string character = needsBlank ? " " : "";
        icu::UnicodeString(point).toUTF8String(character);
        if (folded.size() + character.size() > maxBytes)
            break;
        folded += character;
        needsBlank = false;
    }
    folded.resize(endOfCharacters(folded, maxCharacters).value_or(folded.size()));
    if (folded.ends_with(' '))
        folded.pop_back();
    return folded;
}

std::string_view trimmed(std::string_view utf8) {
    std::size_t begin = utf8.size();
    std::size_t end = begin;
    std::size_t next = 0;
    for (std::size_t at = 0; const auto point = nextPoint(utf8, next); at = next) {
        if (u_isUWhiteSpace(static_cast<UChar32>(*point)))
            continue;
        begin = std::min(begin, at);
        end = next;
    }
    return utf8.substr(begin, end - begin);
}

bool hasOnlyLettersNumbersAnd(std::string_view others, std::string_view utf8) {
    const auto isPlain = [&](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               others.find(c) != std::string_view::npos;
    };
    if (std::all_of(utf8.begin(), utf8.end(), isPlain))
        return true;
    bool mayTakeMark = false;
    // What is ill-formed comes as U+FFFD, which is a symbol.
    for (std::size_t next = 0; const auto point = nextPoint(utf8, next);) {
        const std::uint32_t category = U_GET_GC_MASK(static_cast<UChar32>(*point));
        const bool isMark = (category & U_GC_M_MASK) != 0;
        const bool isOther = *point < 0x80 && others.find(static_cast<char>(*point)) != std::string_view::npos;
        if (!isOther && (category & (U_GC_L_MASK | U_GC_N_MASK)) == 0 && !(isMark && mayTakeMark))
            return false;
        mayTakeMark = !isOther;
    }
    return true;
}

bool isValidUtf8(std::string_view bytes) {
    return simdjson::validate_utf8(bytes.data(), bytes.size());
}

std::string repairedUtf8(std::string_view bytes) {
    if (isValidUtf8(bytes))
        return std::string(bytes);
    std::string repaired;
    const auto text = icu::UnicodeString::fromUTF8(icu::StringPiece(bytes.data(), static_cast<int32_t>(bytes.size())));
    text.toUTF8String(repaired);
    return repaired;
}

std::string fromLatin1(std::string_view latin1) {
    std::string utf8;
    utf8.reserve(latin1.size());
    for (const char c : latin1) {
        const auto point = static_cast<unsigned char>(c);
        if (point < 0x80) {
            utf8.push_back(c);
        } else {
            utf8.push_back(static_cast<char>(0xC0 | (point >> 6)));
            utf8.push_back(static_cast<char>(0x80 | (point & 0x3F)));
        }
    }
    return utf8;
}

std::optional<std::string> toLatin1(std::string_view utf8) {
    if (!isValidUtf8(utf8))
        return std::nullopt;
    std::string latin1;
    latin1.reserve(utf8.size());
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        if (lead >= 0xC4)
            return std::nullopt;
        const bool isPair = lead >= 0x80;
        latin1.push_back(isPair ? static_cast<char>((lead & 0x03) << 6 | (utf8[i + 1] & 0x3F)) : utf8[i]);
        i += isPair ? 1 : 0;
    }
    return latin1;
}

} // namespace vexil::text
