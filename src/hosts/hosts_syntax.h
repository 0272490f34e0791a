// SPDX-License-Identifier: Apache-2.0
// The lines of a hosts file: what they map, and what is wrong with them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vexil::hosts_syntax {

// One line that maps host names to an address, as it is written: the names that are no host names are among them.
struct Entry {
    std::string address;
    std::vector<std::string> hostnames; // at least one
    std::int64_t line = 0;              // within the text that was parsed, from 1

    bool operator==(const Entry&) const = default;
};

struct Issue {
    enum class Kind { invalidAddress, invalidHostname, missingHostname };

    std::int64_t line = 0; // as in Entry
    Kind kind = Kind::missingHostname;
    std::string field = {}; // what is wrong; empty where it is missing

    // Tells the issues of one text apart: "3-addr-999.1.1.1", "3-host-bad!name", "3-nohost".
    [[nodiscard]] std::string identifier() const;

    bool operator==(const Issue&) const = default;
};

// Both in the order of the lines, and within a line from left to right.
struct Parsed {
    std::vector<Entry> entries;
    std::vector<Issue> issues;

    bool operator==(const Parsed&) const = default;
};

// Takes any bytes; those that are no UTF-8 are in no valid host name. Lines end at every newline character of Unicode,
// each of them for itself: the two of CR LF end two lines. Fields are separated by blanks and tabs, "#" begins a
// comment wherever it stands.
[[nodiscard]] Parsed parse(std::string_view text);

// An IPv4 address of four decimal numbers, or an IPv6 address; what follows a "%" names a zone and may be anything.
[[nodiscard]] bool isValidAddress(std::string_view field);

// Labels of letters and numbers of any script, "-" and "_", with a dot between them and, if need be, after them. In
// UTF-8 a label has at most 63 bytes, and the whole name, with a dot at its end, at most 253.
[[nodiscard]] bool isValidHostname(std::string_view name);

// Of all entries together, repeated ones as often as they come.
[[nodiscard]] std::int64_t hostnameTotal(std::span<const Entry> entries);

} // namespace vexil::hosts_syntax
