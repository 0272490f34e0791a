// SPDX-License-Identifier: Apache-2.0
// What a thread adds; what every serial queue does is in platform/contract.
#include "platform/linux/thread_serial_queue.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <future>
#include <iterator>
#include <string>

namespace vexil {
namespace {

template <class F> auto resultOn(SerialQueue& queue, F task) {
    std::promise<decltype(task())> promise;
    queue.post([&] { promise.set_value(task()); });
    return promise.get_future().get();
}

std::ptrdiff_t threadsOfThisProcess() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

TEST(ThreadSerialQueueTest, HasNoThreadBeforeTheFirstTask) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer starts a thread of its own with the first one";
#endif
    const auto before = threadsOfThisProcess();
    ThreadSerialQueue queue("lazy");
    EXPECT_EQ(threadsOfThisProcess(), before);
    EXPECT_EQ(resultOn(queue, threadsOfThisProcess), before + 1);
}

TEST(ThreadSerialQueueTest, NamesItsThread) {
    ThreadSerialQueue queue("vexil-test");
    const auto name = resultOn(queue, [] {
        char text[16] = {};
        pthread_getname_np(pthread_self(), text, sizeof text);
        return std::string(text);
    });
    EXPECT_EQ(name, "vexil-test");
}

TEST(ThreadSerialQueueTest, UtilityWorkIsNicerThanTheRest) {
    const auto niceness = [] { return getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())); };
    ThreadSerialQueue normal("normal");
    ThreadSerialQueue utility("utility", WorkerPriority::utility);
    EXPECT_EQ(resultOn(normal, niceness), niceness());
    EXPECT_EQ(resultOn(utility, niceness), 10);
}

TEST(ThreadSerialQueueTest, LeavesSignalsToTheMainThread) {
    ThreadSerialQueue queue("signals");
    const bool isBlocked = resultOn(queue, [] {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        return sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGINT) == 1;
    });
    EXPECT_TRUE(isBlocked);
    sigset_t mine;
    pthread_sigmask(SIG_SETMASK, nullptr, &mine);
    EXPECT_EQ(sigismember(&mine, SIGTERM), 0);
}

} // namespace
} // namespace vexil
