// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/queue_driver.h"

#include "platform/linux/glib_main_queue.h"
#include "platform/memory/memory_main_queue.h"

#include <glib.h>

#include <chrono>
#include <optional>
#include <thread>

namespace vexil {

namespace {

using namespace std::chrono_literals;
constexpr Duration kPatience = 20s;

class MemoryQueueDriver final : public QueueDriver {
public:
    MainQueue& queue() override { return *queue_; }
    bool runUntil(const std::function<bool()>& condition) override {
        const TimePoint end = queue_->now() + kPatience;
        queue_->runUntilIdle();
        while (!condition() && queue_->now() < end)
            queue_->advance(1ms);
        // The queue's time passes in no time; threads that post to it may need longer.
        const auto realEnd = std::chrono::steady_clock::now() + kPatience;
        while (!condition() && std::chrono::steady_clock::now() < realEnd) {
            std::this_thread::yield();
            queue_->runUntilIdle();
        }
        return condition();
    }
    void destroyQueue() override { queue_.reset(); }

private:
    std::optional<MemoryMainQueue> queue_{std::in_place};
};

class GlibQueueDriver final : public QueueDriver {
public:
    GlibQueueDriver() : context_(g_main_context_new()) {
        g_main_context_push_thread_default(context_);
        queue_.emplace(context_);
    }
    ~GlibQueueDriver() override {
        queue_.reset();
        g_main_context_pop_thread_default(context_);
        g_main_context_unref(context_);
    }
    GlibQueueDriver(const GlibQueueDriver&) = delete;
    GlibQueueDriver& operator=(const GlibQueueDriver&) = delete;

    MainQueue& queue() override { return *queue_; }
    bool runUntil(const std::function<bool()>& condition) override {
        bool isOver = false;
        const Timer patience = queue_->after(kPatience, [&] { isOver = true; });
        while (!condition() && !isOver)
            g_main_context_iteration(context_, TRUE);
        return condition();
    }
    void destroyQueue() override { queue_.reset(); }

private:
    GMainContext* context_;
    std::optional<GlibMainQueue> queue_;
};

} // namespace

std::unique_ptr<QueueDriver> makeMemoryQueueDriver() {
    return std::make_unique<MemoryQueueDriver>();
}

std::unique_ptr<QueueDriver> makeGlibQueueDriver() {
    return std::make_unique<GlibQueueDriver>();
}

} // namespace vexil
