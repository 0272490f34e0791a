// SPDX-License-Identifier: Apache-2.0
#include "base/uuid.h"

#include <sodium.h>

#include <cstring>

namespace vexil {

namespace {

constexpr std::uint8_t kNoHexDigit = 0x80;

constexpr auto kHexDigits = [] {
    std::array<std::uint8_t, 256> digits{};
    digits.fill(kNoHexDigit);
    for (std::uint8_t i = 0; i < 10; ++i)
        digits[static_cast<std::size_t>('0' + i)] = i;
    for (std::uint8_t i = 0; i < 6; ++i) {
        digits[static_cast<std::size_t>('A' + i)] = static_cast<std::uint8_t>(10 + i);
        digits[static_cast<std::size_t>('a' + i)] = static_cast<std::uint8_t>(10 + i);
    }
    return digits;
}();

// Of the bytes, in the form 8-4-4-4-12.
constexpr bool isAfterHyphen(std::size_t byte) {
    return byte == 4 || byte == 6 || byte == 8 || byte == 10;
}

} // namespace

Uuid Uuid::random() {
    Uuid id;
    randombytes_buf(id.bytes_.data(), id.bytes_.size());
    // Version 4, and the variant that goes with it.
    id.bytes_[6] = static_cast<std::uint8_t>((id.bytes_[6] & 0x0FU) | 0x40U);
    id.bytes_[8] = static_cast<std::uint8_t>((id.bytes_[8] & 0x3FU) | 0x80U);
    return id;
}

// Both directions are written out because snapshots hold tens of thousands of these, and libuuid, which would do it,
// goes through printf and strtoul.
std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != kTextLength)
        return std::nullopt;
    Uuid id;
    std::uint8_t faults = 0;
    std::size_t at = 0;
    for (std::size_t i = 0; i < id.bytes_.size(); ++i) {
        if (isAfterHyphen(i))
            faults |= text[at++] == '-' ? std::uint8_t{0} : kNoHexDigit;
        const std::uint8_t high = kHexDigits[static_cast<unsigned char>(text[at++])];
        const std::uint8_t low = kHexDigits[static_cast<unsigned char>(text[at++])];
        faults |= high | low;
        id.bytes_[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    if ((faults & kNoHexDigit) != 0)
        return std::nullopt;
    return id;
}

void Uuid::writeTo(char* text) const {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (isAfterHyphen(i))
            *text++ = '-';
        *text++ = kDigits[bytes_[i] >> 4];
        *text++ = kDigits[bytes_[i] & 0xF];
    }
}

std::string Uuid::toString() const {
    std::string text(kTextLength, '-');
    writeTo(text.data());
    return text;
}

} // namespace vexil

std::size_t std::hash<vexil::Uuid>::operator()(const vexil::Uuid& id) const noexcept {
    std::size_t word = 0; // the bits are random already
    std::memcpy(&word, id.bytes().data(), sizeof word);
    return word;
}
