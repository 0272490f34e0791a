// SPDX-License-Identifier: Apache-2.0
// Unicode text, always UTF-8.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vexil::text {

// True where `utf8` has more than `limit` user-perceived characters (extended grapheme clusters). Stops counting at the
// limit, so that a huge text costs no more than a long one.
[[nodiscard]] bool hasMoreCharactersThan(std::string_view utf8, std::size_t limit);

// The beginning of `utf8` on one line: every run of white space and control characters becomes one blank, none at
// either end, cut to `maxCharacters` user-perceived characters and to `maxBytes`. Reads no more than it needs.
[[nodiscard]] std::string foldedToOneLine(std::string_view utf8, std::size_t maxCharacters, std::size_t maxBytes);

// `utf8` without the white space, line ends included, at both of its ends.
[[nodiscard]] std::string_view trimmed(std::string_view utf8);

// True where every character of `utf8` is a letter or a number of any script (general categories L and N, with the
// marks that follow one), or one of the ASCII characters `others`. Ill-formed text has characters that are neither.
[[nodiscard]] bool hasOnlyLettersNumbersAnd(std::string_view others, std::string_view utf8);

[[nodiscard]] bool isValidUtf8(std::string_view bytes);

// `bytes` with every ill-formed sequence replaced by U+FFFD.
[[nodiscard]] std::string repairedUtf8(std::string_view bytes);

// `latin1` (ISO 8859-1) as UTF-8.
[[nodiscard]] std::string fromLatin1(std::string_view latin1);

// `utf8` as ISO 8859-1; none where a character does not fit, or the text is ill-formed.
[[nodiscard]] std::optional<std::string> toLatin1(std::string_view utf8);

} // namespace vexil::text
