// SPDX-License-Identifier: Apache-2.0
// A hosts profile as a person, or a list from anywhere, may give it. What is found lies in the text, in order, and
// holds what the two validators say; and the entries, written down, are read as the same.
#include "hosts/hosts_syntax.h"

#include "fuzz/fuzz_target.h"

#include <algorithm>
#include <set>
#include <string>
#include <string_view>

namespace vexil {
namespace {

using fuzz::require;
using namespace hosts_syntax;

// Every byte that may be the last of a newline character counts as one: never too few.
std::int64_t mostLines(std::string_view text) {
    const auto endsNewline = [](char c) {
        return (c >= '\n' && c <= '\r') || c == '\x85' || c == '\xA8' || c == '\xA9';
    };
    return 1 + std::count_if(text.begin(), text.end(), endsNewline);
}

void checkLines(std::string_view text, const Parsed& parsed) {
    const std::int64_t most = mostLines(text);
    std::int64_t last = 0;
    for (const Entry& entry : parsed.entries) {
        require(entry.line > last && entry.line <= most, "entries stand in the order of the lines, one a line");
        last = entry.line;
    }
    last = 1;
    for (const Issue& issue : parsed.issues) {
        require(issue.line >= last && issue.line <= most, "issues stand in the order of the lines");
        last = issue.line;
    }
}

void checkMeaning(std::string_view text, const Parsed& parsed) {
    std::set<std::string> wrongNames;
    for (const Issue& issue : parsed.issues) {
        require(text.find(issue.field) != std::string_view::npos, "an issue shows what is in the text");
        require(issue.kind != Issue::Kind::invalidAddress || !isValidAddress(issue.field), "it is an address no more");
        require(issue.kind != Issue::Kind::invalidHostname || !isValidHostname(issue.field), "nor a name");
        if (issue.kind == Issue::Kind::invalidHostname)
            wrongNames.insert(issue.identifier());
    }
    for (const Entry& entry : parsed.entries) {
        require(isValidAddress(entry.address), "an entry has an address");
        require(!entry.hostnames.empty(), "an entry has a name");
        for (const std::string& name : entry.hostnames) {
            const Issue issue{entry.line, Issue::Kind::invalidHostname, name};
            require(isValidHostname(name) != wrongNames.contains(issue.identifier()), "a wrong name is an issue");
        }
    }
}

void checkRoundTrip(Parsed parsed) {
    std::string written;
    std::int64_t line = 0;
    for (Entry& entry : parsed.entries) {
        written += entry.address;
        for (const std::string& name : entry.hostnames)
            written += "\t" + name;
        written += " # " + std::to_string(line) + "\n";
        entry.line = ++line;
    }
    const Parsed again = parse(written);
    require(again.entries == parsed.entries, "entries come back as they were written");
    require(hostnameTotal(again.entries) == hostnameTotal(parsed.entries), "and so does their total");
}

} // namespace
} // namespace vexil

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vexil;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto parsed = hosts_syntax::parse(text);
    checkLines(text, parsed);
    checkMeaning(text, parsed);
    checkRoundTrip(parsed);
    return 0;
}
