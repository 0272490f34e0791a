// SPDX-License-Identifier: Apache-2.0
#include "base/json_scalars.h"

#include <array>
#include <charconv>
#include <limits>

namespace vexil::json {

namespace {

// A number cut at its joints: sign, digits before the point, digits after it, exponent with sign.
struct NumberParts {
    bool isNegative = false;
    std::string_view whole;
    std::string_view fraction;
    std::string_view exponent;
};

std::string_view takeDigits(std::string_view& text) {
    std::size_t count = 0;
    while (count < text.size() && text[count] >= '0' && text[count] <= '9')
        ++count;
    const std::string_view digits = text.substr(0, count);
    text.remove_prefix(count);
    return digits;
}

std::optional<NumberParts> numberParts(std::string_view token) {
    NumberParts parts;
    if (token.starts_with('-')) {
        parts.isNegative = true;
        token.remove_prefix(1);
    }
    parts.whole = takeDigits(token);
    if (parts.whole.empty() || (parts.whole.size() > 1 && parts.whole.front() == '0'))
        return std::nullopt;
    if (token.starts_with('.')) {
        token.remove_prefix(1);
        parts.fraction = takeDigits(token);
        if (parts.fraction.empty())
            return std::nullopt;
    }
    if (token.starts_with('e') || token.starts_with('E')) {
        token.remove_prefix(1);
        parts.exponent = token;
        if (token.starts_with('+') || token.starts_with('-'))
            token.remove_prefix(1);
        if (takeDigits(token).empty())
            return std::nullopt;
    }
    if (!token.empty())
        return std::nullopt;
    return parts;
}

// An exponent beyond these bounds cannot give an integer that fits, unless the text is absurdly long.
std::int64_t exponentOf(std::string_view text) {
    constexpr std::int64_t kBeyond = std::numeric_limits<std::int32_t>::max();
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+'))
        text.remove_prefix(1);
    std::int64_t value = 0;
    for (const char digit : text) {
        if (value < kBeyond)
            value = value * 10 + (digit - '0');
    }
    return isNegative ? -value : value;
}

// An unsigned integer times a power of ten, in which zeros wait until a digit that is not zero follows them.
class Significand {
public:
    // False when it no longer fits.
    bool push(std::string_view digits) {
        for (const char digit : digits) {
            if (digit == '0') {
                waitingZeros_ += value_ == 0 ? 0 : 1;
                continue;
            }
            if (!scale(waitingZeros_ + 1) || __builtin_add_overflow(value_, std::uint64_t(digit - '0'), &value_))
                return false;
            waitingZeros_ = 0;
        }
        return true;
    }

    // The value times 10^power, where that is an integer that fits.
    std::optional<std::uint64_t> times10To(std::int64_t power) {
        if (value_ == 0)
            return 0;
        if (!scale(power + waitingZeros_))
            return std::nullopt;
        return value_;
    }

private:
    bool scale(std::int64_t power) {
        if (value_ == 0)
            return true;
        if (power < 0 || power > std::numeric_limits<std::uint64_t>::digits10)
            return false;
        for (; power > 0; --power) {
            if (__builtin_mul_overflow(value_, std::uint64_t{10}, &value_))
                return false;
        }
        return true;
    }

