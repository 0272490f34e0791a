// SPDX-License-Identifier: Apache-2.0
#include "store/cli/history_listing.h"

#include "base/json_fields.h"
#include "store/cli/json_lines.h"
#include "store/cli/local_time.h"
#include "store/database/byte_count.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <tuple>

namespace vexil {

namespace {

constexpr std::size_t kShortestId = 8;

struct ListedEntry {
    Uuid id;
    ClipboardKind kind = ClipboardKind::text;
    std::int64_t size = 0;
    Date createdAt;
    Date lastCopiedAt;
    bool isPinned = false;
    bool isFavorite = false;
    std::optional<Uuid> categoryID;
    std::optional<std::string> category; // its name
    std::optional<std::string> alias;
    std::string preview;
};
constexpr auto jsonFields(json::Tag<ListedEntry>) {
    using R = ListedEntry;
    return std::tuple{json::Field{"id", &R::id},
                      json::Field{"kind", &R::kind},
                      json::Field{"size", &R::size},
                      json::Field{"createdAt", &R::createdAt},
                      json::Field{"lastCopiedAt", &R::lastCopiedAt},
                      json::Field{"isPinned", &R::isPinned},
                      json::Field{"isFavorite", &R::isFavorite},
                      json::Field{"categoryID", &R::categoryID},
                      json::Field{"category", &R::category},
                      json::Field{"alias", &R::alias},
                      json::Field{"preview", &R::preview}};
}

std::size_t commonPrefix(std::string_view a, std::string_view b) {
    return static_cast<std::size_t>(std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first - a.begin());
}

std::size_t lengthThatTellsApart(std::vector<std::string> ids) {
    std::sort(ids.begin(), ids.end());
    std::size_t length = kShortestId;
    for (std::size_t i = 1; i < ids.size(); ++i)
        length = std::max(length, commonPrefix(ids[i - 1], ids[i]) + 1);
    return length;
}

std::optional<std::string> nameOf(const std::optional<Uuid>& id, const std::vector<ClipboardCategory>& categories) {
    for (const ClipboardCategory& category : categories) {
        if (category.id == id)
            return category.name;
    }
    return std::nullopt;
}

TableCell description(const ClipboardRowSummary& row, const std::vector<ClipboardCategory>& categories) {
    TableCell cell;
    if (const auto category = nameOf(row.categoryID, categories))
        cell.emplace_back("[" + *category + "] ", TextStyle::accent);
    if (row.alias) {
        cell.emplace_back(*row.alias, TextStyle::strong);
        cell.emplace_back(" · ", TextStyle::faint);
    }
    cell.emplace_back(row.preview);
    return cell;
}

} // namespace

Table historyTable(const std::vector<StoredEntry>& entries, const std::vector<ClipboardCategory>& categories) {
    std::vector<std::string> ids(entries.size());
    std::transform(entries.begin(), entries.end(), ids.begin(),
                   [](const StoredEntry& entry) { return entry.row.id.toString(); });
    const std::size_t idWidth = lengthThatTellsApart(ids);
    using Align = Table::Column::Align;
    Table table({{.align = Align::left},                     // id
                 {.align = Align::left},                     // marks
                 {.align = Align::left, .roomForLast = 30},  // kind
                 {.align = Align::right, .roomForLast = 40}, // size
                 {.align = Align::left, .roomForLast = 20},  // time
                 {.align = Align::left}});
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const ClipboardRowSummary& row = entries[i].row;
        const std::string marks = std::string(row.isPinned ? "^" : "") + (row.isFavorite ? "*" : "");
        table.addRow({{{ids[i].substr(0, idWidth), TextStyle::faint}},
                      {{marks, TextStyle::accent}},
                      {{row.kind == ClipboardKind::text ? "text" : "image", TextStyle::faint}},
                      {{byteCountText(entries[i].size), TextStyle::faint}},
                      {{localTime(row.lastCopiedAt), TextStyle::faint}},
                      description(row, categories)});
    }
    return table;
}

Bytes historyJson(const std::vector<StoredEntry>& entries, const std::vector<ClipboardCategory>& categories) {
    std::vector<ListedEntry> listed;
    listed.reserve(entries.size());
    for (const StoredEntry& entry : entries) {
        const ClipboardRowSummary& row = entry.row;
        listed.push_back({row.id, row.kind, static_cast<std::int64_t>(entry.size), entry.createdAt, row.lastCopiedAt,
                          row.isPinned, row.isFavorite, row.categoryID, nameOf(row.categoryID, categories), row.alias,
                          row.preview});
    }
    return jsonArrayOfLines(listed);
}

} // namespace vexil
