// SPDX-License-Identifier: Apache-2.0
#include "hosts/hosts_syntax.h"

#include "base/text.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

namespace vexil::hosts_syntax {

namespace {

constexpr std::size_t kMaxNameBytes = 253;
constexpr std::size_t kMaxLabelBytes = 63;

// How many bytes the newline character at the front of `text` takes, none where there is another character: U+000A to
// U+000D, U+0085, U+2028 or U+2029.
std::size_t newlineLength(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    if (first > '\r' && first < 0x80)
        return 0; // nearly always
    if (first >= '\n' && first <= '\r')
        return 1;
    if (text.starts_with("\xC2\x85"))
        return 2;
    return text.starts_with("\xE2\x80\xA8") || text.starts_with("\xE2\x80\xA9") ? 3 : 0;
}

// Takes the first line off `text`. False where it was the last, which no newline ends.
bool takeLine(std::string_view& text, std::string_view& line) {
    for (std::size_t end = 0; end < text.size(); ++end) {
        const std::size_t length = newlineLength(text.substr(end));
        if (length == 0)
            continue;
        line = text.substr(0, end);
        text.remove_prefix(end + length);
        return true;
    }
    line = std::exchange(text, {});
    return false;
}

// Takes the first field off `line`; empty where there is none left.
std::string_view takeField(std::string_view& line) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    const auto* const begin = std::find_if_not(line.begin(), line.end(), isBlank);
    const auto* const end = std::find_if(begin, line.end(), isBlank);
    line = {end, line.end()};
    return {begin, end};
}

void parseLine(std::string_view line, std::int64_t number, Parsed& parsed) {
    line = line.substr(0, line.find('#'));
    const std::string_view address = takeField(line);
    if (address.empty())
        return;
    if (!isValidAddress(address)) {
        parsed.issues.push_back({number, Issue::Kind::invalidAddress, std::string(address)});
        return;
    }
    Entry entry{std::string(address), {}, number};
    for (std::string_view name = takeField(line); !name.empty(); name = takeField(line)) {
        if (!isValidHostname(name))
            parsed.issues.push_back({number, Issue::Kind::invalidHostname, std::string(name)});
        entry.hostnames.emplace_back(name);
    }
    if (entry.hostnames.empty())
        parsed.issues.push_back({number, Issue::Kind::missingHostname});
    else
        parsed.entries.push_back(std::move(entry));
}

} // namespace

std::string Issue::identifier() const {
    const std::string number = std::to_string(line);
    switch (kind) {
    case Kind::invalidAddress:
        return number + "-addr-" + field;
    case Kind::invalidHostname:
        return number + "-host-" + field;
    case Kind::missingHostname:
        break;
    }
    return number + "-nohost";
}

Parsed parse(std::string_view text) {
    Parsed parsed;
    std::string_view line;
    for (std::int64_t number = 1;; ++number) {
        const bool isEnded = takeLine(text, line);
        parseLine(line, number, parsed);
        if (!isEnded)
            return parsed;
    }
}

bool isValidAddress(std::string_view field) {
    // Empty pieces do not count, so the address may also stand behind its "%".
    field.remove_prefix(std::min(field.find_first_not_of('%'), field.size()));
    const std::string_view address = field.substr(0, field.find('%'));
    // The conversions stop at a zero byte, and take nothing that is longer than the longest address.
    std::array<char, INET6_ADDRSTRLEN> terminated{};
    if (address.empty() || address.size() >= terminated.size() || address.find('\0') != std::string_view::npos)
        return false;
    std::copy(address.begin(), address.end(), terminated.begin());
    in6_addr ignored{};
    return ::inet_pton(AF_INET, terminated.data(), &ignored) == 1 ||
           ::inet_pton(AF_INET6, terminated.data(), &ignored) == 1;
}

bool isValidHostname(std::string_view name) {
    if (name.size() > kMaxNameBytes)
        return false;
    if (name.ends_with('.'))
        name.remove_suffix(1);
    for (;;) {
        const std::size_t dot = name.find('.');
        const std::string_view label = name.substr(0, dot);
        if (label.empty() || label.size() > kMaxLabelBytes || !text::hasOnlyLettersNumbersAnd("-_", label))
            return false;
        if (dot == std::string_view::npos)
            return true;
        name.remove_prefix(dot + 1);
    }
}

std::int64_t hostnameTotal(std::span<const Entry> entries) {
    std::int64_t total = 0;
    for (const Entry& entry : entries)
        total += static_cast<std::int64_t>(entry.hostnames.size());
    return total;
}

} // namespace vexil::hosts_syntax
