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
      hosts_(mainQueue, clock, database),
      watch_(mainQueue, database),
      link_(mainQueue, network, notifications, std::move(build)) {}

void StoreServer::start() {
    service_.onChange = lifetime_.guard([this] { link_.sendEvent(ClipboardLinkMethod::storeChanged); });
    service_.onNotice = lifetime_.guard([this](const std::string& sentence) { notice(sentence); });
    service_.onFailure = lifetime_.guard([this](const std::string& sentence) { fail(sentence); });
    hosts_.onSend = lifetime_.guard([this](ClipboardLinkMethod method, ClipboardLinkPayload payload) {
        link_.sendEvent(method, std::move(payload));
    });
    hosts_.onNotice = lifetime_.guard([this](const std::string& sentence) { notice(sentence); });
    hosts_.onFailure = lifetime_.guard([this](const std::string& sentence) { fail(sentence); });
    watch_.onChange = lifetime_.guard([this] {
        service_.databaseChanged();
        hosts_.databaseChanged();
    });
    watch_.onFailure = lifetime_.guard([this](const std::string& sentence) { fail(sentence); });
    link_.onRequest = lifetime_.guard([this](const CompanionLink::Message& request) {
        StoreService::Answer answered = answer(request);
        link_.respond(request, std::move(answered.reply), std::move(answered.attachment));
    });
    link_.onEvent = lifetime_.guard([this](const CompanionLink::Message& event) {
        service_.handleEvent(event);
        hosts_.handleEvent(event);
    });
    link_.onConnect = lifetime_.guard([this](const CompanionHeartbeat& heartbeat) {
        lastHelloFailure_.clear();
        notice("linked to the companion on port " + std::to_string(heartbeat.port));
        hosts_.linked(heartbeat.isHotKeyActive);
    });
    link_.onDisconnect = lifetime_.guard([this] {
        notice("the link to the companion is gone");
        hosts_.unlinked();
    });
    link_.onHelloFailure = lifetime_.guard([this](const HelloFailure& failure) { helloFailed(failure); });
    watch_.start();
    hosts_.start();
    link_.start();
}

void StoreServer::stop() {
    hosts_.stop();
}

StoreService::Answer StoreServer::answer(const CompanionLink::Message& request) {
    if (methodNamed(request.header.m) == ClipboardLinkMethod::hostsSnapshot)
        return {hosts_.snapshot()};
    return service_.answer(request);
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
