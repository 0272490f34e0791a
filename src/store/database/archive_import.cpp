// SPDX-License-Identifier: Apache-2.0
#include "store/database/archive_import.h"

#include "store/database/clipboard_categories.h"
#include "store/database/clipboard_entries.h"
#include "store/database/entry_rows.h"
#include "store/database/hosts_profiles.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <variant>

namespace vexil {

namespace {

Failure<StoreError> broken(const ClipboardEntry& entry, const std::string& what) {
    return Failure{StoreError{"the entry " + entry.id.toString() + " " + what}};
}

// The content, or none where the entry does not have the one that its kind asks for, and no other.
std::optional<ByteView> contentOf(const ClipboardEntry& entry) {
    if (entry.kind == ClipboardKind::text && entry.text && !entry.text->empty() && !entry.imageData)
        return bytesOf(*entry.text);
    if (entry.kind == ClipboardKind::image && entry.imageData && !entry.imageData->empty() && !entry.text)
        return ByteView(*entry.imageData);
    return std::nullopt;
}

Result<ContentHash, StoreError> checkedHash(const ArchivedEntry& archived) {
    const ClipboardEntry& entry = archived.entry;
    const auto content = contentOf(entry);
    if (!content)
        return broken(entry, "has no content of its kind");
    const ContentHash hash = contentHash(entry.kind, *content);
    if (entry.contentHash != hexOf(hash))
        return broken(entry, "does not have the content that its hash was made of");
    if (!archived.isInHistory && !entry.isFavorite)
        return broken(entry, "is neither in the history nor a favorite");
    if (!archived.isInHistory && entry.pinnedAt)
        return broken(entry, "is pinned and not in the history");
    if (entry.alias && entry.alias->size() > ClipboardEntries::kMaxAliasBytes)
        return broken(entry,
                      "has an alias of more than " + std::to_string(ClipboardEntries::kMaxAliasBytes) + " bytes");
    return hash;
}

} // namespace

std::string hexOf(ByteView bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hex;
    hex.reserve(2 * bytes.size());
    for (const std::uint8_t byte : bytes) {
        hex.push_back(kDigits[byte >> 4U]);
        hex.push_back(kDigits[byte & 0xFU]);
    }
    return hex;
}

Result<Done, StoreError> ArchiveImport::begin() {
    const auto categories = ClipboardCategories(connection_).list();
    if (!categories)
        return Failure{categories.error()};
    categoryCount_ = categories->size();
    auto statement = connection_.prepare("SELECT number, last_copied_at FROM entries ORDER BY copied_revision, number");
    if (!statement)
        return Failure{statement.error()};
    for (;;) {
        const auto stepped = statement->step();
        if (!stepped)
            return Failure{stepped.error()};
        if (!*stepped)
            return Done{};
        before_.push_back({statement->integer(0), statement->date(1)});
        lastBefore_ = std::max(lastBefore_, before_.back().number);
    }
}

Result<Done, StoreError> ArchiveImport::take(const ArchivedItem& item) {
    if (const auto* category = std::get_if<ClipboardCategory>(&item))
        return takeCategory(*category);
    if (const auto* profile = std::get_if<HostsProfile>(&item))
        return takeProfile(*profile);
    return takeEntry(std::get<ArchivedEntry>(item));
}

Result<Done, StoreError> ArchiveImport::takeCategory(const ClipboardCategory& category) {
    ClipboardCategories categories(connection_);
    const auto same = categories.withId(category.id);
    if (!same)
        return Failure{same.error()};
    const auto namesake = categories.named(category.name);
    if (!namesake)
        return Failure{namesake.error()};
    if (*same || *namesake) {
        categories_[category.id] = *same ? (*same)->id : (*namesake)->id;
        return Done{};
    }
    if (!ClipboardCategories::isGoodName(category.name) || !ClipboardCategories::isGoodColor(category.colorTag))
        return Failure{StoreError{"the category " + category.id.toString() + " has a name or a color that cannot be"}};
    if (categoryCount_ >= ClipboardCategories::kMaxCategories)
        return Failure{StoreError{"there would be more than " + std::to_string(ClipboardCategories::kMaxCategories) +
                                  " categories"}};
    if (auto added = connection_.run("INSERT INTO categories (id, name, color_tag, sort_order) "
                                     "SELECT ?, ?, ?, coalesce(max(sort_order) + 1, 0) FROM categories",
                                     category.id, category.name, category.colorTag);
        !added)
        return added;
    categories_[category.id] = category.id;
    ++categoryCount_;
    ++outcome_.categories;
    return Done{};
}

Result<Done, StoreError> ArchiveImport::takeProfile(const HostsProfile& profile) {
    HostsProfiles profiles(connection_);
    const auto same = profiles.startingWith(profile.id.toString(), 1);
    if (!same)
        return Failure{same.error()};
    const auto namesake = profiles.named(profile.name);
    if (!namesake)
        return Failure{namesake.error()};
    if (!same->empty() || *namesake)
        return Done{};
    const auto inserted = profiles.insert(profile);
    if (!inserted)
        return Failure{inserted.error()};
    if (*inserted == HostsProfileChange::tooLarge)
        return Failure{StoreError{"there would be more in the hosts profiles than the link to Vexil Shortcut carries"}};
    if (*inserted != HostsProfileChange::done)
        return Failure{
            StoreError{"the hosts profile " + profile.id.toString() + " has a name or lines that cannot be"}};
    ++outcome_.hostsProfiles;
    return Done{};
}

Result<Done, StoreError> ArchiveImport::takeEntry(const ArchivedEntry& archived) {
    const auto hash = checkedHash(archived);
    if (!hash)
        return Failure{hash.error()};
    if (archived.entry.categoryID && !categories_.contains(*archived.entry.categoryID))
        return broken(archived.entry, "is filed under a category that does not come before it");
    const auto known = isKnown(archived, *hash);
    if (!known)
        return Failure{known.error()};
    if (*known) {
        ++outcome_.known;
        return Done{};
    }
    const auto number = insert(archived, *hash);
    if (!number)
        return Failure{number.error()};
    added_.push_back({*number, archived.entry.lastCopiedAt});
    ++outcome_.added;
    return Done{};
}

// Within the archive two entries may have the same content, but not the same id.
Result<bool, StoreError> ArchiveImport::isKnown(const ArchivedEntry& archived, const ContentHash& hash) {
    const auto twice =
        connection_.number("SELECT count(*) FROM entries WHERE id = ? AND number > ?", archived.entry.id, lastBefore_);
    if (!twice)
        return Failure{twice.error()};
    if (*twice != 0)
        return broken(archived.entry, "comes twice");
    const auto known =
        connection_.number("SELECT count(*) FROM entries WHERE (id = ?1 OR content_hash = ?2) AND number <= ?3",
                           archived.entry.id, ByteView(hash), lastBefore_);
    if (!known)
        return Failure{known.error()};
    return *known != 0;
}

Result<std::int64_t, StoreError> ArchiveImport::insert(const ArchivedEntry& archived, const ContentHash& hash) {
    const ClipboardEntry& entry = archived.entry;
    const ByteView content = contentOf(entry).value_or(ByteView());
    const ContentDescription description = describe(entry.kind, content);
    const auto category = entry.categoryID ? std::optional(categories_.at(*entry.categoryID)) : std::nullopt;
    auto number = connection_.number(
        "INSERT INTO entries (id, kind, content_hash, size, created_at, last_copied_at, copied_revision, in_history, "
        "pinned_at, is_favorite, category_id, alias, image_file_name, preview, thumbnail) "
        "VALUES (?, ?, ?, ?, ?, ?, 0, ?, ?, ?, ?, ?, ?, ?, ?) RETURNING number",
        entry.id, nameOf(entry.kind), ByteView(hash), content.size(), entry.createdAt, entry.lastCopiedAt,
        archived.isInHistory, entry.pinnedAt, entry.isFavorite, category, entry.alias, entry.imageFileName,
        description.preview, description.thumbnail);
    if (!number)
        return number;
    if (auto kept = insertContent(connection_, *number, entry.kind, content); !kept)
        return Failure{kept.error()};
    for (const Date usage : entry.usageTimestamps.value_or(std::vector<Date>())) {
        if (auto added = connection_.run("INSERT INTO usages (entry, used_at) VALUES (?, ?)", *number, usage); !added)
            return Failure{added.error()};
    }
    return number;
}

Result<ClipboardArchive::Outcome, StoreError> ArchiveImport::end() {
    if (outcome_.added == 0 && outcome_.categories == 0)
        return outcome_;
    if (auto placed = renumber(); !placed)
        return Failure{placed.error()};
    const auto fallen = letFallOut(connection_);
    if (!fallen)
        return Failure{fallen.error()};
    outcome_.fellOut = *fallen;
    return outcome_;
}

// The revisions of copies count from 1 again: between two of them there may be no number left.
Result<Done, StoreError> ArchiveImport::renumber() {
    std::vector<Placed> inOrder;
    std::merge(before_.begin(), before_.end(), added_.begin(), added_.end(), std::back_inserter(inOrder),
               [](const Placed& a, const Placed& b) { return a.copiedAt < b.copiedAt; });
    std::int64_t revision = 0;
    for (const Placed& entry : inOrder) {
        if (auto set = connection_.run("UPDATE entries SET copied_revision = ?1 WHERE number = ?2 AND "
                                       "copied_revision <> ?1",
                                       ++revision, entry.number);
            !set)
            return set;
    }
    return connection_.run("UPDATE store SET revision = max(revision + 1, ?)", revision);
}

} // namespace vexil
