// SPDX-License-Identifier: Apache-2.0
#include "panel/preview_index.h"
#include "platform/memory/memory_main_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <random>

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using text::CaseRules;
using Rows = std::vector<ClipboardRowSummary>;

PreviewIndex::Rows rowsOf(const std::vector<std::string>& previews) {
    auto rows = std::make_shared<Rows>();
    for (const auto& preview : previews) {
        rows->emplace_back();
        rows->back().id = Uuid::random();
        rows->back().preview = preview;
    }
    return rows;
}

class PreviewIndexTest : public testing::Test {
protected:
    // Everything that was handed to the worker comes back in its turn.
    void letTheWorkerFold() {
        worker.hold(false);
        mainQueue.runUntilIdle();
    }

    MemoryMainQueue mainQueue;
    MemorySerialQueue worker{mainQueue};
    std::unique_ptr<PreviewIndex> index = std::make_unique<PreviewIndex>(mainQueue, worker, CaseRules::common);
};

TEST_F(PreviewIndexTest, FoldsOnTheWorker) {
    index->assign(rowsOf({"Grün", "GRÜNER", "gru"}));
    EXPECT_EQ(worker.waiting(), 1U);
    letTheWorkerFold();
    EXPECT_THAT(index->matching("grün"), ElementsAre(0, 1));
    EXPECT_EQ(worker.waiting(), 0U);
}

TEST_F(PreviewIndexTest, AnswersRightlyBeforeTheWorkerHasFolded) {
    worker.hold(true);
    index->assign(rowsOf({"Grün", "GRÜNER", "gru"}));
    EXPECT_THAT(index->matching("grün"), ElementsAre(0, 1));
    letTheWorkerFold();
    EXPECT_THAT(index->matching("grüne"), ElementsAre(1));
}

TEST_F(PreviewIndexTest, AnEmptyQueryMatchesEveryRow) {
    EXPECT_THAT(index->matching(""), IsEmpty());
    index->assign(rowsOf({"a", "", "b"}));
    EXPECT_THAT(index->matching(""), ElementsAre(0, 1, 2));
}

TEST_F(PreviewIndexTest, NoRowsNeedNoWorker) {
    index->assign(nullptr);
    index->assign(rowsOf({}));
    EXPECT_EQ(worker.waiting(), 0U);
    EXPECT_THAT(index->matching("a"), IsEmpty());
}

TEST_F(PreviewIndexTest, NewRowsReplaceTheFormerOnes) {
    index->assign(rowsOf({"abc", "xyz"}));
    EXPECT_THAT(index->matching("abc"), ElementsAre(0));
    index->assign(rowsOf({"new", "xyz", "abc"}));
    EXPECT_THAT(index->matching("abc"), ElementsAre(2)) << "the same query, but not the same rows";
    EXPECT_THAT(index->matching("abcd"), IsEmpty());
    index->assign(nullptr);
    EXPECT_THAT(index->matching("abc"), IsEmpty());
}

TEST_F(PreviewIndexTest, ALateFoldOfFormerRowsIsDropped) {
    worker.hold(true);
    index->assign(rowsOf({"abc"}));
    index->assign(rowsOf({"xyz", "ABC"}));
    letTheWorkerFold();
    EXPECT_THAT(index->matching("abc"), ElementsAre(1));
}

TEST_F(PreviewIndexTest, MayGoWhileTheWorkerFolds) {
    worker.hold(true);
    index->assign(rowsOf({"abc"}));
    index.reset();
    letTheWorkerFold();
    EXPECT_EQ(worker.waiting(), 0U);
}

TEST_F(PreviewIndexTest, FormerRowsAreLetGoOfOnTheWorker) {
    PreviewIndex::Rows rows = rowsOf({"abc"});
    const std::weak_ptr<const Rows> watch = rows;
    index->assign(std::move(rows));
    letTheWorkerFold();
    ASSERT_FALSE(watch.expired());

    worker.hold(true);
    index->assign(rowsOf({"abc", "new"}));
    EXPECT_THAT(index->matching("abc"), ElementsAre(0)) << "folded here, with the former rows at hand";
    EXPECT_FALSE(watch.expired()) << "freed on the main queue";
    letTheWorkerFold();
    EXPECT_TRUE(watch.expired());
}

TEST_F(PreviewIndexTest, NothingIsKeptOfRowsThatAreGone) {
    PreviewIndex::Rows rows = rowsOf({"abc"});
    const std::weak_ptr<const Rows> watch = rows;
    index->assign(std::move(rows));
    letTheWorkerFold();
    index->assign(nullptr);
    letTheWorkerFold();
    EXPECT_TRUE(watch.expired());
}

TEST_F(PreviewIndexTest, GoesByTheLanguageThatItWasMadeFor) {
    PreviewIndex turkish(mainQueue, worker, CaseRules::turkic);
    const auto rows = rowsOf({"TITLE", "tıtle", "title", "TİTLE"});
    turkish.assign(rows);
    index->assign(rows);
    EXPECT_THAT(turkish.matching("title"), ElementsAre(2, 3));
    EXPECT_THAT(index->matching("title"), ElementsAre(0, 2));
}

// What a person types, takes back and types again, with snapshots and the worker in between.
TEST_F(PreviewIndexTest, AnswersTheSameWhateverWasAskedBefore) {
    std::mt19937 random(3);
    const std::vector<std::string> letters = {"a", "B", "e", "\u0301", "é", "ß", "s", "д", " "};
    const auto randomText = [&](std::size_t longest) {
        std::string made;
        for (std::size_t n = random() % (longest + 1); n > 0; --n)
            made += letters[random() % letters.size()];
        return made;
    };
    std::vector<std::string> previews;
    std::string query;
    const std::function<void()> steps[] = {
        [&] {
            previews.clear();
            for (std::size_t n = random() % 40; n > 0; --n)
                previews.push_back(randomText(12));
            index->assign(rowsOf(previews));
        },
        [&] { mainQueue.runUntilIdle(); },
        [&] { worker.hold(random() % 2 == 0); },
        [&] { query += letters[random() % letters.size()]; },
        [&] { query += letters[random() % letters.size()]; },
        [&] { query.insert(0, letters[random() % letters.size()]); },
        [&] { query = query.substr(0, random() % (query.size() + 1)); }, // at times in the middle of a character
        [&] { query = randomText(2); },
    };
    for (int i = 0; i < 5'000; ++i) {
        steps[random() % std::size(steps)]();
        PreviewIndex::Numbers expected;
        for (std::uint32_t row = 0; row < previews.size(); ++row) {
            if (text::Query(query, CaseRules::common).isIn(text::fold(previews[row], CaseRules::common)))
                expected.push_back(row);
        }
        ASSERT_EQ(index->matching(query), expected) << i << " '" << query << "'";
    }
}

} // namespace
} // namespace vexil
