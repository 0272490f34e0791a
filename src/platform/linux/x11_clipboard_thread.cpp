// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/x11_clipboard_thread.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <csignal>
#include <iterator>
#include <limits>
#include <utility>

namespace vexil {

namespace {

// The time until `moment` in the way of poll(), rounded up.
int pollTimeout(std::optional<TimePoint> moment) {
    if (!moment)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*moment - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
}

// Signals belong to the main thread. With SIGPIPE blocked, a broken connection is an error like any other.
void blockAllSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

} // namespace

X11ClipboardThread::X11ClipboardThread(std::string display, Events events)
    : display_(std::move(display)),
      events_(std::move(events)),
      wakeDescriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      thread_([this] { run(); }) {
    assert(wakeDescriptor_ >= 0);
}

X11ClipboardThread::~X11ClipboardThread() {
    isStopping_ = true;
    {
        const std::lock_guard lock(mutex_);
        for (const int socket : {connecting_, connected_}) {
            if (socket >= 0)
                shutdown(socket, SHUT_RDWR);
        }
    }
    wake();
    thread_.join();
    close(wakeDescriptor_);
}

void X11ClipboardThread::post(Command command) {
    {
        const std::lock_guard lock(mutex_);
        if (connected_ >= 0) {
            commands_.push_back(std::move(command));
            command = nullptr;
        }
    }
    if (command)
        command(nullptr);
    else
        wake();
}

void X11ClipboardThread::run() {
    blockAllSignals();
    pthread_setname_np(pthread_self(), kThreadName);
    while (!isStopping_) {
        if (!clipboard_ && (!retryAt_ || Clock::now() >= *retryAt_))
            connect();
        runCommands();
        if (clipboard_ && !clipboard_->process())
            disconnect();
        wait();
    }
    disconnect();
}

void X11ClipboardThread::connect() {
    auto connection = X11Connection::open(display_, lifetime_.guard([this](int socket) { onSocket(socket); }));
    closeConnecting();
    if (!connection) {
        retryAt_ = Clock::now() + kRetryInterval;
        return report(false);
    }
    // What was there before the first attempt is no change; what appeared while nobody listened is one.
    const bool isChange = reported_ && connection->ownerAtOpening() != XCB_NONE;
    changeCount_ += isChange ? 1 : 0;
    clipboard_ = std::make_unique<X11Clipboard>(
        std::move(connection), changeCount_, lifetime_.guard([this](auto count) { events_.onForeignChange(count); }));
    {
        const std::lock_guard lock(mutex_);
        connected_ = clipboard_->descriptor();
    }
    if (isChange)
        events_.onForeignChange(changeCount_);
    report(true);
}

void X11ClipboardThread::onSocket(int socket) {
    const std::lock_guard lock(mutex_);
    connecting_ = fcntl(socket, F_DUPFD_CLOEXEC, 0);
    if (isStopping_) // which found no socket to shut down
        shutdown(socket, SHUT_RDWR);
}

void X11ClipboardThread::closeConnecting() {
    const std::lock_guard lock(mutex_);
    if (connecting_ >= 0)
        close(connecting_);
    connecting_ = -1;
}

void X11ClipboardThread::disconnect() {
    std::vector<Command> commands;
    {
        const std::lock_guard lock(mutex_);
        connected_ = -1;
        commands.swap(commands_);
    }
    for (Command& command : commands)
        command(nullptr);
    if (!clipboard_)
        return;
    changeCount_ = clipboard_->changeCount();
    clipboard_.reset();
    retryAt_ = Clock::now() + kRetryInterval;
    report(false);
}

void X11ClipboardThread::report(bool isConnected) {
    if (reported_ != isConnected)
        events_.onConnection(isConnected);
    reported_ = isConnected;
}

void X11ClipboardThread::runCommands() {
    std::vector<Command> commands;
    {
        const std::lock_guard lock(mutex_);
        commands.swap(commands_);
    }
    for (Command& command : commands)
        command(clipboard_.get());
}

void X11ClipboardThread::wait() {
    pollfd descriptors[] = {{wakeDescriptor_, POLLIN, 0}, {clipboard_ ? clipboard_->descriptor() : -1, POLLIN, 0}};
    const int ready =
        poll(descriptors, std::size(descriptors), pollTimeout(clipboard_ ? clipboard_->deadline() : retryAt_));
    if (ready <= 0 || descriptors[0].revents == 0)
        return;
    std::uint64_t count = 0;
    const ssize_t size = read(wakeDescriptor_, &count, sizeof count);
    assert(size == sizeof count);
    static_cast<void>(size);
}

void X11ClipboardThread::wake() const {
    const std::uint64_t one = 1;
    const ssize_t size = ::write(wakeDescriptor_, &one, sizeof one);
    assert(size == sizeof one);
    static_cast<void>(size);
}

} // namespace vexil
