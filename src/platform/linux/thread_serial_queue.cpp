// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/thread_serial_queue.h"

#include <cassert>
#include <utility>

namespace vexil {

ThreadSerialQueue::ThreadSerialQueue(std::string name, WorkerPriority priority)
    : name_(std::move(name)), priority_(priority) {}

ThreadSerialQueue::~ThreadSerialQueue() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) {
        assert(thread_.get_id() != std::this_thread::get_id());
        thread_.join();
    }
    // What a task owns may post as it goes: it must find the queue whole.
    while (!tasks_.empty())
        const auto unrun = std::exchange(tasks_, {});
}

void ThreadSerialQueue::post(Task task) {
    {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
        if (!thread_.joinable() && !isEnding_)
            thread_ = startWorker(name_, priority_, [this] { work(); });
    }
    changed_.notify_one();
}

void ThreadSerialQueue::work() {
    std::vector<Task> batch;
    while (waitForBatch(batch)) {
        for (Task& task : batch) {
            if (isEnding())
                return;
            std::exchange(task, nullptr)();
        }
        batch.clear();
    }
}

bool ThreadSerialQueue::waitForBatch(std::vector<Task>& batch) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return isEnding_ || !tasks_.empty(); });
    batch.swap(tasks_);
    return !isEnding_;
}

bool ThreadSerialQueue::isEnding() {
    const std::lock_guard lock(mutex_);
    return isEnding_;
}

} // namespace vexil
