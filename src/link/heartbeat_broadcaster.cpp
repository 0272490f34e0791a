// SPDX-License-Identifier: Apache-2.0
#include "link/heartbeat_broadcaster.h"

#include "link/clipboard_link_server.h"

#include <string>
#include <utility>

namespace vexil {

HeartbeatBroadcaster::HeartbeatBroadcaster(MainQueue& mainQueue, DistributedNotifications& notifications)
    : mainQueue_(mainQueue), notifications_(notifications) {}

void HeartbeatBroadcaster::start(ClipboardLinkServer& server, UniqueFunction<bool()> isHotKeyActive) {
    server_ = &server;
    isHotKeyActive_ = std::move(isHotKeyActive);
    beat();
}

void HeartbeatBroadcaster::beat() {
    timer_ = mainQueue_.after(kInterval, lifetime_.guard([this] { beat(); }));
    const bool active = isHotKeyActive_();
    post(active);
    if (std::exchange(lastReportedHotKeyState_, active) != active)
        server_->sendShortcutState(active);
}

void HeartbeatBroadcaster::post(bool hotKeyActive) {
    DistributedNotifications::UserInfo info{{"hotkeyActive", hotKeyActive ? "1" : "0"}};
    if (const auto port = server_->port()) {
        info.emplace("port", std::to_string(*port));
        info.emplace("nonce", server_->nonce());
    }
    notifications_.post(kNotificationName, info);
}

} // namespace vexil
