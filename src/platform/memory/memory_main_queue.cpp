// SPDX-License-Identifier: Apache-2.0
#include "platform/memory/memory_main_queue.h"

#include <algorithm>
#include <cassert>

namespace vexil {

MemoryMainQueue::~MemoryMainQueue() {
    assert(workers_.empty());
    // A task may own a timer of this queue; it must find the maps alive when it is dropped.
    std::deque<Task> posted;
    std::map<TimerKey, Task> timers;
    posted.swap(posted_);
    timers.swap(timers_);
}

void MemoryMainQueue::post(Task task) {
    const std::lock_guard lock(mutex_);
    posted_.push_back(std::move(task));
}

Timer MemoryMainQueue::after(Duration delay, Task task) {
    const TimerKey key{now_ + std::max(delay, Duration::zero()), nextTimer_++};
    timers_.emplace(key, std::move(task));
    return Timer([this, key] { timers_.erase(key); });
}

bool MemoryMainQueue::runOnePosted() {
    Task task;
    {
        const std::lock_guard lock(mutex_);
        if (posted_.empty())
            return false;
        task = std::move(posted_.front());
        posted_.pop_front();
    }
    task();
    return true;
}

bool MemoryMainQueue::runOneDueTimer() {
    if (timers_.empty() || timers_.begin()->first.first > now_)
        return false;
    auto due = timers_.extract(timers_.begin());
    due.mapped()();
    return true;
}

bool MemoryMainQueue::runOneOfAWorker() {
    return std::any_of(workers_.begin(), workers_.end(), [](MemorySerialQueue* worker) { return worker->runOne(); });
}

void MemoryMainQueue::runUntilIdle() {
    while (runOnePosted() || runOneOfAWorker() || runOneDueTimer()) {
    }
}

void MemoryMainQueue::advance(Duration by) {
    const TimePoint end = now_ + by;
    runUntilIdle();
    while (!timers_.empty() && timers_.begin()->first.first <= end) {
        now_ = std::max(now_, timers_.begin()->first.first);
        runUntilIdle();
    }
    now_ = end;
}

MemorySerialQueue::MemorySerialQueue(MemoryMainQueue& mainQueue) : mainQueue_(mainQueue) {
    mainQueue_.workers_.push_back(this);
}

MemorySerialQueue::~MemorySerialQueue() {
    std::erase(mainQueue_.workers_, this);
}

void MemorySerialQueue::post(Task task) {
    tasks_.push_back(std::move(task));
}

bool MemorySerialQueue::runOne() {
    if (held_ || tasks_.empty())
        return false;
    Task task = std::move(tasks_.front());
    tasks_.pop_front();
    task();
    return true;
}

} // namespace vexil
