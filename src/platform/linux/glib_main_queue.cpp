// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/glib_main_queue.h"

#include <glib-unix.h>
#include <glib.h>

#include <algorithm>
#include <cassert>
#include <csignal>
#include <limits>

namespace vexil {

struct GlibMainQueue::Source {
    GSource base;
    GlibMainQueue* queue;

    static GlibMainQueue& of(GSource* source) { return *reinterpret_cast<Source*>(source)->queue; }

    static gboolean prepare(GSource* source, gint* timeout) {
        *timeout = of(source).idleMilliseconds();
        return *timeout == 0 ? TRUE : FALSE;
    }
    static gboolean check(GSource* source) { return of(source).idleMilliseconds() == 0 ? TRUE : FALSE; }
    static gboolean dispatch(GSource* source, GSourceFunc, gpointer) {
        of(source).runPass();
        return G_SOURCE_CONTINUE;
    }
};

namespace {
// Of a batch that was larger than this, the memory is given back.
constexpr std::size_t kKeptCapacity = 256;

gboolean quitOnSignal(gpointer queue) {
    static_cast<GlibMainQueue*>(queue)->quit();
    return G_SOURCE_CONTINUE;
}
} // namespace

GlibMainQueue::GlibMainQueue(GMainContext* context)
    : context_(g_main_context_ref(context != nullptr ? context : g_main_context_default())),
      loop_(g_main_loop_new(context_, FALSE)) {
    static GSourceFuncs functions{Source::prepare, Source::check, Source::dispatch, nullptr, nullptr, nullptr};
    source_ = g_source_new(&functions, sizeof(Source));
    reinterpret_cast<Source*>(source_)->queue = this;
    g_source_set_static_name(source_, "vexil main queue");
    g_source_attach(source_, context_);
}

GlibMainQueue::~GlibMainQueue() {
    assert(!isInTurn_);
    g_source_destroy(source_);
    g_source_unref(source_);
    // A task may own a timer, or post as it is destroyed: it must find the queue whole.
    while (!posted_.empty() || !timers_.empty()) {
        std::vector<Task> posted;
        std::map<TimerKey, Task> timers;
        {
            const std::lock_guard lock(mutex_);
            posted.swap(posted_);
        }
        timers.swap(timers_);
    }
    g_main_loop_unref(loop_);
    g_main_context_unref(context_);
}

TimePoint GlibMainQueue::now() const {
    return isInTurn_ ? turnStart_ : Clock::now();
}

void GlibMainQueue::post(Task task) {
    bool wasEmpty = false;
    {
        const std::lock_guard lock(mutex_);
        wasEmpty = posted_.empty();
        posted_.push_back(std::move(task));
    }
    // Where the queue was not empty the context is awake already, or has been told; and the thread that owns the
    // context is not asleep in it.
    if (wasEmpty && !g_main_context_is_owner(context_))
        g_main_context_wakeup(context_);
}

Timer GlibMainQueue::after(Duration delay, Task task) {
    const TimerKey key{now() + std::max(delay, Duration::zero()), nextTimer_++};
    timers_.emplace(key, std::move(task));
    return Timer([this, key] { timers_.erase(key); });
}

void GlibMainQueue::run() {
    assert(!isInTurn_);
    g_main_loop_run(loop_);
}

void GlibMainQueue::runUntilTerminated() {
    const guint interrupted = g_unix_signal_add(SIGINT, quitOnSignal, this);
    const guint terminated = g_unix_signal_add(SIGTERM, quitOnSignal, this);
    run();
    g_source_remove(terminated);
    g_source_remove(interrupted);
}

void GlibMainQueue::quit() {
    post([loop = loop_] { g_main_loop_quit(loop); });
}

int GlibMainQueue::idleMilliseconds() {
    {
        const std::lock_guard lock(mutex_);
        if (!posted_.empty())
            return 0;
    }
    if (timers_.empty())
        return -1;
    const Duration left = timers_.begin()->first.first - Clock::now();
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    return static_cast<int>(std::clamp<std::int64_t>(milliseconds, 0, std::numeric_limits<int>::max()));
}

void GlibMainQueue::runPass() {
    runPosted();
    runDueTimers();
}

void GlibMainQueue::runPosted() {
    {
        const std::lock_guard lock(mutex_);
        batch_.swap(posted_);
    }
    for (Task& task : batch_)
        runTurn(std::move(task));
    batch_.clear();
    if (batch_.capacity() > kKeptCapacity)
        batch_.shrink_to_fit();
}

void GlibMainQueue::runDueTimers() {
    const TimePoint due = Clock::now();
    const std::uint64_t firstNew = nextTimer_;
    while (!timers_.empty()) {
        const auto first = timers_.begin();
        if (first->first.first > due || first->first.second >= firstNew)
            return;
        runTurn(std::move(timers_.extract(first).mapped()));
    }
}

void GlibMainQueue::runTurn(Task task) {
    turnStart_ = Clock::now();
    isInTurn_ = true;
    task();
    task = nullptr;
    isInTurn_ = false;
}

} // namespace vexil