    std::uint64_t value_ = 0;
    std::int64_t waitingZeros_ = 0;
};

// What nearly every date is: digits that make an integer which a double holds exactly, over a power of ten which it
// holds exactly too. One division then rounds correctly, in a fraction of the time of the general algorithm.
std::optional<double> fewDigits(const NumberParts& parts) {
    constexpr std::size_t kMostDigits = 16;
    constexpr std::int64_t kMostExact = std::int64_t{1} << 53;
    constexpr std::array<double, kMostDigits + 1> kPowers = {1e0, 1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7, 1e8,
                                                             1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16};
    if (!parts.exponent.empty() || parts.whole.size() + parts.fraction.size() > kMostDigits)
        return std::nullopt;
    std::int64_t digits = 0;
    for (const std::string_view some : {parts.whole, parts.fraction}) {
        for (const char digit : some)
            digits = digits * 10 + (digit - '0');
    }
    if (digits > kMostExact)
        return std::nullopt;
    const double magnitude = static_cast<double>(digits) / kPowers[parts.fraction.size()];
    return parts.isNegative ? -magnitude : magnitude;
}

std::optional<std::uint32_t> hexOf(std::string_view text) {
    std::uint32_t value = 0;
    if (text.size() < 4)
        return std::nullopt;
    const auto [end, status] = std::from_chars(text.data(), text.data() + 4, value, 16);
    if (status != std::errc() || end != text.data() + 4)
        return std::nullopt;
    return value;
}

void appendUtf8(std::string& text, std::uint32_t point) {
    const auto tail = [&](int shift) { text.push_back(static_cast<char>(0x80U | ((point >> shift) & 0x3FU))); };
    if (point < 0x80) {
        text.push_back(static_cast<char>(point));
    } else if (point < 0x800) {
        text.push_back(static_cast<char>(0xC0U | (point >> 6)));
        tail(0);
    } else if (point < 0x10000) {
        text.push_back(static_cast<char>(0xE0U | (point >> 12)));
        tail(6);
        tail(0);
    } else {
        text.push_back(static_cast<char>(0xF0U | (point >> 18)));
        tail(12);
        tail(6);
        tail(0);
    }
}

// `rest` stands behind a \u and is moved past what belongs to it.
bool unescapeUnicode(std::string_view& rest, std::string& text) {
    const auto first = hexOf(rest);
    if (!first)
        return false;
    rest.remove_prefix(4);
    if (*first < 0xD800 || *first > 0xDFFF) {
        appendUtf8(text, *first);
        return true;
    }
    if (*first > 0xDBFF || !rest.starts_with("\\u"))
        return false;
    const auto second = hexOf(rest.substr(2));
    if (!second || *second < 0xDC00 || *second > 0xDFFF)
        return false;
    rest.remove_prefix(6);
    appendUtf8(text, 0x10000 + ((*first - 0xD800) << 10) + (*second - 0xDC00));
    return true;
}

constexpr std::string_view kEscapes = "\"\\/bfnrt";
constexpr std::string_view kEscaped = "\"\\/\b\f\n\r\t";

} // namespace

bool isNumber(std::string_view token) {
    return numberParts(token).has_value();
}

std::optional<std::int64_t> integerOf(std::string_view token) {
    const auto parts = numberParts(token);
    Significand significand;
    if (!parts || !significand.push(parts->whole) || !significand.push(parts->fraction))
        return std::nullopt;
    const auto fractionDigits = static_cast<std::int64_t>(parts->fraction.size());
    const auto magnitude = significand.times10To(exponentOf(parts->exponent) - fractionDigits);
    constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (!magnitude || *magnitude > kMax + (parts->isNegative ? 1U : 0U))
        return std::nullopt;
    return static_cast<std::int64_t>(parts->isNegative ? 0 - *magnitude : *magnitude);
}

std::optional<double> doubleOf(std::string_view token) {
    const auto parts = numberParts(token);
    if (!parts)
        return std::nullopt;
    if (const auto value = fewDigits(*parts))
        return value;
    double value = 0;
    if (std::from_chars(token.data(), token.data() + token.size(), value).ec != std::errc())
        return std::nullopt;
    return value;
}

bool unescape(std::string_view inside, std::string& text) {
    text.clear();
    text.reserve(inside.size());
    for (;;) {
        const std::size_t escape = inside.find('\\');
        text.append(inside.substr(0, escape));
        if (escape == std::string_view::npos)
            return true;
        inside.remove_prefix(escape + 1);
        if (inside.empty())
            return false;
        const char letter = inside.front();
        inside.remove_prefix(1);
        const std::size_t known = kEscapes.find(letter);
        if (known != std::string_view::npos)
            text.push_back(kEscaped[known]);
        else if (letter != 'u' || !unescapeUnicode(inside, text))
            return false;
    }
}

} // namespace vexil::json
