// SPDX-License-Identifier: Apache-2.0
#include "store/companion_link.h"

#include "link/clipboard_link_errors.h"
#include "link/clipboard_link_method.h"
#include "link/clipboard_records.h"
#include "link/heartbeat_broadcaster.h"

#include <charconv>
#include <utility>
#include <variant>

namespace vexil {

std::optional<CompanionHeartbeat> CompanionHeartbeat::parse(const DistributedNotifications::UserInfo& userInfo) {
    const auto port = userInfo.find("port");
    const auto nonce = userInfo.find("nonce");
    if (port == userInfo.end() || nonce == userInfo.end())
        return std::nullopt;
    CompanionHeartbeat heartbeat;
    const std::string& digits = port->second;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), heartbeat.port);
    if (error != std::errc() || end != digits.data() + digits.size() || heartbeat.port == 0)
        return std::nullopt;
    if (nonce->second.empty() || nonce->second.size() > kMaxNonceLength)
        return std::nullopt;
    heartbeat.nonce = nonce->second;
    if (const auto hotKey = userInfo.find("hotkeyActive"); hotKey != userInfo.end())
        heartbeat.isHotKeyActive = hotKey->second == "1";
    return heartbeat;
}

CompanionLink::CompanionLink(MainQueue& mainQueue, LoopbackTcp& network, DistributedNotifications& notifications,
                             std::string build)
    : mainQueue_(mainQueue), network_(network), notifications_(notifications), build_(std::move(build)) {}

CompanionLink::~CompanionLink() = default;

void CompanionLink::start() {
    observation_ = notifications_.observe(HeartbeatBroadcaster::kNotificationName,
                                          lifetime_.guard([this](const DistributedNotifications::UserInfo& userInfo) {
                                              if (const auto heartbeat = CompanionHeartbeat::parse(userInfo))
                                                  hear(*heartbeat);
                                          }));
}

void CompanionLink::hear(const CompanionHeartbeat& heartbeat) {
    if (isConnected_ && isSucceededBy(heartbeat.port))
        connection_->close();
    if (!connection_)
        connect(heartbeat);
}

// Counted for each port by itself: several companions together beat as often as one that took over.
bool CompanionLink::isSucceededBy(std::uint16_t port) {
    if (port == linkedPort_) {
        heartbeatsOfOthers_.clear();
        return false;
    }
    return ++heartbeatsOfOthers_[port] >= kHeartbeatsToSucceed;
}

void CompanionLink::connect(const CompanionHeartbeat& heartbeat) {
    auto stream = network_.connect(heartbeat.port);
    if (!stream)
        return;
    connection_ = std::make_unique<ClipboardLinkConnection>(mainQueue_, network_, std::move(stream));
    connection_->onReady = lifetime_.guard([this, heartbeat] { sayHello(heartbeat); });
    connection_->onClose = lifetime_.guard([this] { closed(); });
    connection_->onRequest = lifetime_.guard([this](Message request) {
        if (isConnected_ && onRequest)
            onRequest(std::move(request));
    });
    connection_->onEvent = lifetime_.guard([this](Message event) {
        if (isConnected_ && onEvent)
            onEvent(std::move(event));
    });
    connection_->start();
}

void CompanionLink::sayHello(const CompanionHeartbeat& heartbeat) {
    connection_->sendRequest(ClipboardLinkMethod::hello, ClipboardHello{heartbeat.nonce, "vexil-store", build_},
                             std::nullopt,
                             lifetime_.guard([this, heartbeat](const Result<Message, ClipboardLinkError>& answer) {
                                 helloAnswered(heartbeat, answer);
                             }));
}

void CompanionLink::helloAnswered(const CompanionHeartbeat& heartbeat,
                                  const Result<Message, ClipboardLinkError>& answer) {
    if (const auto failure = failureOf(answer)) {
        if (onHelloFailure)
            onHelloFailure(*failure);
        connection_->close();
        return;
    }
    isConnected_ = true;
    linkedPort_ = heartbeat.port;
    heartbeatsOfOthers_.clear();
    if (onConnect)
        onConnect(heartbeat);
}

std::optional<HelloFailure> CompanionLink::failureOf(const Result<Message, ClipboardLinkError>& answer) const {
    using Reason = HelloFailure::Reason;
    if (connection_->isClosed())
        return HelloFailure{Reason::closed};
    if (!answer && answer.error() == ClipboardLinkError(link_error::kTimeout))
        return HelloFailure{Reason::noAnswer};
    if (!answer)
        return HelloFailure{Reason::refused, answer.error()};
    if (!std::holds_alternative<ClipboardHelloAck>(answer->payload))
        return HelloFailure{Reason::notUnderstood};
    return std::nullopt;
}

void CompanionLink::closed() {
    connection_.reset();
    if (std::exchange(isConnected_, false) && onDisconnect)
        onDisconnect();
}

void CompanionLink::respond(const Message& request, ClipboardLinkConnection::Reply reply,
                            std::optional<Bytes> attachment) {
    if (isConnected_)
        connection_->respond(request, std::move(reply), std::move(attachment));
}

void CompanionLink::sendEvent(ClipboardLinkMethod method, ClipboardLinkPayload payload) {
    if (isConnected_)
        connection_->sendEvent(method, std::move(payload));
}

} // namespace vexil
