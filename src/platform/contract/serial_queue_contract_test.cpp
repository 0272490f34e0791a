// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/queue_driver.h"
#include "platform/linux/asio_loopback_tcp.h"
#include "platform/linux/thread_serial_queue.h"
#include "platform/memory/memory_main_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <vector>

namespace vexil {
namespace {

using testing::ElementsAre;

// A queue and what it stands on.
struct World {
    std::unique_ptr<QueueDriver> driver;
    std::unique_ptr<LoopbackTcp> network; // where the queue is that of a network
    std::unique_ptr<SerialQueue> own;     // else

    [[nodiscard]] SerialQueue& queue() const { return own ? *own : network->queue(); }
    void destroyQueue() {
        own.reset();
        network.reset();
    }
};

World makeMemoryWorld() {
    World world{makeMemoryQueueDriver(), nullptr, nullptr};
    world.own = std::make_unique<MemorySerialQueue>(dynamic_cast<MemoryMainQueue&>(world.driver->queue()));
    return world;
}

World makeThreadWorld() {
    return {makeGlibQueueDriver(), nullptr, std::make_unique<ThreadSerialQueue>("contract", WorkerPriority::utility)};
}

World makeAsioWorld() {
    World world{makeGlibQueueDriver(), nullptr, nullptr};
    world.network = std::make_unique<AsioLoopbackTcp>(world.driver->queue());
    return world;
}

class SerialQueueContract : public testing::TestWithParam<World (*)()> {
protected:
    void wake() {
        world.driver->queue().post([] {});
    }
    bool until(const std::function<bool()>& condition) { return world.driver->runUntil(condition); }

    World world = GetParam()();
};

TEST_P(SerialQueueContract, RunsTasksInTheOrderOfPostingItsOwnIncluded) {
    std::vector<int> ran;
    std::atomic<bool> isDone = false;
    world.queue().post([&] {
        world.queue().post([&] {
            ran.push_back(3);
            isDone = true;
            wake();
        });
        ran.push_back(1);
    });
    EXPECT_TRUE(until([&] { return isDone.load(); }));
    EXPECT_THAT(ran, ElementsAre(1, 3));
    isDone = false;
    for (int i = 4; i < 8; ++i)
        world.queue().post([&, i] { ran.push_back(i); });
    world.queue().post([&] {
        isDone = true;
        wake();
    });
    EXPECT_TRUE(until([&] { return isDone.load(); }));
    EXPECT_THAT(ran, ElementsAre(1, 3, 4, 5, 6, 7));
}

TEST_P(SerialQueueContract, DestroysTasksThatHaveNotBegunUnrun) {
    const auto token = std::make_shared<int>();
    std::atomic<bool> hasBegun = false;
    std::promise<void> release;
    world.queue().post([&, released = release.get_future().share()] {
        hasBegun = true;
        released.wait();
    });
    std::atomic<int> ran = 0;
    for (int i = 0; i < 10; ++i)
        world.queue().post([&, token] { ++ran; });
    std::thread releaser;
    if (GetParam() != makeMemoryWorld) {
        while (!hasBegun)
            std::this_thread::yield();
        // The destructor below is waiting for the task by then, or about to.
        releaser = std::thread([&] { release.set_value(); });
    }
    world.destroyQueue();
    if (releaser.joinable())
        releaser.join();
    EXPECT_EQ(token.use_count(), 1);
}

INSTANTIATE_TEST_SUITE_P(Memory, SerialQueueContract, testing::Values(makeMemoryWorld));
INSTANTIATE_TEST_SUITE_P(Thread, SerialQueueContract, testing::Values(makeThreadWorld));
INSTANTIATE_TEST_SUITE_P(Link, SerialQueueContract, testing::Values(makeAsioWorld));

} // namespace
} // namespace vexil
