// SPDX-License-Identifier: Apache-2.0
// Two lists fold on one worker thread while the main queue assigns, asks and goes away.
#include "panel/preview_index.h"
#include "platform/linux/glib_main_queue.h"
#include "platform/linux/thread_serial_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vexil {
namespace {

using Numbers = PreviewIndex::Numbers;

constexpr int kRounds = 300;

// Row 3 is "Grün 3 ROUND"; every row has its number.
PreviewIndex::Rows rowsOf(int round) {
    auto rows = std::make_shared<std::vector<ClipboardRowSummary>>(200);
    for (std::size_t i = 0; i < rows->size(); ++i) {
        (*rows)[i].id = Uuid::random();
        (*rows)[i].preview = "Grün " + std::to_string(i) + ' ' + std::to_string(round);
    }
    return rows;
}

TEST(PreviewIndexOnThreadsTest, AnswersRightlyWhereverTheWorkerIs) {
    GlibMainQueue queue;
    ThreadSerialQueue worker("folding");
    PreviewIndex history(queue, worker, text::CaseRules::common);
    PreviewIndex favorites(queue, worker, text::CaseRules::common);
    int round = 0;
    std::function<void()> next = [&] {
        if (++round > kRounds)
            return queue.quit();
        history.assign(rowsOf(round));
        favorites.assign(rowsOf(-round));
        if (round % 3 != 0) { // in every third round not before the worker is done, or nearly
            EXPECT_EQ(history.matching("GRÜN 3 " + std::to_string(round)), Numbers{3});
            EXPECT_EQ(favorites.matching("GRÜN 7 -"), Numbers{7});
        }
        queue.post([&] {
            EXPECT_EQ(history.matching("3 " + std::to_string(round)).front(), 3U);
            EXPECT_EQ(favorites.matching("GRÜN 7 -" + std::to_string(round)), Numbers{7});
            queue.post([&] { next(); });
        });
    };
    queue.post([&] { next(); });
    queue.run();
}

TEST(PreviewIndexOnThreadsTest, GoesAwayWhileTheWorkerFolds) {
    GlibMainQueue queue;
    ThreadSerialQueue worker("folding");
    int round = 0;
    std::function<void()> next = [&] {
        if (++round > kRounds)
            return queue.quit();
        PreviewIndex index(queue, worker, text::CaseRules::common);
        index.assign(rowsOf(round));
        if (round % 2 == 0)
            index.assign(rowsOf(round));
        queue.post([&] { next(); });
    };
    queue.post([&] { next(); });
    queue.run();
    EXPECT_EQ(round, kRounds + 1);
}

} // namespace
} // namespace vexil
