// SPDX-License-Identifier: Apache-2.0
// Searching as a person means it: whatever the case, and however an accent is written.
#pragma once

#include "base/text_folding.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace vexil::text {

// A byte that is in no text. Folded texts may stand in one string with this byte after each: no hit crosses it, and it
// ends a text as the end of the string does.
constexpr char kEndOfText = '\xFF';

// What is searched for, folded once. It is searched in texts that fold() made by the same rules.
//
// A hit is made of whole letters with all their accents: "e" is not in "é", be that one character or two, nor is the
// syllable "가" in "각". So the query is in one text exactly where it is in every other spelling of it. One half of
// what a letter folds to is a letter too: "s" is in "ß". Blanks count like any other character, and an empty query is
// in every text.
class Query {
public:
    static constexpr std::size_t kNotFound = std::string_view::npos;

    Query() = default;
    Query(std::string_view utf8, CaseRules rules);

    [[nodiscard]] bool isEmpty() const { return folded_.empty(); }
    [[nodiscard]] bool isIn(std::string_view folded) const { return find(folded, 0) != kNotFound; }
    // Where the first hit begins that begins at `from` or later, but before `until`; kNotFound where there is none.
    [[nodiscard]] std::size_t find(std::string_view folded, std::size_t from, std::size_t until = kNotFound) const;
    // Whether every text that has this query in it has the former one in it too.
    [[nodiscard]] bool narrows(const Query& former) const { return former.isIn(folded_); }
    // Whether besides, every hit of this query is where the former one has one.
    [[nodiscard]] bool extends(const Query& former) const { return former.find(folded_, 0) == 0; }

private:
    struct Probe {
        std::size_t offset;
        char byte;
    };

    [[nodiscard]] std::size_t findBytes(std::string_view folded, std::size_t from, std::size_t until) const;
    // The place, of so many that begin in the block, of the first hit; as many as there are places, where there is
    // none.
    [[nodiscard]] std::size_t findInBlock(const char* block, std::size_t places) const;
    [[nodiscard]] bool isWhole(std::string_view folded, std::size_t hit) const;

    std::string folded_;
    bool beginsWithLetter_ = true; // and not with a mark that belongs to the letter before
    // Bytes of the query that are probably rare, which a search looks at first; repeated where it has no three.
    std::array<Probe, 3> probes_{};
};

// How names are searched in a list to choose from: neither case nor accents count, nor does white space around the
// query; an empty one is in every name.
[[nodiscard]] bool containsLoosely(std::string_view name, std::string_view query, CaseRules rules);

} // namespace vexil::text
