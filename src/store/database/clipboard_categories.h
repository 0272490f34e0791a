// SPDX-License-Identifier: Apache-2.0
// The categories under which favorites are filed.
#pragma once

#include "base/result.h"
#include "base/uuid.h"
#include "link/clipboard_records.h"
#include "store/database/sqlite_connection.h"
#include "store/database/store_error.h"

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace vexil {

enum class CategoryChange {
    done,
    noSuchCategory,
    nameTaken, // by another category, in whatever case
    badName,   // empty, longer than kMaxNameBytes, with control characters, or with white space at an end
    badColor,  // longer than kMaxColorBytes or with control characters
    tooMany,   // kMaxCategories are there
};

// A light view on the database, got from StoreDatabase::categories() and used at once. Every change is one transaction,
// as with ClipboardEntries.
class ClipboardCategories {
public:
    static constexpr std::size_t kMaxNameBytes = 200;
    static constexpr std::size_t kMaxColorBytes = 50;
    static constexpr std::size_t kMaxCategories = 1000; // all of them are in every snapshot

    explicit ClipboardCategories(SqliteConnection& connection) : connection_(connection) {}

    [[nodiscard]] static bool isGoodName(std::string_view name);
    [[nodiscard]] static bool isGoodColor(std::string_view tag);

    // In their order, which counts from 0 without a gap.
    Result<std::vector<ClipboardCategory>, StoreError> list();
    Result<std::optional<ClipboardCategory>, StoreError> withId(const Uuid& id);
    // By its name, in whatever case.
    Result<std::optional<ClipboardCategory>, StoreError> named(std::string_view name);

    // Behind the others.
    Result<CategoryChange, StoreError> add(std::string_view name, std::string_view colorTag);
    Result<CategoryChange, StoreError> rename(const Uuid& id, std::string_view name);
    Result<CategoryChange, StoreError> recolor(const Uuid& id, std::string_view colorTag);
    // To `position`, counted from 0 among the others; too large is the end.
    Result<CategoryChange, StoreError> move(const Uuid& id, std::size_t position);
    // What was filed under it is filed nowhere, and stays a favorite.
    Result<CategoryChange, StoreError> remove(const Uuid& id);

private:
    template <class Work> Result<CategoryChange, StoreError> change(Work work);
    Result<CategoryChange, StoreError> checkName(std::string_view name, const std::optional<Uuid>& except);
    Result<Done, StoreError> number(const std::vector<ClipboardCategory>& inOrder);

    SqliteConnection& connection_;
};

} // namespace vexil
