// SPDX-License-Identifier: Apache-2.0
// Work off the main queue, one task at a time.
#pragma once

#include "base/unique_function.h"

namespace vexil {

class SerialQueue {
public:
    virtual ~SerialQueue() = default; // waits for the running task; tasks that have not begun are destroyed unrun

    // Runs the task on the queue's own thread, after all posted before it. From any thread, the queue's own included.
    virtual void post(Task task) = 0;
};

} // namespace vexil
