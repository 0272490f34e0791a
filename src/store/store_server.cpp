// SPDX-License-Identifier: Apache-2.0
#include "store/store_server.h"

#include "link/clipboard_link_method.h"

#include <utility>

namespace vexil {

StoreServer::StoreServer(MainQueue& mainQueue, const WallClock& clock, LoopbackTcp& network,
                         DistributedNotifications& notifications, StoreDatabase& database, std::string build)
    : service_(mainQueue, clock, database), link_(mainQueue, network, notifications, std::move(build)) {}

void StoreServer::start() {
    service_.onChange = lifetime_.guard([this] { link_.sendEvent(ClipboardLinkMethod::storeChanged); });
    service_.onNotice = lifetime_.guard([this](const std::string& sentence) { notice(sentence); });
    service_.onFailure = lifetime_.guard([this](const std::string& sentence) {
        if (onFailure)
            onFailure(sentence);
    });
    link_.onRequest = lifetime_.guard([this](const CompanionLink::Message& request) {
        StoreService::Answer answer = service_.answer(request);
        link_.respond(request, std::move(answer.reply), std::move(answer.attachment));
    });
    link_.onEvent = lifetime_.guard([this](const CompanionLink::Message& event) { service_.handleEvent(event); });
    link_.onConnect = lifetime_.guard(
        [this](std::uint16_t port) { notice("linked to the companion on port " + std::to_string(port)); });
    link_.onDisconnect = lifetime_.guard([this] { notice("the link to the companion is gone"); });
    link_.onRefuse = lifetime_.guard([this](const ClipboardLinkError& error) {
        notice("the companion refused the hello: " + error.code + ", " + error.message);
    });
    link_.start();
}

void StoreServer::notice(const std::string& sentence) {
    if (onNotice)
        onNotice(sentence);
}

} // namespace vexil
