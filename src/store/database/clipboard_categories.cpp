// SPDX-License-Identifier: Apache-2.0
#include "store/database/clipboard_categories.h"

#include "base/text_folding.h"
#include "store/database/entry_rows.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace vexil {

namespace {

using Access = SqliteConnection::Access;

std::string folded(std::string_view name) {
    return text::fold(name, text::CaseRules::common);
}

bool hasControlCharacters(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

// The first for which `matches` is true.
template <class Matches>
Result<std::optional<ClipboardCategory>, StoreError> firstOf(Result<std::vector<ClipboardCategory>, StoreError> list,
                                                             Matches matches) {
    if (!list)
        return Failure{list.error()};
    const auto found = std::find_if(list->begin(), list->end(), matches);
    return found == list->end() ? std::nullopt : std::optional(std::move(*found));
}

} // namespace

bool ClipboardCategories::isGoodName(std::string_view name) {
    return !name.empty() && name.size() <= kMaxNameBytes && !hasControlCharacters(name) && name.front() != ' ' &&
           name.back() != ' ';
}

bool ClipboardCategories::isGoodColor(std::string_view tag) {
    return tag.size() <= kMaxColorBytes && !hasControlCharacters(tag);
}

Result<std::vector<ClipboardCategory>, StoreError> ClipboardCategories::list() {
    auto statement = connection_.prepare("SELECT id, name, color_tag FROM categories ORDER BY sort_order, id");
    if (!statement)
        return Failure{statement.error()};
    std::vector<ClipboardCategory> categories;
    for (;;) {
        const auto stepped = statement->step();
        if (!stepped)
            return Failure{stepped.error()};
        if (!*stepped)
            return categories;
        categories.push_back({.id = statement->id(0).value_or(Uuid()),
                              .name = statement->text(1),
                              .colorTag = statement->text(2),
                              .order = static_cast<std::int64_t>(categories.size())});
    }
}

Result<std::optional<ClipboardCategory>, StoreError> ClipboardCategories::withId(const Uuid& id) {
    return firstOf(list(), [&](const ClipboardCategory& category) { return category.id == id; });
}

Result<std::optional<ClipboardCategory>, StoreError> ClipboardCategories::named(std::string_view name) {
    return firstOf(
        list(), [wanted = folded(name)](const ClipboardCategory& category) { return folded(category.name) == wanted; });
}

Result<CategoryChange, StoreError> ClipboardCategories::add(std::string_view name, std::string_view colorTag) {
    return change([&]() -> Result<CategoryChange, StoreError> {
        auto checked = checkName(name, std::nullopt);
        if (!checked || *checked != CategoryChange::done)
            return checked;
        if (!isGoodColor(colorTag))
            return CategoryChange::badColor;
        const auto categories = list();
        if (!categories)
            return Failure{categories.error()};
        if (categories->size() >= kMaxCategories)
            return CategoryChange::tooMany;
        if (auto numbered = number(*categories); !numbered)
            return Failure{numbered.error()};
        if (auto added = connection_.run("INSERT INTO categories (id, name, color_tag, sort_order) VALUES (?, ?, ?, ?)",
                                         Uuid::random(), name, colorTag, categories->size());
            !added)
            return Failure{added.error()};
        return CategoryChange::done;
    });
}

Result<CategoryChange, StoreError> ClipboardCategories::rename(const Uuid& id, std::string_view name) {
    return change([&]() -> Result<CategoryChange, StoreError> {
        auto checked = checkName(name, id);
        if (!checked || *checked != CategoryChange::done)
            return checked;
        if (auto renamed = connection_.run("UPDATE categories SET name = ? WHERE id = ?", name, id); !renamed)
            return Failure{renamed.error()};
        return connection_.changedRows() == 1 ? CategoryChange::done : CategoryChange::noSuchCategory;
    });
}

Result<CategoryChange, StoreError> ClipboardCategories::recolor(const Uuid& id, std::string_view colorTag) {
    return change([&]() -> Result<CategoryChange, StoreError> {
        if (!isGoodColor(colorTag))
            return CategoryChange::badColor;
        if (auto set = connection_.run("UPDATE categories SET color_tag = ? WHERE id = ?", colorTag, id); !set)
            return Failure{set.error()};
        return connection_.changedRows() == 1 ? CategoryChange::done : CategoryChange::noSuchCategory;
    });
}

Result<CategoryChange, StoreError> ClipboardCategories::move(const Uuid& id, std::size_t position) {
    return change([&]() -> Result<CategoryChange, StoreError> {
        auto categories = list();
        if (!categories)
            return Failure{categories.error()};
        const auto found = std::find_if(categories->begin(), categories->end(),
                                        [&](const ClipboardCategory& category) { return category.id == id; });
        if (found == categories->end())
            return CategoryChange::noSuchCategory;
        ClipboardCategory moved = std::move(*found);
        categories->erase(found);
        position = std::min(position, categories->size());
        categories->insert(std::next(categories->begin(), static_cast<std::ptrdiff_t>(position)), std::move(moved));
        if (auto numbered = number(*categories); !numbered)
            return Failure{numbered.error()};
        return CategoryChange::done;
    });
}

Result<CategoryChange, StoreError> ClipboardCategories::remove(const Uuid& id) {
    return change([&]() -> Result<CategoryChange, StoreError> {
        if (auto removed = connection_.run("DELETE FROM categories WHERE id = ?", id); !removed)
            return Failure{removed.error()};
        return connection_.changedRows() == 1 ? CategoryChange::done : CategoryChange::noSuchCategory;
    });
}

// Runs `work` and counts its change, if it is one, as a new revision.
template <class Work> Result<CategoryChange, StoreError> ClipboardCategories::change(Work work) {
    return connection_.transaction(Access::write, [&]() -> Result<CategoryChange, StoreError> {
        Result<CategoryChange, StoreError> changed = work();
        if (!changed || *changed != CategoryChange::done)
            return changed;
        if (const auto counted = raiseRevision(connection_); !counted)
            return Failure{counted.error()};
        return changed;
    });
}

Result<CategoryChange, StoreError> ClipboardCategories::checkName(std::string_view name,
                                                                  const std::optional<Uuid>& except) {
    if (!isGoodName(name))
        return CategoryChange::badName;
    const auto other = named(name);
    if (!other)
        return Failure{other.error()};
    return *other && (*other)->id != except ? CategoryChange::nameTaken : CategoryChange::done;
}

// Gives the categories the order in which they stand.
Result<Done, StoreError> ClipboardCategories::number(const std::vector<ClipboardCategory>& inOrder) {
    for (std::size_t i = 0; i < inOrder.size(); ++i) {
        if (auto set = connection_.run("UPDATE categories SET sort_order = ?1 WHERE id = ?2 AND sort_order <> ?1", i,
                                       inOrder[i].id);
            !set)
            return set;
    }
    return Done{};
}

} // namespace vexil
