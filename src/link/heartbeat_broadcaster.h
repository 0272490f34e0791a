// SPDX-License-Identifier: Apache-2.0
// Tells the session that the companion is there, and where.
#pragma once

#include "base/lifetime.h"
#include "base/unique_function.h"
#include "platform/distributed_notifications.h"
#include "platform/main_queue.h"

#include <optional>

namespace vexil {

class ClipboardLinkServer;

// Main queue only. Its notice carries only strings: "hotkeyActive" ("1" or "0") and, once the server listens, "port"
// and the "nonce" that the next hello must carry. The nonce reaches a main application by no other way.
class HeartbeatBroadcaster {
public:
    static constexpr const char* kNotificationName = "com.orvane.vexil.shortcut.heartbeat";
    static constexpr Duration kInterval = std::chrono::seconds(3);

    // Both outlive the broadcaster.
    HeartbeatBroadcaster(MainQueue& mainQueue, DistributedNotifications& notifications);

    // Posts at once, then at every interval. The server outlives the last turn of the main queue. A change of the hot
    // key's state also goes out on the link; one that happens while nobody is linked is not sent later.
    void start(ClipboardLinkServer& server, UniqueFunction<bool()> isHotKeyActive);

private:
    void beat();
    void post(bool hotKeyActive);

    MainQueue& mainQueue_;
    DistributedNotifications& notifications_;
    ClipboardLinkServer* server_ = nullptr;
    UniqueFunction<bool()> isHotKeyActive_;
    std::optional<bool> lastReportedHotKeyState_;
    Timer timer_;
    Lifetime lifetime_;
};

} // namespace vexil
