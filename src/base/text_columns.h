// SPDX-License-Identifier: Apache-2.0
// What UTF-8 text takes up in the cells of a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vexil::text {

// The columns that `utf8`, one line without control characters, takes up: two for an East Asian wide character and for
// an emoji, whatever it is joined from, none for marks that sit on another character.
[[nodiscard]] std::size_t columnCount(std::string_view utf8);

// The longest beginning of `utf8` that takes up at most `columns` and cuts no user-perceived character apart.
[[nodiscard]] std::string_view cutToColumns(std::string_view utf8, std::size_t columns);

enum class LineBreaks { keep, show };
// `utf8` with everything that would command a terminal instead of being shown by it replaced by something to be seen:
// control characters by their pictures (U+2400 and on), others and what turns the writing direction by U+FFFD. Where
// line breaks are kept, so are tabs. Ill-formed text is repaired.
[[nodiscard]] std::string withVisibleControls(std::string_view utf8, LineBreaks lineBreaks = LineBreaks::show);

} // namespace vexil::text
