// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/lifetime.h"
#include "base/unique_function.h"
#include "link/clipboard_link_connection.h"
#include "platform/distributed_notifications.h"
#include "platform/loopback_tcp.h"
#include "platform/main_queue.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace vexil {

// What a companion says of itself in its heartbeat.
struct CompanionHeartbeat {
    static constexpr std::size_t kMaxNonceLength = 1024;

    std::uint16_t port = 0;
    std::string nonce; // not empty

    // None where the companion does not listen yet, and where the notice makes no sense.
    static std::optional<CompanionHeartbeat> parse(const DistributedNotifications::UserInfo& userInfo);

    bool operator==(const CompanionHeartbeat&) const = default;
};

// Finds a companion by its heartbeat and keeps a link to it. A link that could not be made, was refused (a nonce is
// good for one hello) or was lost is made anew at the next heartbeat, so the companion's own rhythm is the pace of all
// attempts. While there is a link, other companions are not listened to. Main queue only.
class CompanionLink {
public:
    using Message = ClipboardLinkConnection::Message;

    // Everything that is given outlives the link. `build` is what the companion is told of our version.
    CompanionLink(MainQueue& mainQueue, LoopbackTcp& network, DistributedNotifications& notifications,
                  std::string build);
    ~CompanionLink();
    CompanionLink(const CompanionLink&) = delete;
    CompanionLink& operator=(const CompanionLink&) = delete;

    UniqueFunction<void(std::uint16_t port)> onConnect; // the companion has accepted the hello
    UniqueFunction<void()> onDisconnect;                // after onConnect
    UniqueFunction<void(const ClipboardLinkError&)> onRefuse;
    // Only while connected: what comes before the hello is accepted is dropped.
    UniqueFunction<void(Message)> onRequest;
    UniqueFunction<void(Message)> onEvent;

    void start();

    [[nodiscard]] bool isConnected() const { return isConnected_; }
    // Both do nothing while not connected.
    void respond(const Message& request, ClipboardLinkConnection::Reply reply, std::optional<Bytes> attachment);
    void sendEvent(ClipboardLinkMethod method);

private:
    void connect(const CompanionHeartbeat& heartbeat);
    void sayHello(const CompanionHeartbeat& heartbeat);
    void helloAnswered(std::uint16_t port, const Result<Message, ClipboardLinkError>& answer);
    void closed();

    MainQueue& mainQueue_;
    LoopbackTcp& network_;
    DistributedNotifications& notifications_;
    std::string build_;
    std::unique_ptr<NotificationObservation> observation_;
    std::unique_ptr<ClipboardLinkConnection> connection_;
    bool isConnected_ = false;
    Lifetime lifetime_;
};

} // namespace vexil
