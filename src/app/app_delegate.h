// SPDX-License-Identifier: Apache-2.0
// Owns every long-lived object of the companion and starts them in order.
#pragma once

#include "capture/clipboard_watcher.h"
#include "link/clipboard_link_server.h"
#include "link/heartbeat_broadcaster.h"
#include "platform/distributed_notifications.h"
#include "platform/image_codec.h"
#include "platform/loopback_tcp.h"
#include "platform/main_queue.h"
#include "platform/pasteboard.h"
#include "platform/secure_random.h"
#include "platform/serial_queue.h"

#include <memory>

namespace vexil {

// The services of the operating system that the companion needs. They outlive the delegate.
struct AppServices {
    MainQueue& mainQueue;
    LoopbackTcp& network;
    SecureRandom& random;
    DistributedNotifications& notifications;
    Pasteboard& pasteboard;
    SerialQueue& clipboardProcessing;
    ImageCodec& imageCodec;
};

// Main queue only. Construction starts nothing. Nothing is torn down by hand at the end: the process exits.
class AppDelegate {
public:
    explicit AppDelegate(const AppServices& services);

    // Once, when the main queue is about to run: nothing in it blocks or fails as a whole; each part deals with its
    // own failures.
    void applicationDidFinishLaunching();

    [[nodiscard]] const ClipboardLinkServer& linkServer() const { return linkServer_; }

    // Made on first use.
    ClipboardWatcher& clipboardWatcher();

private:
    AppServices services_;
    HeartbeatBroadcaster heartbeat_;
    ClipboardLinkServer linkServer_;
    std::unique_ptr<ClipboardWatcher> clipboardWatcher_;
};

} // namespace vexil
