// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/worker_thread.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cassert>
#include <csignal>
#include <utility>

namespace vexil {

namespace {
constexpr int kUtilityNiceness = 10;
constexpr std::size_t kMaxNameLength = 15;
} // namespace

std::thread startWorker(const std::string& name, WorkerPriority priority, Task body) noexcept {
    assert(name.size() <= kMaxNameLength);
    // A thread inherits the mask of its maker: so none is ever delivered between the start and a mask of its own.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread([name, priority, body = std::move(body)]() mutable {
        pthread_setname_np(pthread_self(), name.c_str());
        // On Linux a niceness belongs to the thread. A refusal leaves the normal priority, which is as correct.
        if (priority == WorkerPriority::utility)
            (void)setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kUtilityNiceness);
        body();
    });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

} // namespace vexil
