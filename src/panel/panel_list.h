// SPDX-License-Identifier: Apache-2.0
// One list of the panel, and rows chosen from it.
#pragma once

#include "base/uuid.h"
#include "link/clipboard_records.h"
#include "panel/preview_index.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vexil {

class PanelList;

// Rows of one list, in its order. A view: valid until the list, or what was chosen from it, changes.
class PanelRows {
public:
    class Iterator;
    using value_type = ClipboardRowSummary;
    using const_iterator = Iterator;

    PanelRows(const PanelList& list, std::span<const std::uint32_t> numbers) : list_(&list), numbers_(numbers) {}

    [[nodiscard]] std::size_t size() const { return numbers_.size(); }
    [[nodiscard]] bool empty() const { return numbers_.empty(); }
    [[nodiscard]] const ClipboardRowSummary& operator[](std::size_t index) const;
    [[nodiscard]] Iterator begin() const;
    [[nodiscard]] Iterator end() const;

    // Of the first row with that id. Looks at them one by one.
    [[nodiscard]] std::optional<std::size_t> indexOf(const Uuid& id) const;

private:
    const PanelList* list_;
    std::span<const std::uint32_t> numbers_;
};

// The rows of a snapshot, with what the person has done to them since. The rows themselves stay with the snapshot, and
// what is changed is kept beside them: a list of a hundred thousand rows is neither copied when it comes nor when one
// of them is pinned. Main queue only.
class PanelList {
public:
    // Both queues outlive the list.
    PanelList(MainQueue& mainQueue, SerialQueue& worker, text::CaseRules rules) : index_(mainQueue, worker, rules) {}

    // In place of what was there. The pointer keeps the snapshot alive whose list this is.
    void assign(std::shared_ptr<const std::vector<ClipboardRowSummary>> rows);

    [[nodiscard]] PanelRows rows() const { return {*this, present_}; }

    // A row keeps the number that it has in the snapshot.
    [[nodiscard]] const ClipboardRowSummary& row(std::uint32_t number) const;
    // The numbers, ascending, of the rows with `query` in their preview, all for an empty one. With a category only
    // those that are filed under it.
    [[nodiscard]] std::vector<std::uint32_t> matching(std::string_view query, const std::optional<Uuid>& categoryID);

    // Calls `change` for each row with that id. It leaves the id and the preview as they are.
    template <class F> void change(const Uuid& id, F change) {
        for (const std::uint32_t number : present_) {
            if ((*rows_)[number].id == id)
                change(changed_.try_emplace(number, (*rows_)[number]).first->second);
        }
    }
    // Takes each row with that id off the list.
    void remove(const Uuid& id);

private:
    std::shared_ptr<const std::vector<ClipboardRowSummary>> rows_;
    PreviewIndex index_;
    std::vector<std::uint32_t> present_; // numbers of the rows that are still there, ascending
    std::unordered_map<std::uint32_t, ClipboardRowSummary> changed_;
};

class PanelRows::Iterator {
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = ClipboardRowSummary;
    using difference_type = std::ptrdiff_t;
    using pointer = const ClipboardRowSummary*;
    using reference = const ClipboardRowSummary&;

    Iterator() = default;
    Iterator(const PanelList* list, const std::uint32_t* number) : list_(list), number_(number) {}

    reference operator*() const { return list_->row(*number_); }
    pointer operator->() const { return &**this; }
    Iterator& operator++() {
        ++number_;
        return *this;
    }
    Iterator operator++(int) { return {list_, number_++}; }
    bool operator==(const Iterator&) const = default;

private:
    const PanelList* list_ = nullptr;
    const std::uint32_t* number_ = nullptr;
};

inline const ClipboardRowSummary& PanelRows::operator[](std::size_t index) const {
    return list_->row(numbers_[index]);
}
inline PanelRows::Iterator PanelRows::begin() const {
    return {list_, numbers_.data()};
}
inline PanelRows::Iterator PanelRows::end() const {
    return {list_, numbers_.data() + numbers_.size()};
}

} // namespace vexil
