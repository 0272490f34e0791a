// SPDX-License-Identifier: Apache-2.0
#include "base/base64.h"

#include <array>
#include <string_view>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace vexil::base64 {

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNoDigit = 0xFF;

constexpr auto kDigits = [] {
    std::array<std::uint8_t, 256> digits{};
    digits.fill(kNoDigit);
    for (std::size_t value = 0; value < kAlphabet.size(); ++value)
        digits[static_cast<unsigned char>(kAlphabet[value])] = static_cast<std::uint8_t>(value);
    return digits;
}();

struct Progress {
    std::size_t read = 0;
    std::size_t written = 0;
};

#if defined(__x86_64__)

// Both loops stop where a whole vector could touch memory past the end; the scalar code does what is left.

__attribute__((target("ssse3"))) __m128i between(__m128i text, char first, char last) {
    return _mm_and_si128(_mm_cmpgt_epi8(text, _mm_set1_epi8(static_cast<char>(first - 1))),
                         _mm_cmpgt_epi8(_mm_set1_epi8(static_cast<char>(last + 1)), text));
}

__attribute__((target("ssse3"))) __m128i pick(__m128i mask, int value) {
    return _mm_and_si128(mask, _mm_set1_epi8(static_cast<char>(value)));
}

// Stops early at a character outside the alphabet, which the scalar code then reports.
__attribute__((target("ssse3"))) Progress decodeVectors(std::uint8_t* out, const std::uint8_t* text, std::size_t size) {
    const __m128i packed = _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
    Progress done;
    while (size - done.read >= 24) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + done.read));
        const __m128i upper = between(block, 'A', 'Z');
        const __m128i lower = between(block, 'a', 'z');
        const __m128i digit = between(block, '0', '9');
        const __m128i plus = _mm_cmpeq_epi8(block, _mm_set1_epi8('+'));
        const __m128i slash = _mm_cmpeq_epi8(block, _mm_set1_epi8('/'));
        const __m128i known = _mm_or_si128(_mm_or_si128(upper, lower), _mm_or_si128(digit, _mm_or_si128(plus, slash)));
        if (_mm_movemask_epi8(known) != 0xFFFF)
            break;
        const __m128i shift = _mm_or_si128(
            _mm_or_si128(pick(upper, -'A'), pick(lower, 26 - 'a')),
            _mm_or_si128(pick(digit, 52 - '0'), _mm_or_si128(pick(plus, 62 - '+'), pick(slash, 63 - '/'))));
        const __m128i values = _mm_add_epi8(block, shift);
        const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(0x01400140)); // 2 x 6 bits -> 12 bits
        const __m128i triples = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));   // 2 x 12 bits -> 24 bits
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + done.written), _mm_shuffle_epi8(triples, packed));
        done.read += 16;
        done.written += 12;
    }
    return done;
}

__attribute__((target("ssse3"))) Progress encodeVectors(std::uint8_t* out, const std::uint8_t* bytes,
                                                        std::size_t size) {
    const __m128i spread = _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    Progress done;
    while (size - done.read >= 16) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + done.read));
        // Three bytes a b c stand in each 32-bit lane as b a c b; a multiplication is a shift per 16-bit half.
        const __m128i lanes = _mm_shuffle_epi8(block, spread);
        const __m128i firstAndThird =
            _mm_mulhi_epu16(_mm_and_si128(lanes, _mm_set1_epi32(0x0FC0FC00)), _mm_set1_epi32(0x04000040));
        const __m128i secondAndFourth =
            _mm_mullo_epi16(_mm_and_si128(lanes, _mm_set1_epi32(0x003F03F0)), _mm_set1_epi32(0x01000010));
        const __m128i values = _mm_or_si128(firstAndThird, secondAndFourth);
        // The alphabet is four jumps on top of 'A'.
        __m128i text = _mm_add_epi8(values, _mm_set1_epi8('A'));
        text = _mm_add_epi8(text, pick(_mm_cmpgt_epi8(values, _mm_set1_epi8(25)), 'a' - ('A' + 26)));
        text = _mm_add_epi8(text, pick(_mm_cmpgt_epi8(values, _mm_set1_epi8(51)), '0' - ('a' + 26)));
        text = _mm_add_epi8(text, pick(_mm_cmpgt_epi8(values, _mm_set1_epi8(61)), '+' - ('0' + 10)));
        text = _mm_add_epi8(text, pick(_mm_cmpgt_epi8(values, _mm_set1_epi8(62)), '/' - ('+' + 1)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + done.written), text);
        done.read += 12;
        done.written += 16;
    }
    return done;
}

