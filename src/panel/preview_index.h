// SPDX-License-Identifier: Apache-2.0
// Which rows of one list of the panel have a query in their preview.
#pragma once

#include "base/lifetime.h"
#include "base/text_search.h"
#include "panel/folded_previews.h"
#include "platform/main_queue.h"
#include "platform/serial_queue.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vexil {

// Previews are folded on a worker as soon as rows are assigned. A query that comes before that is done folds what is
// missing at once, so that the answer is right in any case. After that a longer query is looked for only in the rows
// that had the shorter one, and the same query is not looked for again. Main queue only.
class PreviewIndex {
public:
    using Rows = FoldedPreviews::Rows;
    using Numbers = FoldedPreviews::Numbers;

    // Both queues outlive the index.
    PreviewIndex(MainQueue& mainQueue, SerialQueue& worker, text::CaseRules rules);
    ~PreviewIndex() = default;
    PreviewIndex(const PreviewIndex&) = delete;
    PreviewIndex& operator=(const PreviewIndex&) = delete;

    // In place of the rows of before. They are shared, with the snapshot that they belong to:
    // `{snapshot, &snapshot->history}` is such a pointer. Null is no rows.
    void assign(Rows rows);

    // The numbers, ascending, of the rows that have `query` in their preview, case aside and untrimmed; for an empty
    // query of all. What is returned lives until the next call of either function.
    [[nodiscard]] const Numbers& matching(std::string_view query);

private:
    struct Answer {
        std::string queryText;
        FoldedPreviews::Matches matches;
    };

    void foldOnWorker();
    void receive(std::shared_ptr<const FoldedPreviews> folded);
    const FoldedPreviews& folded();
    void retire(std::shared_ptr<const FoldedPreviews> folded);

    MainQueue& mainQueue_;
    SerialQueue& worker_;
    const text::CaseRules rules_;
    Rows rows_;
    std::shared_ptr<const FoldedPreviews> folded_; // null until the rows of now are folded
    std::shared_ptr<const FoldedPreviews> former_; // of rows of before, while folded_ is null
    std::optional<Answer> answer_;                 // the last one, for the rows of now
    Lifetime lifetime_;
};

} // namespace vexil
