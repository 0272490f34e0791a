// SPDX-License-Identifier: Apache-2.0
// The one thread that owns all state, and its timers.
#pragma once

#include "base/unique_function.h"

#include <chrono>
#include <utility>

namespace vexil {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;
using Duration = Clock::duration;

// A scheduled task that its holder owns: dropping the timer, or giving it a new value, cancels the task. A timer that
// has fired is spent. Held and dropped on the main queue; the queue outlives it.
class [[nodiscard]] Timer {
public:
    Timer() = default;
    explicit Timer(Task cancel) : cancel_(std::move(cancel)) {}
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
    Timer(Timer&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
    Timer& operator=(Timer&& other) noexcept {
        if (this != &other) {
            cancel();
            cancel_ = std::exchange(other.cancel_, nullptr);
        }
        return *this;
    }
    ~Timer() { cancel(); }

    void cancel() {
        if (Task task = std::exchange(cancel_, nullptr))
            task();
    }

private:
    Task cancel_;
};

// Every port calls back on this queue, from the top of a turn: never from within the call that asked.
class MainQueue {
public:
    virtual ~MainQueue() = default;

    // Monotonic; stands still during a turn.
    [[nodiscard]] virtual TimePoint now() const = 0;

    // Runs the task in a later turn, in the order of posting. From any thread; tasks that never ran are destroyed with
    // the queue.
    virtual void post(Task task) = 0;

    // Runs the task once, at the earliest `delay` after now(). Main queue only.
    [[nodiscard]] virtual Timer after(Duration delay, Task task) = 0;
};

} // namespace vexil
