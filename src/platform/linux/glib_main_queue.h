// SPDX-License-Identifier: Apache-2.0
// The main queue of a program: a GMainContext, and the loop that runs it.
#pragma once

#include "platform/main_queue.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

struct _GMainContext;
struct _GMainLoop;
struct _GSource;

namespace vexil {

// A turn is one task, posted or timed; outside of one (in the callback of another source of the context) now() moves
// on. Tasks posted during a pass over the queue wait for the next one, so that other sources get their share. Timers
// fire within the millisecond after they are due. A waiting queue costs nothing: it sleeps until the earliest timer.
class GlibMainQueue final : public MainQueue {
public:
    // The default context where none is given. Made and destroyed on the thread that runs the context, outside of its
    // own tasks.
    explicit GlibMainQueue(_GMainContext* context = nullptr);
    ~GlibMainQueue() override;
    GlibMainQueue(const GlibMainQueue&) = delete;
    GlibMainQueue& operator=(const GlibMainQueue&) = delete;

    [[nodiscard]] TimePoint now() const override;
    void post(Task task) override;
    [[nodiscard]] Timer after(Duration delay, Task task) override;

    // Runs the context until quit(). Not from within a task: the queue would stand still.
    void run();
    // The same, and SIGINT and SIGTERM quit. For the default context.
    void runUntilTerminated();
    // From any thread; ends run() once the tasks posted before have run, a run() yet to come included.
    void quit();

    [[nodiscard]] _GMainContext* context() const { return context_; }

private:
    using TimerKey = std::pair<TimePoint, std::uint64_t>;
    struct Source;

    // How long the context may sleep, in milliseconds; -1 for as long as it likes.
    [[nodiscard]] int idleMilliseconds();
    void runPass();
    void runPosted();
    void runDueTimers();
    void runTurn(Task task);

    _GMainContext* context_;
    _GMainLoop* loop_;
    _GSource* source_;
    std::mutex mutex_; // guards posted_
    std::vector<Task> posted_;
    std::vector<Task> batch_; // being run; kept for its capacity
    std::map<TimerKey, Task> timers_;
    std::uint64_t nextTimer_ = 0;
    TimePoint turnStart_;
    bool isInTurn_ = false;
};

} // namespace vexil
