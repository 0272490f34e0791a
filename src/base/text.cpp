// SPDX-License-Identifier: Apache-2.0
#include "base/text.h"

#include <simdjson.h>
#include <unicode/brkiter.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>

#include <memory>

namespace vexil::text {

namespace {

struct CloseText {
    void operator()(UText* text) const { utext_close(text); }
};

} // namespace

bool hasMoreCharactersThan(std::string_view utf8, std::size_t limit) {
    if (utf8.size() <= limit)
        return false; // a character is at least one byte
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UText, CloseText> view(
        utext_openUTF8(nullptr, utf8.data(), static_cast<int64_t>(utf8.size()), &status));
    const std::unique_ptr<icu::BreakIterator> characters(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status))
        return true; // without its data ICU cannot say; an unmeasured text counts as too long
    characters->setText(view.get(), status);
    if (U_FAILURE(status))
        return true;
    characters->first();
    for (std::size_t count = 0; characters->next() != icu::BreakIterator::DONE; ++count) {
        if (count == limit)
            return true;
    }
    return false;
}

bool isValidUtf8(std::string_view bytes) {
    return simdjson::validate_utf8(bytes.data(), bytes.size());
}

std::string repairedUtf8(std::string_view bytes) {
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

} // namespace vexil::text
