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
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace vexil {

// What a companion says of itself in its heartbeat.
struct CompanionHeartbeat {
    static constexpr std::size_t kMaxNonceLength = 1024;

    std::uint16_t port = 0;
    std::string nonce;                                 // not empty
    std::optional<bool> isHotKeyActive = std::nullopt; // none where it does not say

    // None where the companion does not listen yet, and where the notice makes no sense.
    static std::optional<CompanionHeartbeat> parse(const DistributedNotifications::UserInfo& userInfo);

    bool operator==(const CompanionHeartbeat&) const = default;
};

// Why a connection to what looked like a companion never became a link.
struct HelloFailure {
    enum class Reason {
        closed, // by the companion, as it does while another main application is linked
        noAnswer,
        notUnderstood, // what answered is no companion
        refused,
    };

    Reason reason = Reason::closed;
    ClipboardLinkError error = {}; // what the companion answered, where it refused

    bool operator==(const HelloFailure&) const = default;
};

// Finds a companion by its heartbeat and keeps a link to it. A link that could not be made, was refused (a nonce is
// good for one hello) or was lost is made anew at the next heartbeat, so the companion's own rhythm is the pace of all
// attempts. While there is a link, other companions must wait, unless the linked one has fallen silent: a companion
// that hangs keeps its end of the stream open for ever. Main queue only.
class CompanionLink {
public:
    using Message = ClipboardLinkConnection::Message;

    // So many heartbeats of another companion, and none of the linked one in between, make us follow the other.
    static constexpr int kHeartbeatsToSucceed = 3;

    // Everything that is given outlives the link. `build` is what the companion is told of our version.
    CompanionLink(MainQueue& mainQueue, LoopbackTcp& network, DistributedNotifications& notifications,
                  std::string build);
    ~CompanionLink();
    CompanionLink(const CompanionLink&) = delete;
    CompanionLink& operator=(const CompanionLink&) = delete;

    UniqueFunction<void(const CompanionHeartbeat&)> onConnect; // the companion has accepted the hello
    UniqueFunction<void()> onDisconnect;                       // after onConnect
    UniqueFunction<void(const HelloFailure&)> onHelloFailure;
    // Only while connected: what comes before the hello is accepted is dropped.
    UniqueFunction<void(Message)> onRequest;
    UniqueFunction<void(Message)> onEvent;

    void start();

    [[nodiscard]] bool isConnected() const { return isConnected_; }
    // Both do nothing while not connected.
    void respond(const Message& request, ClipboardLinkConnection::Reply reply, std::optional<Bytes> attachment);
    void sendEvent(ClipboardLinkMethod method, ClipboardLinkPayload payload = std::monostate());

private:
    void hear(const CompanionHeartbeat& heartbeat);
    [[nodiscard]] bool isSucceededBy(std::uint16_t port);
    void connect(const CompanionHeartbeat& heartbeat);
    void sayHello(const CompanionHeartbeat& heartbeat);
    void helloAnswered(const CompanionHeartbeat& heartbeat, const Result<Message, ClipboardLinkError>& answer);
    [[nodiscard]] std::optional<HelloFailure> failureOf(const Result<Message, ClipboardLinkError>& answer) const;
    void closed();

    MainQueue& mainQueue_;
    LoopbackTcp& network_;
    DistributedNotifications& notifications_;
    std::string build_;
    std::unique_ptr<NotificationObservation> observation_;
    std::unique_ptr<ClipboardLinkConnection> connection_;
    bool isConnected_ = false;
    std::uint16_t linkedPort_ = 0;                    // while connected
    std::map<std::uint16_t, int> heartbeatsOfOthers_; // by port, since the last one from linkedPort_
    Lifetime lifetime_;
};

} // namespace vexil
