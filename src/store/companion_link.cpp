// SPDX-License-Identifier: Apache-2.0
#include "store/companion_link.h"

#include "link/clipboard_link_method.h"
#include "link/clipboard_records.h"
#include "link/heartbeat_broadcaster.h"

#include <charconv>
#include <utility>

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
    return heartbeat;
}

CompanionLink::CompanionLink(MainQueue& mainQueue, LoopbackTcp& network, DistributedNotifications& notifications,
                             std::string build)
    : mainQueue_(mainQueue), network_(network), notifications_(notifications), build_(std::move(build)) {}

CompanionLink::~CompanionLink() = default;

void CompanionLink::start() {
    observation_ = notifications_.observe(HeartbeatBroadcaster::kNotificationName,
                                          lifetime_.guard([this](const DistributedNotifications::UserInfo& userInfo) {
                                              if (connection_)
                                                  return;
                                              if (const auto heartbeat = CompanionHeartbeat::parse(userInfo))
                                                  connect(*heartbeat);
                                          }));
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
    connection_->sendRequest(
        ClipboardLinkMethod::hello, ClipboardHello{heartbeat.nonce, "vexil-store", build_}, std::nullopt,
        lifetime_.guard([this, port = heartbeat.port](const Result<Message, ClipboardLinkError>& answer) {
            helloAnswered(port, answer);
        }));
}

void CompanionLink::helloAnswered(std::uint16_t port, const Result<Message, ClipboardLinkError>& answer) {
    if (!answer) {
        if (onRefuse)
            onRefuse(answer.error());
        connection_->close();
        return;
    }
    isConnected_ = true;
    if (onConnect)
        onConnect(port);
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

void CompanionLink::sendEvent(ClipboardLinkMethod method) {
    if (isConnected_)
        connection_->sendEvent(method, std::monostate());
}

} // namespace vexil
