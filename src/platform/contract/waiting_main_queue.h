// SPDX-License-Identifier: Apache-2.0
// A main queue on real time, run by the test itself.
#pragma once

#include "platform/main_queue.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace vexil {

// For suites of ports with threads of their own: waits for what they post.
class WaitingMainQueue final : public MainQueue {
public:
    static constexpr Duration kPatience = std::chrono::seconds(60);

    [[nodiscard]] TimePoint now() const override { return now_; }

    void post(Task task) override {
        const std::lock_guard lock(mutex_);
        posted_.push_back(std::move(task));
        hasPosted_.notify_one();
    }

    [[nodiscard]] Timer after(Duration delay, Task task) override {
        const auto key = std::pair(now_ + delay, nextTimer_++);
        timers_.emplace(key, std::move(task));
        return Timer([this, key] { timers_.erase(key); });
    }

    // Runs tasks until `isSo` holds, which may also come about on another thread; false where that takes longer than
    // `patience`.
    bool runUntil(const std::function<bool()>& isSo, Duration patience = kPatience) {
        const TimePoint end = Clock::now() + patience;
        while (!isSo()) {
            if (Clock::now() >= end)
                return false;
            if (std::optional<Task> task = next(std::min(end, Clock::now() + kGlance))) {
                now_ = Clock::now();
                (*task)();
            }
        }
        return true;
    }

    void runFor(Duration duration) {
        runUntil([] { return false; }, duration);
    }

private:
    static constexpr Duration kGlance = std::chrono::milliseconds(5);

    std::optional<Task> next(TimePoint end) {
        if (!timers_.empty() && timers_.begin()->first.first <= Clock::now())
            return std::move(timers_.extract(timers_.begin()).mapped());
        std::unique_lock lock(mutex_);
        if (!hasPosted_.wait_until(lock, end, [this] { return !posted_.empty(); }))
            return std::nullopt;
        Task task = std::move(posted_.front());
        posted_.pop_front();
        return task;
    }

    TimePoint now_ = Clock::now();
    std::mutex mutex_; // guards posted_
    std::condition_variable hasPosted_;
    std::deque<Task> posted_;
    std::map<std::pair<TimePoint, int>, Task> timers_;
    int nextTimer_ = 0;
};

} // namespace vexil
