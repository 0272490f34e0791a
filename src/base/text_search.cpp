// SPDX-License-Identifier: Apache-2.0
#include "base/text_search.h"

#include "base/text.h"
#include "base/utf8_points.h"

#include <unicode/normalizer2.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace vexil::text {

namespace {

constexpr std::size_t kBlock = 64;

// How common a byte is in the folded text of all the world, roughly: the higher, the more common.
constexpr std::array<std::uint8_t, 256> commonness() {
    constexpr std::string_view kFromCommonToRare =
        " etaoinsrhldcumfpgwybv,.k0-1'\"x2jq/(z):=345678_9;<>{}[]#*&%$@!?+|~^`\\";
    std::array<std::uint8_t, 256> common{};
    std::uint8_t rank = 255;
    for (const char c : kFromCommonToRare)
        common[static_cast<unsigned char>(c)] = rank--;
    for (std::size_t trail = 0x80; trail < 0xC0; ++trail)
        common[trail] = 210;
    for (std::size_t lead = 0xC0; lead < 0xF5; ++lead)
        common[lead] = 240;
    return common;
}

constexpr auto kCommonness = commonness();

// Whether a letter may begin here: a mark that goes with, or fuses with, what stands before it does not begin one.
bool beginsLetter(std::string_view utf8) {
    static constexpr unsigned char kLeadOfU0300 = 0xCC;
    if (utf8.empty() || static_cast<unsigned char>(utf8.front()) < kLeadOfU0300 || utf8.front() == kEndOfText)
        return true;
    std::size_t at = 0;
    const auto point = nextPoint(utf8, at).value_or(0);
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* composition = icu::Normalizer2::getNFCInstance(status);
    return U_FAILURE(status) != 0 || composition->hasBoundaryBefore(static_cast<UChar32>(point)) != 0;
}

} // namespace

Query::Query(std::string_view utf8, CaseRules rules)
    : folded_(fold(utf8, rules)), beginsWithLetter_(beginsLetter(folded_)) {
    const auto isRarer = [this](std::size_t a, std::size_t b) {
        return kCommonness[static_cast<unsigned char>(folded_[a])] <
               kCommonness[static_cast<unsigned char>(folded_[b])];
    };
    for (std::size_t i = 1; i < folded_.size(); ++i) {
        if (isRarer(i, firstProbe_)) {
            secondProbe_ = firstProbe_;
            firstProbe_ = i;
        } else if (secondProbe_ == firstProbe_ || isRarer(i, secondProbe_)) {
            secondProbe_ = i;
        }
    }
}

std::size_t Query::find(std::string_view folded, std::size_t from) const {
    if (folded_.empty())
        return from <= folded.size() ? from : kNotFound;
    std::size_t hit = findBytes(folded, from);
    while (hit != kNotFound && !isWhole(folded, hit))
        hit = findBytes(folded, hit + 1);
    return hit;
}

bool Query::isWhole(std::string_view folded, std::size_t hit) const {
    const bool beginsWhole = beginsWithLetter_ || hit == 0 || folded[hit - 1] == kEndOfText;
    return beginsWhole && beginsLetter(folded.substr(hit + folded_.size()));
}

// Two bytes are compared for a block of places at once, in a form that compilers turn into vector instructions; where
// both are right somewhere in the block, it is looked at place by place.
std::size_t Query::findBytes(std::string_view folded, std::size_t from) const {
    if (folded_.size() == 1 || from + folded_.size() + kBlock > folded.size())
        return folded.find(folded_, from);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(folded.data());
    const auto first = static_cast<unsigned char>(folded_[firstProbe_]);
    const auto second = static_cast<unsigned char>(folded_[secondProbe_]);
    const std::size_t placesEnd = folded.size() - folded_.size() + 1;
    std::size_t at = from;
    for (; at + kBlock <= placesEnd; at += kBlock) {
        const unsigned char* const firsts = bytes + at + firstProbe_;
        const unsigned char* const seconds = bytes + at + secondProbe_;
        unsigned char leastDifference = 0xFF;
        for (std::size_t i = 0; i < kBlock; ++i) {
            const auto difference = static_cast<unsigned char>((firsts[i] ^ first) | (seconds[i] ^ second));
            leastDifference = std::min(leastDifference, difference);
        }
        for (std::size_t i = 0; leastDifference == 0 && i < kBlock; ++i) {
            if (firsts[i] == first && seconds[i] == second &&
                std::memcmp(bytes + at + i, folded_.data(), folded_.size()) == 0)
                return at + i;
        }
    }
    return folded.find(folded_, at);
}

bool containsLoosely(std::string_view name, std::string_view query, CaseRules rules) {
    const std::string bareQuery = foldWithoutAccents(trimmed(query), rules);
    return foldWithoutAccents(name, rules).find(bareQuery) != std::string::npos;
}

} // namespace vexil::text
