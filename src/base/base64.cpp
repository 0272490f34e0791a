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

// Both loops stop where a whole vector could touch memory past the end; the scalar code does what is left, and all of
// it on processors without AVX2.
#define VEXIL_AVX2 __attribute__((target("avx2")))

VEXIL_AVX2 __m256i pick(__m256i mask, int value) {
    return _mm256_and_si256(mask, _mm256_set1_epi8(static_cast<char>(value)));
}

VEXIL_AVX2 __m256i twice(const std::array<std::uint8_t, 16>& table) {
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table.data())));
}

// What the upper half of a character says: in which of the alphabet's rows of ASCII it is ...
enum Row : std::uint8_t { kSigns = 1, kDigitsRow = 2, kFirstLetters = 4, kLastLetters = 8, kNoRow = 16 };
constexpr std::array<std::uint8_t, 16> kRowOfUpper = {
    kNoRow, kNoRow, kSigns, kDigitsRow, kFirstLetters, kLastLetters, kFirstLetters, kLastLetters,
    kNoRow, kNoRow, kNoRow, kNoRow,     kNoRow,        kNoRow,       kNoRow,        kNoRow};

// ... and its lower half: which rows have nothing at this place.
constexpr auto kGapsOfLower = [] {
    std::array<std::uint8_t, 16> gaps{};
    for (unsigned lower = 0; lower < gaps.size(); ++lower) {
        const bool isSign = lower == ('+' & 0xF) || lower == ('/' & 0xF);
        gaps[lower] = static_cast<std::uint8_t>(kNoRow | (isSign ? 0 : kSigns) | (lower <= 9 ? 0 : kDigitsRow) |
                                                (lower >= 1 ? 0 : kFirstLetters) | (lower <= 10 ? 0 : kLastLetters));
    }
    return gaps;
}();

// How far a character's value is from the character, by its upper half. The slash takes the unused place 1.
constexpr std::array<std::uint8_t, 16> kShiftOfUpper = [] {
    const int shifts[] = {0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a'};
    std::array<std::uint8_t, 16> table{};
    for (std::size_t i = 0; i < std::size(shifts); ++i)
        table[i] = static_cast<std::uint8_t>(shifts[i]);
    return table;
}();

// Stops early at a character outside the alphabet, which the scalar code then reports.
VEXIL_AVX2 Progress decodeVectors(std::uint8_t* out, const std::uint8_t* text, std::size_t size) {
    const __m256i packedInHalf = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1, //
                                                  2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
    const __m256i halvesJoined = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
    const __m256i lowerBits = _mm256_set1_epi8(0x0F);
    const __m256i rows = twice(kRowOfUpper);
    const __m256i gaps = twice(kGapsOfLower);
    const __m256i shifts = twice(kShiftOfUpper);
    Progress done;
    while (size - done.read >= 48) {
        const __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + done.read));
        const __m256i upper = _mm256_and_si256(_mm256_srli_epi32(block, 4), lowerBits);
        const __m256i lower = _mm256_and_si256(block, lowerBits);
        if (_mm256_testz_si256(_mm256_shuffle_epi8(rows, upper), _mm256_shuffle_epi8(gaps, lower)) == 0)
            break;
        const __m256i minusOneAtSlash = _mm256_cmpeq_epi8(block, _mm256_set1_epi8('/'));
        const __m256i shift = _mm256_shuffle_epi8(shifts, _mm256_add_epi8(upper, minusOneAtSlash));
        const __m256i values = _mm256_add_epi8(block, shift);
        const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140)); // 2 x 6 bits -> 12 bits
        const __m256i triples = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));   // 2 x 12 bits -> 24 bits
        const __m256i bytes = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(triples, packedInHalf), halvesJoined);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + done.written), bytes);
        done.read += 32;
        done.written += 24;
    }
    return done;
}

VEXIL_AVX2 Progress encodeVectors(std::uint8_t* out, const std::uint8_t* bytes, std::size_t size) {
    const __m256i spread = _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10, //
                                            1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    Progress done;
    while (size - done.read >= 28) {
        const auto* const in = bytes + done.read;
        const __m256i block = _mm256_set_m128i(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 12)),
                                               _mm_loadu_si128(reinterpret_cast<const __m128i*>(in)));
        // Three bytes a b c stand in each 32-bit lane as b a c b; a multiplication is a shift per 16-bit half.
        const __m256i lanes = _mm256_shuffle_epi8(block, spread);
        const __m256i firstAndThird =
            _mm256_mulhi_epu16(_mm256_and_si256(lanes, _mm256_set1_epi32(0x0FC0FC00)), _mm256_set1_epi32(0x04000040));
        const __m256i secondAndFourth =
            _mm256_mullo_epi16(_mm256_and_si256(lanes, _mm256_set1_epi32(0x003F03F0)), _mm256_set1_epi32(0x01000010));
        const __m256i values = _mm256_or_si256(firstAndThird, secondAndFourth);
        // The alphabet is four jumps on top of 'A'.
        const auto above = [&](char value) VEXIL_AVX2 { return _mm256_cmpgt_epi8(values, _mm256_set1_epi8(value)); };
        __m256i text = _mm256_add_epi8(values, _mm256_set1_epi8('A'));
        text = _mm256_add_epi8(text, pick(above(25), 'a' - ('A' + 26)));
        text = _mm256_add_epi8(text, pick(above(51), '0' - ('a' + 26)));
        text = _mm256_add_epi8(text, pick(above(61), '+' - ('0' + 10)));
        text = _mm256_add_epi8(text, pick(above(62), '/' - ('+' + 1)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + done.written), text);
        done.read += 24;
        done.written += 32;
    }
    return done;
}

bool hasVectors() {
    return static_cast<bool>(__builtin_cpu_supports("avx2"));
}

#undef VEXIL_AVX2

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
