// SPDX-License-Identifier: Apache-2.0
// The short way of folding, for the texts in which each character can be folded by itself.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace vexil::text {

// Holds what letters of the common alphabets fold to; ideographs, Hangul syllables, kana and emoji fold to themselves.
// Never changes once it is made.
class FoldingTable {
public:
    // Asks `fold` for each letter.
    explicit FoldingTable(std::string (*fold)(std::string_view utf8));

    // Appends what `fold` gives for the text. False, with nothing appended, where the text has a character that it
    // takes more to fold: one that goes with the one before it, or that the table does not have.
    [[nodiscard]] bool appendFolded(std::string& folded, std::string_view utf8) const;

private:
    // What the table has: two ranges of code points, one after the other.
    static constexpr char32_t kEnd = 0x800;          // Latin, Greek, Cyrillic, Armenian, Hebrew, Arabic, Syriac
    static constexpr char32_t kSecondBegin = 0x1E00; // more of Latin and Greek
    static constexpr char32_t kSecondEnd = 0x2000;

    static constexpr char32_t kSeveral = 0xFFFF; // stands for what is in several_
    static constexpr std::size_t kMaxGrowth = 2; // of the bytes of a character

    static constexpr std::size_t indexOf(char32_t point) { return point < kEnd ? point : point - kSecondBegin + kEnd; }

    std::array<std::uint16_t, kEnd + kSecondEnd - kSecondBegin> points_{}; // zero where it takes more
    std::unordered_map<char32_t, std::string> several_;
};

} // namespace vexil::text
