// SPDX-License-Identifier: Apache-2.0
// Rows and categories made from a name.
#pragma once

#include "base/uuid.h"
#include "link/clipboard_records.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vexil {

// The id of the name's own, the same each time.
inline Uuid idOf(std::string_view name) {
    std::string text = "00000000-0000-4000-8000-000000000000";
    std::size_t place = 0;
    for (const char c : name.substr(0, 6)) {
        constexpr const char* kDigits = "0123456789ABCDEF";
        text[24 + place++] = kDigits[static_cast<unsigned char>(c) >> 4];
        text[24 + place++] = kDigits[static_cast<unsigned char>(c) & 0xF];
    }
    return *Uuid::parse(text);
}

inline ClipboardRowSummary historyRow(const std::string& name) {
    ClipboardRowSummary row;
    row.id = idOf(name);
    row.preview = name;
    return row;
}

inline ClipboardRowSummary favoriteRow(const std::string& name, std::optional<Uuid> categoryID = std::nullopt) {
    ClipboardRowSummary row = historyRow(name);
    row.scope = ClipboardScope::favorites;
    row.isFavorite = true;
    row.categoryID = categoryID;
    return row;
}

inline ClipboardRowSummary imageRow(const std::string& name) {
    ClipboardRowSummary row = historyRow(name);
    row.kind = ClipboardKind::image;
    return row;
}

inline ClipboardCategory categoryOf(const std::string& name) {
    return {.id = idOf(name), .name = name, .colorTag = "", .order = 0};
}

template <class Rows> std::vector<std::string> previewsOf(const Rows& rows) {
    std::vector<std::string> previews;
    previews.reserve(rows.size());
    for (const auto& row : rows)
        previews.push_back(row.preview);
    return previews;
}

} // namespace vexil
