// SPDX-License-Identifier: Apache-2.0
// The thread on which the clipboard lives.
#pragma once

#include "base/unique_function.h"
#include "platform/linux/x11_clipboard.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace vexil {

// Connects, and again every kRetryInterval where that failed or the connection broke. Sleeps without a time limit while
// it is connected and nothing is under way.
class X11ClipboardThread {
public:
    // Gets the clipboard, or null while there is no connection.
    using Command = UniqueFunction<void(X11Clipboard*)>;
    // Called on the thread.
    struct Events {
        UniqueFunction<void(std::int64_t changeCount)> onForeignChange;
        UniqueFunction<void(bool isConnected)> onConnection; // what came of the first attempt, and each turn after it
    };

    static constexpr Duration kRetryInterval = std::chrono::seconds(2);
    static constexpr const char* kThreadName = "clipboard";

    X11ClipboardThread(std::string display, Events events);
    X11ClipboardThread(const X11ClipboardThread&) = delete;
    X11ClipboardThread& operator=(const X11ClipboardThread&) = delete;
    // Ends the connection and the thread, also where the server hangs; only a server on another machine holds this up,
    // where it hangs while a connection to it is being made.
    ~X11ClipboardThread();

    // From any thread. While there is no connection, commands run at once, on the caller's.
    void post(Command command);

private:
    void run();
    void connect();
    void onSocket(int socket);
    void closeConnecting();
    void disconnect();
    void report(bool isConnected);
    void runCommands();
    void wait();
    void wake() const;

    const std::string display_;
    Events events_;
    int wakeDescriptor_;
    std::unique_ptr<X11Clipboard> clipboard_;
    std::int64_t changeCount_ = 0; // as of the last connection
    std::optional<TimePoint> retryAt_;
    std::optional<bool> reported_; // what onConnection was last told

    std::atomic<bool> isStopping_ = false;
    std::mutex mutex_;    // guards what follows
    int connecting_ = -1; // our copy of the socket of a connection that is being made
    int connected_ = -1;  // the connection's socket
    std::vector<Command> commands_;

    Lifetime lifetime_;
    std::thread thread_; // last, so that it starts when the rest is there
};

} // namespace vexil
