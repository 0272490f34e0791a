// SPDX-License-Identifier: Apache-2.0
// A main queue whose clock a test turns by hand.
#pragma once

#include "platform/main_queue.h"
#include "platform/serial_queue.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace vexil {

class MemorySerialQueue;

// Nothing runs by itself: runUntilIdle() and advance() run tasks on the caller's thread. Worker queues attached to it
// are drained along with it, so that a test sees one order of events.
class MemoryMainQueue final : public MainQueue {
public:
    MemoryMainQueue() = default;
    MemoryMainQueue(const MemoryMainQueue&) = delete;
    MemoryMainQueue& operator=(const MemoryMainQueue&) = delete;
    ~MemoryMainQueue() override;

    [[nodiscard]] TimePoint now() const override { return now_; }
    void post(Task task) override;
    [[nodiscard]] Timer after(Duration delay, Task task) override;

    // Runs everything that is due, and what it leads to, on this queue and the attached ones. The clock stands still.
    void runUntilIdle();
    // Moves the clock on, stopping at each timer on the way.
    void advance(Duration by);
    // Timers that have neither fired nor been cancelled.
    [[nodiscard]] std::size_t armedTimers() const { return timers_.size(); }

private:
    friend class MemorySerialQueue;
    using TimerKey = std::pair<TimePoint, std::uint64_t>;

    bool runOnePosted();
    bool runOneDueTimer();
    bool runOneOfAWorker();

    TimePoint now_ = TimePoint(std::chrono::hours(1000));
    std::mutex mutex_; // guards posted_
    std::deque<Task> posted_;
    std::map<TimerKey, Task> timers_;
    std::uint64_t nextTimer_ = 0;
    std::vector<MemorySerialQueue*> workers_;
};

// A worker queue without a thread. It runs with the main queue that it is attached to, or by runOne().
class MemorySerialQueue final : public SerialQueue {
public:
    explicit MemorySerialQueue(MemoryMainQueue& mainQueue);
    MemorySerialQueue(const MemorySerialQueue&) = delete;
    MemorySerialQueue& operator=(const MemorySerialQueue&) = delete;
    ~MemorySerialQueue() override;

    void post(Task task) override;
    // Runs the oldest task; false where there is none, or the queue is held.
    bool runOne();
    // A held queue keeps its tasks, as a busy worker would.
    void hold(bool held) { held_ = held; }
    [[nodiscard]] std::size_t waiting() const { return tasks_.size(); }

private:
    MemoryMainQueue& mainQueue_;
    std::deque<Task> tasks_;
    bool held_ = false;
};

} // namespace vexil
