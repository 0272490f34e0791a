// SPDX-License-Identifier: Apache-2.0
// A private connection to a message bus that comes back when its bus does.
#pragma once

#include "base/lifetime.h"
#include "base/unique_function.h"
#include "platform/linux/glib_main_queue.h"
#include "platform/linux/glib_ptr.h"

#include <optional>
#include <string>
#include <thread>

namespace vexil {

// Where the bus of this session is, or would be: none where the session names no place. Nothing is started to find out.
[[nodiscard]] std::optional<std::string> sessionBusAddress();

// Connecting never blocks the main queue. A bus that is absent, dead or mute is tried again with a growing delay, and
// on retry(). Main queue only.
class DBusConnection {
public:
    static constexpr Duration kFirstDelay = std::chrono::milliseconds(250);
    static constexpr Duration kLongestDelay = std::chrono::seconds(30);
    // A bus that has not answered by then is taken for mute.
    static constexpr Duration kPatience = std::chrono::seconds(10);

    // `onChange` gets every new connection, and none when it is lost. Without an address nothing is ever tried.
    DBusConnection(GlibMainQueue& queue, std::optional<std::string> address,
                   UniqueFunction<void(GDBusConnection*)> onChange);
    ~DBusConnection();
    DBusConnection(const DBusConnection&) = delete;
    DBusConnection& operator=(const DBusConnection&) = delete;

    // The first attempt, or one ahead of its time; nothing where there is a connection or an attempt is running.
    void retry();

    [[nodiscard]] GDBusConnection* current() const { return current_.get(); }
    [[nodiscard]] bool isConnecting() const { return attempt_.has_value(); }

private:
    struct Attempt {
        GlibPtr<GDBusConnection> connection;
        GlibPtr<GCancellable> cancellable;
        Timer patience;
        std::thread thread;
    };

    static void closed(GDBusConnection*, gboolean, GError*, gpointer self);
    void finishAttempt(bool isConnected);
    void lose();
    void retryLater();

    GlibMainQueue& queue_;
    const std::optional<std::string> address_;
    UniqueFunction<void(GDBusConnection*)> onChange_;
    GlibPtr<GDBusConnection> current_;
    std::optional<Attempt> attempt_;
    Timer retry_;
    Duration delay_ = kFirstDelay;
    Lifetime lifetime_;
};

} // namespace vexil
