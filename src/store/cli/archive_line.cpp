// SPDX-License-Identifier: Apache-2.0
#include "store/cli/archive_line.h"

#include "base/json.h"

#include <utility>
#include <variant>

namespace vexil {

namespace {

ArchiveLine lineOf(const ClipboardCategory& category) {
    ArchiveLine line;
    line.category = category;
    return line;
}

ArchiveLine lineOf(const HostsProfile& profile) {
    ArchiveLine line;
    line.hostsProfile = profile;
    return line;
}

ArchiveLine lineOf(const ArchivedEntry& archived) {
    ArchiveLine line;
    line.entry = archived.entry;
    line.isInHistory = archived.isInHistory;
    return line;
}

} // namespace

Bytes textOfLine(const ArchiveLine& line) {
    Bytes text;
    json::append(text, line);
    text.push_back('\n');
    return text;
}

Bytes textOfLine(const ArchivedItem& item) {
    return textOfLine(std::visit([](const auto& archived) { return lineOf(archived); }, item));
}

Result<ArchiveLine, StoreError> parseArchiveLine(ByteView text) {
    auto line = json::read<ArchiveLine>(text);
    if (!line)
        return Failure{StoreError{"this is no line of an export: " + std::string(line.error().reason)}};
    const ArchiveLine& read = line.value();
    const int kinds = (read.header ? 1 : 0) + (read.category ? 1 : 0) + (read.hostsProfile ? 1 : 0) +
                      (read.entry ? 1 : 0) + (read.end ? 1 : 0);
    if (kinds != 1 || read.isInHistory.has_value() != read.entry.has_value())
        return Failure{StoreError{"this is no line of an export"}};
    return std::move(line).value();
}

std::optional<ArchivedItem> itemOf(ArchiveLine line) {
    if (line.category)
        return *std::move(line.category);
    if (line.hostsProfile)
        return *std::move(line.hostsProfile);
    if (line.entry)
        return ArchivedEntry{*std::move(line.entry), line.isInHistory.value_or(true)};
    return std::nullopt;
}

} // namespace vexil
