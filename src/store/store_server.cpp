// SPDX-License-Identifier: Apache-2.0
#include "store/store_server.h"

#include "link/clipboard_link_method.h"

#include <utility>

namespace vexil {

namespace {

std::string sentenceAbout(const HelloFailure& failure) {
    switch (failure.reason) {
    case HelloFailure::Reason::closed:
        return "the companion closed the connection; another main application may be linked";
    case HelloFailure::Reason::noAnswer:
        return "the companion did not answer the hello";
    case HelloFailure::Reason::notUnderstood:
        return "the hello was answered, but not as a companion does";
    case HelloFailure::Reason::refused:
        break;
    }
    return "the companion refused the hello: " + failure.error.code + ", " + failure.error.message;
}

} // namespace

StoreServer::StoreServer(MainQueue& mainQueue, const WallClock& clock, LoopbackTcp& network,
                         DistributedNotifications& notifications, StoreDatabase& database, std::string build,
                         std::size_t panelRows)
    : service_(mainQueue, clock, database, panelRows),
      watch_(mainQueue, database),
      link_(mainQueue, network, notifications, std::move(build)) {}

void StoreServer::start() {
    service_.onChange = lifetime_.guard([this] { link_.sendEvent(ClipboardLinkMethod::storeChanged); });
    service_.onNotice = lifetime_.guard([this](const std::string& sentence) { notice(sentence); });
    service_.onFailure = lifetime_.guard([this](const std::string& sentence) { fail(sentence); });
    watch_.onChange = lifetime_.guard([this] { service_.databaseChanged(); });
    watch_.onFailure = lifetime_.guard([this](const std::string& sentence) { fail(sentence); });
    link_.onRequest = lifetime_.guard([this](const CompanionLink::Message& request) {
        StoreService::Answer answer = service_.answer(request);
        link_.respond(request, std::move(answer.reply), std::move(answer.attachment));
    });
    link_.onEvent = lifetime_.guard([this](const CompanionLink::Message& event) { service_.handleEvent(event); });
    link_.onConnect = lifetime_.guard([this](std::uint16_t port) {
        lastHelloFailure_.clear();
        notice("linked to the companion on port " + std::to_string(port));
    });
    link_.onDisconnect = lifetime_.guard([this] { notice("the link to the companion is gone"); });
    link_.onHelloFailure = lifetime_.guard([this](const HelloFailure& failure) { helloFailed(failure); });
    watch_.start();
    link_.start();
}

// The attempts go on at every heartbeat, and mostly fail as the one before did.
void StoreServer::helloFailed(const HelloFailure& failure) {
    std::string sentence = sentenceAbout(failure);
    if (sentence == lastHelloFailure_)
        return;
    notice(sentence);
    lastHelloFailure_ = std::move(sentence);
}

void StoreServer::fail(const std::string& sentence) {
    if (onFailure)
        onFailure(sentence);
}

void StoreServer::notice(const std::string& sentence) {
    if (onNotice)
        onNotice(sentence);
}

} // namespace vexil
