// SPDX-License-Identifier: Apache-2.0
// The folded previews of one list, made for being searched.
#pragma once

#include "base/text_search.h"
#include "link/clipboard_records.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vexil {

// One contiguous text in which text::kEndOfText follows each preview, so that a search is one walk over bytes. Never
// changes once it is made; may be made on one thread and used on others.
class FoldedPreviews {
public:
    using Rows = std::shared_ptr<const std::vector<ClipboardRowSummary>>;
    using Numbers = std::vector<std::uint32_t>; // of rows: their indexes in the list

    // Takes over what `former`, which may be null, folded by the same rules for rows that are still there.
    FoldedPreviews(Rows rows, text::CaseRules rules, const FoldedPreviews* former = nullptr);

    [[nodiscard]] const Rows& rows() const { return rows_; }
    [[nodiscard]] std::string_view text() const { return text_; }

    // The rows that have a query in their preview.
    struct Matches {
        text::Query query;
        Numbers rows;                    // ascending
        std::vector<std::uint32_t> hits; // for each of them, where in its folded preview the first hit is

        void add(std::size_t row, std::size_t hit) {
            rows.push_back(static_cast<std::uint32_t>(row));
            hits.push_back(static_cast<std::uint32_t>(hit));
        }
    };

    [[nodiscard]] Matches matching(text::Query query) const;
    // Looks only at the rows that matched the former query, where the new one narrows it. `former` is of these
    // previews.
    [[nodiscard]] Matches matching(text::Query query, Matches former) const;

private:
    [[nodiscard]] std::string_view previewOf(std::size_t row) const {
        return std::string_view(text_).substr(begins_[row], begins_[row + 1] - begins_[row] - 1);
    }
    [[nodiscard]] std::size_t rowAt(std::size_t place, std::size_t firstRow) const;

    Rows rows_;
    std::string text_;
    std::vector<std::size_t> begins_; // of the rows, and the end of the text
};

} // namespace vexil
