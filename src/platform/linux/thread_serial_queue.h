// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/worker_thread.h"
#include "platform/serial_queue.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vexil {

// A thread of its own, started by the first post.
class ThreadSerialQueue final : public SerialQueue {
public:
    explicit ThreadSerialQueue(std::string name, WorkerPriority priority = WorkerPriority::normal);
    // Not on the queue's own thread.
    ~ThreadSerialQueue() override;
    ThreadSerialQueue(const ThreadSerialQueue&) = delete;
    ThreadSerialQueue& operator=(const ThreadSerialQueue&) = delete;

    void post(Task task) override;

private:
    void work();
    // False once the queue is ending.
    [[nodiscard]] bool waitForBatch(std::vector<Task>& batch);
    [[nodiscard]] bool isEnding();

    const std::string name_;
    const WorkerPriority priority_;
    std::mutex mutex_; // guards everything below
    std::condition_variable changed_;
    std::vector<Task> tasks_;
    std::thread thread_;
    bool isEnding_ = false;
};

} // namespace vexil
