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
        static constexpr std::size_t kLookAhead = 16;
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
    std::size_t longest = 0;
    for (const auto& row : *rows_) {
        size += row.preview.size() + 1;
        longest = std::max(longest, row.preview.size());
    }
    text_.reserve(size + longest); // folding takes room for twice the text, and gives back what it did not need
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

FoldedPreviews::Matches FoldedPreviews::matching(text::Query query) const {
    Matches found{std::move(query), {}, {}};
    std::size_t row = 0;
    std::size_t hit = found.query.find(text_, 0);
    while (hit < text_.size()) {
        row = rowAt(hit, row);
        found.add(row, hit - begins_[row]);
        ++row;
        hit = found.query.find(text_, begins_[row]);
    }
    return found;
}

FoldedPreviews::Matches FoldedPreviews::matching(text::Query query, Matches former) const {
    // How many rows ahead the processor is told what it will need: rows that match lie far apart in memory.
    static constexpr std::size_t kAhead = 16;
    if (!query.narrows(former.query))
        return matching(std::move(query));
    const bool extends = query.extends(former.query);
    const auto placeOf = [&](std::size_t i) { return begins_[former.rows[i]] + (extends ? former.hits[i] : 0); };
    const std::size_t count = former.rows.size();
    std::size_t kept = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (i + kAhead < count)
            __builtin_prefetch(text_.data() + placeOf(i + kAhead));
        const std::uint32_t row = former.rows[i];
        const std::size_t hit = query.find(text_, placeOf(i), begins_[row + 1]);
        if (hit == text::Query::kNotFound)
            continue;
        former.rows[kept] = row;
        former.hits[kept] = static_cast<std::uint32_t>(hit - begins_[row]);
        ++kept;
    }
    former.rows.resize(kept);
    former.hits.resize(kept);
    former.query = std::move(query);
    return former;
}

} // namespace vexil
