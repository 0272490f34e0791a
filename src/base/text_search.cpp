// SPDX-License-Identifier: Apache-2.0
#include "base/text_search.h"

#include "base/text.h"
#include "base/utf8_points.h"

#include <unicode/normalizer2.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <vector>

namespace vexil::text {

namespace {

constexpr std::size_t kBlock = 128;
constexpr std::size_t kPart = 16; // of a block

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

// With the count known, compilers make it of vector instructions.
template <std::size_t Count, class F> unsigned char leastOf(const F& valueAt, std::size_t begin) {
    unsigned char least = 0xFF;
    for (std::size_t i = begin; i < begin + Count; ++i)
        least = std::min(least, valueAt(i));
    return least;
}

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
    std::vector<std::size_t> offsets(folded_.size());
    std::iota(offsets.begin(), offsets.end(), 0U);
    std::stable_sort(offsets.begin(), offsets.end(), [this](std::size_t a, std::size_t b) {
        return kCommonness[static_cast<unsigned char>(folded_[a])] <
               kCommonness[static_cast<unsigned char>(folded_[b])];
    });
    for (std::size_t i = 0; i < probes_.size() && !offsets.empty(); ++i) {
        const std::size_t offset = offsets[std::min(i, offsets.size() - 1)];
        probes_[i] = {offset, folded_[offset]};
    }
}

std::size_t Query::find(std::string_view folded, std::size_t from, std::size_t until) const {
    if (folded_.empty())
        return from < until && from <= folded.size() ? from : kNotFound;
    std::size_t hit = findBytes(folded, from, until);
    while (hit != kNotFound && !isWhole(folded, hit))
        hit = findBytes(folded, hit + 1, until);
    return hit;
}

bool Query::isWhole(std::string_view folded, std::size_t hit) const {
    const bool beginsWhole = beginsWithLetter_ || hit == 0 || folded[hit - 1] == kEndOfText;
    return beginsWhole && beginsLetter(folded.substr(hit + folded_.size()));
}

// Three bytes are compared for a block of places at once, in a form that compilers turn into vector instructions; only
// where all three are right somewhere in the block, the places are looked at one by one.
std::size_t Query::findBytes(std::string_view folded, std::size_t from, std::size_t until) const {
    if (folded_.size() == 1)
        return folded.substr(0, until).find(folded_.front(), from);
    if (folded.size() < folded_.size())
        return kNotFound;
    const std::size_t end = folded.size() - folded_.size() + 1;
    until = std::min(until, end);
    if (from < until && folded.substr(from).starts_with(folded_))
        return from; // what follows the hit of a shorter query often is one
    for (std::size_t at = from; at < until; at += kBlock) {
        const std::size_t places = std::min(kBlock, end - at); // a whole block, though it goes on after `until`
        const std::size_t hit = at + findInBlock(folded.data() + at, places);
        if (hit < at + places)
            return hit < until ? hit : kNotFound;
    }
    return kNotFound;
}

std::size_t Query::findInBlock(const char* block, std::size_t places) const {
    const Probe a = probes_[0];
    const Probe b = probes_[1];
    const Probe c = probes_[2];
    const auto differenceAt = [&](std::size_t i) {
        return static_cast<unsigned char>((block[i + a.offset] ^ a.byte) | (block[i + b.offset] ^ b.byte) |
                                          (block[i + c.offset] ^ c.byte));
    };
    const auto isHit = [&](std::size_t place) {
        return differenceAt(place) == 0 && std::memcmp(block + place, folded_.data(), folded_.size()) == 0;
    };
    if (places == kBlock && leastOf<kBlock>(differenceAt, 0) != 0)
        return places;
    for (std::size_t begin = 0; begin < places; begin += kPart) {
        if (begin + kPart <= places && leastOf<kPart>(differenceAt, begin) != 0)
            continue;
        for (std::size_t place = begin; place < std::min(begin + kPart, places); ++place) {
            if (isHit(place))
                return place;
        }
    }
    return places;
}

bool containsLoosely(std::string_view name, std::string_view query, CaseRules rules) {
    const std::string bareQuery = foldWithoutAccents(trimmed(query), rules);
    return foldWithoutAccents(name, rules).find(bareQuery) != std::string::npos;
}

} // namespace vexil::text
