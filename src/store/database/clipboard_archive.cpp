// SPDX-License-Identifier: Apache-2.0
#include "store/database/clipboard_archive.h"

#include "store/database/archive_import.h"
#include "store/database/clipboard_categories.h"
#include "store/database/content_description.h"
#include "store/database/entry_rows.h"
#include "store/database/hosts_profiles.h"

#include <string>
#include <utility>

namespace vexil {

namespace {

using Access = SqliteConnection::Access;

Result<std::vector<std::int64_t>, StoreError> entriesInOrder(SqliteConnection& connection) {
    auto statement = connection.prepare("SELECT number FROM entries ORDER BY copied_revision, number");
    if (!statement)
        return Failure{statement.error()};
    std::vector<std::int64_t> numbers;
    for (;;) {
        const auto stepped = statement->step();
        if (!stepped)
            return Failure{stepped.error()};
        if (!*stepped)
            return numbers;
        numbers.push_back(statement->integer(0));
    }
}

Result<std::optional<std::vector<Date>>, StoreError> usagesOf(SqliteConnection& connection, std::int64_t entry) {
    auto statement = connection.prepare("SELECT used_at FROM usages WHERE entry = ? ORDER BY used_at", entry);
    if (!statement)
        return Failure{statement.error()};
    std::optional<std::vector<Date>> usages;
    for (;;) {
        const auto stepped = statement->step();
        if (!stepped)
            return Failure{stepped.error()};
        if (!*stepped)
            return usages;
        if (!usages)
            usages.emplace();
        usages->push_back(statement->date(0));
    }
}

Result<ArchivedEntry, StoreError> readEntry(SqliteConnection& connection, std::int64_t number) {
    auto statement = connection.prepare(
        "SELECT e.id, e.kind, e.content_hash, e.created_at, e.last_copied_at, e.is_favorite, e.category_id, "
        "e.pinned_at, e.alias, e.image_file_name, e.in_history, c.data "
        "FROM entries AS e JOIN contents AS c ON c.entry = e.number WHERE e.number = ?",
        number);
    if (!statement)
        return Failure{statement.error()};
    if (const auto stepped = statement->step(); !stepped)
        return Failure{stepped.error()};
    ArchivedEntry archived;
    ClipboardEntry& entry = archived.entry;
    entry.id = statement->id(0).value_or(Uuid());
    entry.kind = kindNamed(statement->textView(1));
    entry.contentHash = hexOf(statement->bytesView(2));
    entry.createdAt = statement->date(3);
    entry.lastCopiedAt = statement->date(4);
    entry.isFavorite = statement->integer(5) != 0;
    entry.categoryID = statement->id(6);
    if (!statement->isNull(7))
        entry.pinnedAt = statement->date(7);
    entry.alias = statement->optionalText(8);
    entry.imageFileName = statement->optionalText(9);
    archived.isInHistory = statement->integer(10) != 0;
    if (entry.kind == ClipboardKind::image)
        entry.imageData = statement->bytes(11);
    else
        entry.text = statement->text(11);
    auto usages = usagesOf(connection, number);
    if (!usages)
        return Failure{usages.error()};
    entry.usageTimestamps = std::move(*usages);
    return archived;
}

Result<ClipboardArchive::Size, StoreError> sizeOf(SqliteConnection& connection) {
    const auto entries = connection.number("SELECT count(*) FROM entries");
    if (!entries)
        return Failure{entries.error()};
    const auto bytes = connection.number("SELECT total(size) FROM entries");
    if (!bytes)
        return Failure{bytes.error()};
    return ClipboardArchive::Size{static_cast<std::uint64_t>(*entries), static_cast<std::uint64_t>(*bytes)};
}

using OnItem = UniqueFunction<Result<Done, StoreError>(const ArchivedItem&)>;

template <class Item>
Result<Done, StoreError> handOver(const Result<std::vector<Item>, StoreError>& items, OnItem& to) {
    if (!items)
        return Failure{items.error()};
    for (const Item& item : *items) {
        if (auto taken = to(item); !taken)
            return taken;
    }
    return Done{};
}

} // namespace

Result<Done, StoreError> ClipboardArchive::read(UniqueFunction<Result<Done, StoreError>(Size)> onBegin,
                                                UniqueFunction<Result<Done, StoreError>(const ArchivedItem&)> onItem) {
    return connection_.transaction(Access::read, [&]() -> Result<Done, StoreError> {
        const auto size = sizeOf(connection_);
        if (!size)
            return Failure{size.error()};
        if (auto begun = onBegin(*size); !begun)
            return begun;
        if (auto taken = handOver(ClipboardCategories(connection_).list(), onItem); !taken)
            return taken;
        if (auto taken = handOver(HostsProfiles(connection_).list(), onItem); !taken)
            return taken;
        const auto numbers = entriesInOrder(connection_);
        if (!numbers)
            return Failure{numbers.error()};
        for (const std::int64_t number : *numbers) {
            auto entry = readEntry(connection_, number);
            if (!entry)
                return Failure{entry.error()};
            if (auto taken = onItem(std::move(entry).value()); !taken)
                return taken;
        }
        return Done{};
    });
}

Result<ClipboardArchive::Outcome, StoreError>
ClipboardArchive::write(UniqueFunction<Result<std::optional<ArchivedItem>, StoreError>()> next) {
    return connection_.transaction(Access::write, [&]() -> Result<Outcome, StoreError> {
        ArchiveImport import(connection_);
        if (auto begun = import.begin(); !begun)
            return Failure{begun.error()};
        for (;;) {
            const auto item = next();
            if (!item)
                return Failure{item.error()};
            if (!*item)
                return import.end();
            if (auto taken = import.take(**item); !taken)
                return Failure{taken.error()};
        }
    });
}

} // namespace vexil
