// SPDX-License-Identifier: Apache-2.0
// What a GLib context adds; what every main queue does is in platform/contract.
#include "platform/linux/glib_main_queue.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <thread>

namespace vexil {
namespace {

using namespace std::chrono_literals;

std::atomic<int> sleeps = 0;

// Counts the times that the context went to sleep.
int countingPoll(GPollFD* descriptors, guint count, gint timeout) {
    if (timeout != 0)
        ++sleeps;
    return g_poll(descriptors, count, timeout);
}

class GlibMainQueueTest : public testing::Test {
protected:
    GlibMainQueueTest() {
        sleeps = 0;
        g_main_context_set_poll_func(context.get(), countingPoll);
    }

    struct Unref {
        void operator()(GMainContext* given) const { g_main_context_unref(given); }
    };
    std::unique_ptr<GMainContext, Unref> context{g_main_context_new()};
    GlibMainQueue queue{context.get()};
};

TEST_F(GlibMainQueueTest, RunEndsWithTheTasksPostedBeforeQuit) {
    int ran = 0;
    queue.post([&] { ++ran; });
    queue.quit();
    queue.run();
    EXPECT_EQ(ran, 1);
}

TEST_F(GlibMainQueueTest, QuitsFromAnotherThread) {
    std::thread quitter([&] { queue.quit(); });
    queue.run();
    quitter.join();
}

TEST_F(GlibMainQueueTest, ATerminatingSignalQuitsOnlyWhileAskedTo) {
    for (const int signal : {SIGINT, SIGTERM}) {
        GlibMainQueue standard;
        bool hasRun = false;
        standard.post([&] {
            hasRun = true;
            ::raise(signal);
        });
        standard.runUntilTerminated();
        EXPECT_TRUE(hasRun);
    }
    struct sigaction action {};
    ASSERT_EQ(::sigaction(SIGTERM, nullptr, &action), 0);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
}

TEST_F(GlibMainQueueTest, SleepsOnceUntilTheTimer) {
    const Timer timer = queue.after(60ms, [&] { queue.quit(); });
    queue.run();
    // The last millisecond may take a second look at the clock.
    EXPECT_LE(sleeps, 2);
}

TEST_F(GlibMainQueueTest, WakesOnceForABatch) {
    constexpr int kTasks = 10'000;
    int ran = 0;
    std::atomic<bool> isBusy = false;
    std::thread poster([&] {
        while (!isBusy)
            std::this_thread::yield();
        for (int i = 0; i < kTasks; ++i)
            queue.post([&] { ++ran; });
        queue.quit();
        isBusy = false;
    });
    queue.post([&] {
        isBusy = true;
        while (isBusy)
            std::this_thread::yield();
    });
    queue.run();
    poster.join();
    EXPECT_EQ(ran, kTasks);
    EXPECT_LE(sleeps, 1);
}

TEST_F(GlibMainQueueTest, LeavesOtherSourcesTheirTurnBetweenTasksThatPostTasks) {
    bool hasOtherRun = false;
    GSource* other = g_timeout_source_new(0);
    g_source_set_callback(
        other,
        [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &hasOtherRun, nullptr);
    g_source_attach(other, context.get());
    g_source_unref(other);
    struct Chain {
        GlibMainQueue& queue;
        const bool& isDone;
        int left = 1'000'000;
        void next() {
            if (isDone || --left == 0)
                queue.quit();
            else
                queue.post([this] { next(); });
        }
    } chain{queue, hasOtherRun};
    queue.post([&] { chain.next(); });
    queue.run();
    EXPECT_TRUE(hasOtherRun);
}

} // namespace
} // namespace vexil
