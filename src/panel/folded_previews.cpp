// SPDX-License-Identifier: Apache-2.0
#include "panel/folded_previews.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

namespace vexil {

namespace {

// Finds rows of a new list in the former one. Most are still in the same order, so that what was added, erased or moved
// is looked for only a little further on.
class FormerRows {
public:
    explicit FormerRows(const std::vector<ClipboardRowSummary>* rows) : rows_(rows) {}

    // None where the row is new, or was moved too far, or has another preview.
    std::optional<std::size_t> find(const ClipboardRowSummary& row) {
        static constexpr std::size_t kLookAhead = 8;
        const std::size_t end = rows_ == nullptr ? 0 : std::min(rows_->size(), next_ + kLookAhead);
        for (std::size_t i = next_; i < end; ++i) {
            if ((*rows_)[i].id == row.id) {
                next_ = i + 1;
                return (*rows_)[i].preview == row.preview ? std::optional(i) : std::nullopt;
            }
        }
        return std::nullopt;
    }

private:
    const std::vector<ClipboardRowSummary>* rows_;
    std::size_t next_ = 0;
};

} // namespace

FoldedPreviews::FoldedPreviews(Rows rows, text::CaseRules rules, const FoldedPreviews* former)
    : rows_(std::move(rows)) {
    FormerRows formerRows(former == nullptr ? nullptr : former->rows_.get());
    std::size_t size = 0;
    for (const auto& row : *rows_)
        size += row.preview.size() + 1;
    text_.reserve(size);
    begins_.reserve(rows_->size() + 1);
    for (const auto& row : *rows_) {
        begins_.push_back(text_.size());
        if (const auto same = formerRows.find(row))
            text_ += former->previewOf(*same);
        else
            text::appendFolded(text_, row.preview, rules);
        text_ += text::kEndOfText;
    }
    begins_.push_back(text_.size());
}

// Hits ascend and mostly lie close together: look in steps that double, then between the last two.
std::size_t FoldedPreviews::rowAt(std::size_t place, std::size_t firstRow) const {
    std::size_t step = 1;
    while (firstRow + step < begins_.size() && begins_[firstRow + step] <= place)
        step *= 2;
    const auto at = [this](std::size_t row) {
        return begins_.begin() + static_cast<std::ptrdiff_t>(std::min(row, begins_.size()));
    };
    const auto after = std::upper_bound(at(firstRow + step / 2), at(firstRow + step), place);
    return static_cast<std::size_t>(after - begins_.begin()) - 1;
}

FoldedPreviews::Numbers FoldedPreviews::matching(const text::Query& query) const {
    Numbers found;
    std::size_t row = 0;
    for (std::size_t hit = query.find(text_, 0); hit < text_.size(); hit = query.find(text_, begins_[row])) {
        row = rowAt(hit, row);
        found.push_back(static_cast<std::uint32_t>(row));
        ++row;
    }
    return found;
}

FoldedPreviews::Numbers FoldedPreviews::matching(const text::Query& query, const Numbers& among) const {
    Numbers found;
    std::copy_if(among.begin(), among.end(), std::back_inserter(found),
                 [&](std::uint32_t row) { return query.isIn(previewOf(row)); });
    return found;
}

} // namespace vexil
