// SPDX-License-Identifier: Apache-2.0
#include "panel/preview_index.h"

#include <utility>

namespace vexil {

namespace {

PreviewIndex::Rows noRows() {
    return std::make_shared<const PreviewIndex::Rows::element_type>();
}

} // namespace

PreviewIndex::PreviewIndex(MainQueue& mainQueue, SerialQueue& worker, text::CaseRules rules)
    : mainQueue_(mainQueue), worker_(worker), rules_(rules), rows_(noRows()) {}

void PreviewIndex::assign(Rows rows) {
    if (folded_) {
        retire(std::move(former_));
        former_ = std::exchange(folded_, nullptr);
    }
    rows_ = rows ? std::move(rows) : noRows();
    answer_.reset();
    if (rows_->empty())
        retire(std::move(former_));
    else
        foldOnWorker();
}

const PreviewIndex::Numbers& PreviewIndex::matching(std::string_view query) {
    if (!answer_ || answer_->queryText != query) {
        text::Query next(query, rules_);
        auto matches = answer_ ? folded().matching(std::move(next), std::move(answer_->matches))
                               : folded().matching(std::move(next));
        answer_.emplace(Answer{std::string(query), std::move(matches)});
    }
    return answer_->matches.rows;
}

void PreviewIndex::foldOnWorker() {
    auto guarded =
        lifetime_.guard([this](std::shared_ptr<const FoldedPreviews> folded) { receive(std::move(folded)); });
    worker_.post(
        [&queue = mainQueue_, rows = rows_, rules = rules_, former = former_, guarded = std::move(guarded)]() mutable {
            auto folded = std::make_shared<const FoldedPreviews>(std::move(rows), rules, former.get());
            queue.post(
                [folded = std::move(folded), guarded = std::move(guarded)]() mutable { guarded(std::move(folded)); });
        });
}

void PreviewIndex::receive(std::shared_ptr<const FoldedPreviews> folded) {
    if (folded_ || folded->rows() != rows_) {
        retire(std::move(folded));
        return;
    }
    folded_ = std::move(folded);
    retire(std::move(former_));
}

const FoldedPreviews& PreviewIndex::folded() {
    if (!folded_)
        receive(std::make_shared<const FoldedPreviews>(rows_, rules_, former_.get()));
    return *folded_;
}

// Who lets go of the rows of a snapshot last frees them all, which the main queue has no time for.
void PreviewIndex::retire(std::shared_ptr<const FoldedPreviews> folded) {
    if (folded)
        worker_.post([folded = std::move(folded)] {});
}

} // namespace vexil
