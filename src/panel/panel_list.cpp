// SPDX-License-Identifier: Apache-2.0
#include "panel/panel_list.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace vexil {

std::optional<std::size_t> PanelRows::indexOf(const Uuid& id) const {
    const auto found = std::find_if(begin(), end(), [&id](const auto& row) { return row.id == id; });
    return found == end() ? std::nullopt : std::optional(static_cast<std::size_t>(std::distance(begin(), found)));
}

void PanelList::assign(std::shared_ptr<const std::vector<ClipboardRowSummary>> rows) {
    rows_ = std::move(rows);
    present_.resize(rows_->size());
    std::iota(present_.begin(), present_.end(), 0U);
    changed_.clear();
    index_.assign(rows_);
}

const ClipboardRowSummary& PanelList::row(std::uint32_t number) const {
    if (!changed_.empty()) {
        if (const auto found = changed_.find(number); found != changed_.end())
            return found->second;
    }
    return (*rows_)[number];
}

std::vector<std::uint32_t> PanelList::matching(std::string_view query, const std::optional<Uuid>& categoryID) {
    std::vector<std::uint32_t> numbers;
    if (query.empty()) {
        numbers = present_;
    } else if (const auto& found = index_.matching(query); present_.size() == rows_->size()) {
        numbers = found; // nothing has been taken off
    } else {
        numbers.reserve(std::min(found.size(), present_.size()));
        std::set_intersection(found.begin(), found.end(), present_.begin(), present_.end(),
                              std::back_inserter(numbers));
    }
    if (categoryID)
        std::erase_if(numbers, [&](std::uint32_t number) { return row(number).categoryID != categoryID; });
    return numbers;
}

void PanelList::remove(const Uuid& id) {
    std::erase_if(present_, [this, &id](std::uint32_t number) { return (*rows_)[number].id == id; });
}

} // namespace vexil
