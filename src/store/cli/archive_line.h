// SPDX-License-Identifier: Apache-2.0
// One line of an export, which is a file of JSON objects, one a line: first a header, then one item a line, and last
// the number of the items, so that a file that was cut off is noticed.
//
//     {"header":{"format":"vexil-store","version":1}}
//     {"category":{"id":"...","name":"work","colorTag":"red","order":0}}
//     {"hostsProfile":{"id":"...","name":"work","content":"10.0.0.5 api.test\n",...}}
//     {"entry":{"id":"...","kind":"text","text":"hello",...},"isInHistory":true}
//     {"end":{"items":3}}
//
// Another kind of item is another member here and another alternative of ArchivedItem. A newer program writes another
// version where an older one would lose something that it does not know.
#pragma once

#include "base/bytes.h"
#include "base/json_fields.h"
#include "base/result.h"
#include "link/clipboard_records.h"
#include "link/hosts_records.h"
#include "store/database/clipboard_archive.h"
#include "store/database/store_error.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

namespace vexil {

struct ArchiveHeader {
    static constexpr std::string_view kFormat = "vexil-store";
    static constexpr std::int64_t kVersion = 1;

    std::string format;
    std::int64_t version = 0;
};
constexpr auto jsonFields(json::Tag<ArchiveHeader>) {
    return std::tuple{json::Field{"format", &ArchiveHeader::format}, json::Field{"version", &ArchiveHeader::version}};
}

struct ArchiveEnd {
    std::int64_t items = 0;
};
constexpr auto jsonFields(json::Tag<ArchiveEnd>) {
    return std::tuple{json::Field{"items", &ArchiveEnd::items}};
}

// Exactly one of its members is there, but for isInHistory, which goes with the entry.
struct ArchiveLine {
    std::optional<ArchiveHeader> header;
    std::optional<ClipboardCategory> category;
    std::optional<HostsProfile> hostsProfile;
    std::optional<ClipboardEntry> entry;
    std::optional<bool> isInHistory;
    std::optional<ArchiveEnd> end;
};
constexpr auto jsonFields(json::Tag<ArchiveLine>) {
    using R = ArchiveLine;
    return std::tuple{json::Field{"header", &R::header},
                      json::Field{"category", &R::category},
                      json::Field{"hostsProfile", &R::hostsProfile},
                      json::Field{"entry", &R::entry},
                      json::Field{"isInHistory", &R::isInHistory},
                      json::Field{"end", &R::end}};
}

// With the newline.
[[nodiscard]] Bytes textOfLine(const ArchiveLine& line);
[[nodiscard]] Bytes textOfLine(const ArchivedItem& item);

// Without the newline. Fails where the line is none of an export.
[[nodiscard]] Result<ArchiveLine, StoreError> parseArchiveLine(ByteView text);

// None where the line is the header or the end.
[[nodiscard]] std::optional<ArchivedItem> itemOf(ArchiveLine line);

} // namespace vexil
