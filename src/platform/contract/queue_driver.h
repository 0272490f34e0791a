// SPDX-License-Identifier: Apache-2.0
// How a contract suite drives a main queue without knowing which.
#pragma once

#include "platform/main_queue.h"

#include <functional>
#include <memory>

namespace vexil {

class QueueDriver {
public:
    virtual ~QueueDriver() = default;

    [[nodiscard]] virtual MainQueue& queue() = 0;
    // Runs the queue until the condition holds; false where it does not within 20 s of the queue's own time.
    [[nodiscard]] virtual bool runUntil(const std::function<bool()>& condition) = 0;
    // Destroys the queue, with what waits in it.
    virtual void destroyQueue() = 0;
};

using QueueDriverFactory = std::unique_ptr<QueueDriver> (*)();

[[nodiscard]] std::unique_ptr<QueueDriver> makeMemoryQueueDriver();
// On a context of its own, which is the thread's default while the driver lives.
[[nodiscard]] std::unique_ptr<QueueDriver> makeGlibQueueDriver();

} // namespace vexil