bool hasVectors() {
    return static_cast<bool>(__builtin_cpu_supports("ssse3"));
}

#else

Progress decodeVectors(std::uint8_t*, const std::uint8_t*, std::size_t) {
    return {};
}
Progress encodeVectors(std::uint8_t*, const std::uint8_t*, std::size_t) {
    return {};
}
bool hasVectors() {
    return false;
}

#endif

std::uint8_t letter(std::uint32_t value) {
    return static_cast<std::uint8_t>(kAlphabet[value & 0x3F]);
}

// Whole groups of four characters without padding.
bool decodeGroups(std::uint8_t* out, const std::uint8_t* text, std::size_t size) {
    for (std::size_t i = 0; i < size; i += 4) {
        const std::uint32_t a = kDigits[text[i]];
        const std::uint32_t b = kDigits[text[i + 1]];
        const std::uint32_t c = kDigits[text[i + 2]];
        const std::uint32_t d = kDigits[text[i + 3]];
        if (((a | b | c | d) & 0xC0) != 0)
            return false;
        const std::uint32_t group = (a << 18) | (b << 12) | (c << 6) | d;
        *out++ = static_cast<std::uint8_t>(group >> 16);
        *out++ = static_cast<std::uint8_t>(group >> 8);
        *out++ = static_cast<std::uint8_t>(group);
    }
    return true;
}

// The last group, of which `padding` (1 or 2) characters are fill.
bool decodePaddedGroup(std::uint8_t* out, const std::uint8_t* text, std::size_t padding) {
    const std::uint32_t a = kDigits[text[0]];
    const std::uint32_t b = kDigits[text[1]];
    const std::uint32_t c = padding == 1 ? kDigits[text[2]] : 0U;
    if (((a | b | c) & 0xC0) != 0)
        return false;
    const std::uint32_t group = (a << 18) | (b << 12) | (c << 6);
    const std::uint32_t strayBits = padding == 1 ? group & 0xFFU : group & 0xFFFFU;
    if (strayBits != 0)
        return false;
    out[0] = static_cast<std::uint8_t>(group >> 16);
    if (padding == 1)
        out[1] = static_cast<std::uint8_t>(group >> 8);
    return true;
}

} // namespace

void encodeTo(std::uint8_t* out, ByteView bytes) {
    Progress done;
    if (hasVectors())
        done = encodeVectors(out, bytes.data(), bytes.size());
    out += done.written;
    ByteView rest = bytes.subspan(done.read);
    for (; rest.size() >= 3; rest = rest.subspan(3)) {
        const std::uint32_t group = (std::uint32_t{rest[0]} << 16) | (std::uint32_t{rest[1]} << 8) | rest[2];
        *out++ = letter(group >> 18);
        *out++ = letter(group >> 12);
        *out++ = letter(group >> 6);
        *out++ = letter(group);
    }
    if (rest.empty())
        return;
    const std::uint32_t group = (std::uint32_t{rest[0]} << 16) | (rest.size() == 2 ? std::uint32_t{rest[1]} << 8 : 0U);
    *out++ = letter(group >> 18);
    *out++ = letter(group >> 12);
    *out++ = rest.size() == 2 ? letter(group >> 6) : std::uint8_t{'='};
    *out++ = '=';
}

std::string encode(ByteView bytes) {
    std::string text(encodedSize(bytes.size()), '=');
    encodeTo(reinterpret_cast<std::uint8_t*>(text.data()), bytes);
    return text;
}

std::optional<Bytes> decode(std::string_view text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    if (text.empty())
        return Bytes{};
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    const std::size_t plain = padding == 0 ? text.size() : text.size() - 4;
    const auto* in = reinterpret_cast<const std::uint8_t*>(text.data());
    std::optional<Bytes> bytes(std::in_place);
    bytes->resize(text.size() / 4 * 3 - padding);
    Progress done;
    if (hasVectors())
        done = decodeVectors(bytes->data(), in, plain);
    if (!decodeGroups(bytes->data() + done.written, in + done.read, plain - done.read))
        return std::nullopt;
    if (padding != 0 && !decodePaddedGroup(bytes->data() + plain / 4 * 3, in + plain, padding))
        return std::nullopt;
    return bytes;
}

} // namespace vexil::base64
