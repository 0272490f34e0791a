// SPDX-License-Identifier: Apache-2.0
// Entries as the store hands them out.
#pragma once

#include "base/bytes.h"
#include "base/date.h"
#include "base/uuid.h"
#include "link/clipboard_records.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

namespace vexil {

// An entry without its content.
struct StoredEntry {
    ClipboardRowSummary row;
    Date createdAt;
    std::uint64_t size = 0; // of the content, in bytes
    bool isInHistory = false;
};

struct StoredContent {
    ClipboardKind kind = ClipboardKind::text;
    Bytes data; // a text in UTF-8, or the image as it came
};

// Which entries are wanted, in which order, and what of them.
struct EntryQuery {
    static constexpr std::size_t kNoLimit = std::numeric_limits<std::int64_t>::max();

    ClipboardScope scope = ClipboardScope::history;
    std::optional<Uuid> category = std::nullopt; // only those filed under it
    // Only those whose text, or alias, or, of an image, preview, contains this in any case; all where it is empty.
    std::string search = {};
    std::size_t limit = kNoLimit;
    bool withThumbnails = false;
};

struct StoreCounts {
    std::uint64_t history = 0;
    std::uint64_t pinned = 0;
    std::uint64_t favorites = 0;
    std::uint64_t images = 0; // on either list
    std::uint64_t categories = 0;
    std::uint64_t contentBytes = 0; // of all entries

    bool operator==(const StoreCounts&) const = default;
};

} // namespace vexil
