// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/unique_function.h"

#include <string>
#include <thread>

namespace vexil {

enum class WorkerPriority { normal, utility };

// A thread that takes no signals, which are the main thread's, and whose name (15 characters at most) shows in the
// system's tools. Utility work yields the processor to everything that a person waits for. Ends the program where the
// system has no thread to give: a queue that never runs would hang it instead.
[[nodiscard]] std::thread startWorker(const std::string& name, WorkerPriority priority, Task body) noexcept;

} // namespace vexil
