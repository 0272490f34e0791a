// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/queue_driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class MainQueueContract : public testing::TestWithParam<QueueDriverFactory> {
protected:
    MainQueue& queue() { return driver->queue(); }
    // Everything posted so far, and what that posts.
    void settle() {
        for (int i = 0; i < 3; ++i) {
            bool hasRun = false;
            queue().post([&] { hasRun = true; });
            ASSERT_TRUE(driver->runUntil([&] { return hasRun; }));
        }
    }
    auto note(int value) {
        return [this, value] { ran.push_back(value); };
    }

    std::unique_ptr<QueueDriver> driver = GetParam()();
    std::vector<int> ran;
};

TEST_P(MainQueueContract, RunsTasksInTheOrderOfPosting) {
    for (int i = 0; i < 5; ++i)
        queue().post(note(i));
    settle();
    EXPECT_THAT(ran, ElementsAre(0, 1, 2, 3, 4));
}

TEST_P(MainQueueContract, RunsNothingFromWithinPost) {
    queue().post([&] {
        queue().post(note(2));
        ran.push_back(1);
    });
    EXPECT_THAT(ran, IsEmpty());
    settle();
    EXPECT_THAT(ran, ElementsAre(1, 2));
}

TEST_P(MainQueueContract, TakesTasksFromOtherThreadsInTheOrderOfEach) {
    constexpr int kThreads = 4;
    constexpr int kTasks = 500;
    std::vector<std::vector<int>> seen(kThreads);
    std::size_t total = 0;
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kTasks; ++i) {
                queue().post([&, t, i] {
                    seen[t].push_back(i);
                    ++total;
                });
            }
        });
    }
    EXPECT_TRUE(driver->runUntil([&] { return total == kThreads * kTasks; }));
    for (auto& thread : threads)
        thread.join();
    for (const auto& tasks : seen)
        EXPECT_TRUE(std::is_sorted(tasks.begin(), tasks.end()));
}

TEST_P(MainQueueContract, FiresTimersInTheOrderOfTheirDeadlines) {
    const Timer late = queue().after(20ms, note(3));
    const Timer early = queue().after(5ms, note(1));
    const Timer middle = queue().after(10ms, note(2));
    EXPECT_TRUE(driver->runUntil([&] { return ran.size() == 3; }));
    EXPECT_THAT(ran, ElementsAre(1, 2, 3));
}

TEST_P(MainQueueContract, FiresTimersOfOneTurnAndDelayInTheOrderOfTheirMaking) {
    std::vector<Timer> timers;
    queue().post([&] {
        for (int i = 0; i < 4; ++i)
            timers.push_back(queue().after(2ms, note(i)));
    });
    EXPECT_TRUE(driver->runUntil([&] { return ran.size() == 4; }));
    EXPECT_THAT(ran, ElementsAre(0, 1, 2, 3));
}

TEST_P(MainQueueContract, NeverFiresATimerBeforeItsDelayHasPassed) {
    const TimePoint start = queue().now();
    TimePoint fired{};
    const Timer timer = queue().after(15ms, [&] { fired = queue().now(); });
    EXPECT_TRUE(driver->runUntil([&] { return fired != TimePoint{}; }));
    EXPECT_GE(fired - start, 15ms);
}

TEST_P(MainQueueContract, FiresATimerOnlyOnceAndNotFromWithinAfter) {
    const Timer timer = queue().after(-5ms, note(1));
    EXPECT_THAT(ran, IsEmpty());
    const Timer last = queue().after(5ms, note(2));
    EXPECT_TRUE(driver->runUntil([&] { return ran.size() >= 2; }));
    EXPECT_THAT(ran, ElementsAre(1, 2));
}

TEST_P(MainQueueContract, ATimerThatIsDroppedDoesNotFire) {
    { const Timer dropped = queue().after(1ms, note(1)); }
    Timer replaced = queue().after(1ms, note(2));
    replaced = queue().after(2ms, note(3));
    EXPECT_TRUE(driver->runUntil([&] { return !ran.empty(); }));
    settle();
    EXPECT_THAT(ran, ElementsAre(3));
}

TEST_P(MainQueueContract, ATurnCancelsATimerThatIsDueAlready) {
    Timer second;
    Timer first;
    queue().post([&] {
        first = queue().after(1ms, [&] {
            ran.push_back(1);
            second.cancel();
        });
        second = queue().after(1ms, note(2));
    });
    const Timer last = queue().after(30ms, note(3));
    EXPECT_TRUE(driver->runUntil([&] { return ran.size() >= 2; }));
    EXPECT_THAT(ran, ElementsAre(1, 3));
}

TEST_P(MainQueueContract, ATaskMayDropItsOwnTimerAndArmItAgain) {
    Timer timer;
    timer = queue().after(1ms, [&] {
        ran.push_back(1);
        timer = queue().after(1ms, [&] {
            ran.push_back(2);
            timer.cancel();
        });
    });
    EXPECT_TRUE(driver->runUntil([&] { return ran.size() == 2; }));
    settle();
    EXPECT_THAT(ran, ElementsAre(1, 2));
}

TEST_P(MainQueueContract, TheClockStandsStillDuringATurn) {
    bool hasRun = false;
    queue().post([&] {
        const TimePoint before = queue().now();
        const auto real = Clock::now();
        while (Clock::now() - real < 3ms) {
        }
        EXPECT_EQ(queue().now(), before);
        hasRun = true;
    });
    EXPECT_TRUE(driver->runUntil([&] { return hasRun; }));
}

TEST_P(MainQueueContract, TheClockNeverRunsBackwards) {
    std::vector<TimePoint> times;
    const Timer timer = queue().after(3ms, [&] { times.push_back(queue().now()); });
    for (int i = 0; i < 3; ++i) {
        times.push_back(queue().now());
        queue().post([&] { times.push_back(queue().now()); });
        settle();
    }
    EXPECT_TRUE(driver->runUntil([&] { return times.size() == 7; }));
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
}

TEST_P(MainQueueContract, DestroysWhatNeverRanAlongWithItself) {
    struct Probe {
        std::shared_ptr<int> token;
        Timer timer;
    };
    const auto token = std::make_shared<int>();
    queue().post([probe = Probe{token, queue().after(1h, [] {})}] {});
    std::vector<Timer> timers;
    timers.push_back(queue().after(1h, [probe = Probe{token, queue().after(2h, [token] {})}] {}));
    EXPECT_GT(token.use_count(), 1);
    timers.clear();
    Timer held = queue().after(1h, [token] {});
    queue().post([held = std::move(held)] {});
    driver->destroyQueue();
    EXPECT_EQ(token.use_count(), 1);
}

INSTANTIATE_TEST_SUITE_P(Memory, MainQueueContract, testing::Values(makeMemoryQueueDriver));
INSTANTIATE_TEST_SUITE_P(Glib, MainQueueContract, testing::Values(makeGlibQueueDriver));

} // namespace
} // namespace vexil
