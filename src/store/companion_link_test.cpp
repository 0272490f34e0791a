// SPDX-License-Identifier: Apache-2.0
#include "link/clipboard_link_server.h"
#include "link/heartbeat_broadcaster.h"
#include "platform/memory/memory_loopback_tcp.h"
#include "platform/memory/memory_main_queue.h"
#include "platform/memory/memory_notifications.h"
#include "platform/memory/memory_secure_random.h"
#include "store/companion_link.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Reason = HelloFailure::Reason;
using UserInfo = DistributedNotifications::UserInfo;

// The real companion's side of the link.
struct Companion {
    Companion(MemoryMainQueue& queue, MemoryLoopbackTcp& network, MemoryNotifications& notifications)
        : server(queue, network, random), heartbeat(queue, notifications) {
        server.start();
        queue.runUntilIdle();
        heartbeat.start(server, [] { return true; });
        queue.runUntilIdle();
    }

    MemorySecureRandom random;
    ClipboardLinkServer server;
    HeartbeatBroadcaster heartbeat;
};

class CompanionLinkTest : public testing::Test {
protected:
    CompanionLinkTest() {
        link.onConnect = [this](const CompanionHeartbeat&) { ++connects; };
        link.onDisconnect = [this] { ++disconnects; };
        link.onHelloFailure = [this](const HelloFailure& failure) { failures.push_back(failure); };
        link.onRequest = [this](CompanionLink::Message request) {
            requests.push_back(request.header.m);
            link.respond(request, ClipboardLinkPayload(ClipboardStoreSnapshot{}), std::nullopt);
        };
        link.onEvent = [this](CompanionLink::Message event) { events.push_back(event.header.m); };
        link.start();
    }

    std::unique_ptr<Companion> startCompanion() {
        return std::make_unique<Companion>(queue, network, companionsNotifications);
    }
    void nextHeartbeat() { queue.advance(HeartbeatBroadcaster::kInterval); }
    void post(const UserInfo& userInfo) {
        companionsNotifications.post(HeartbeatBroadcaster::kNotificationName, userInfo);
        queue.runUntilIdle();
    }

    MemoryMainQueue queue;
    MemoryLoopbackTcp network{queue};
    MemoryNotificationBus bus{queue};
    MemoryNotifications companionsNotifications{bus};
    MemoryNotifications notifications{bus};
    CompanionLink link{queue, network, notifications, "1.2.3"};
    int connects = 0;
    int disconnects = 0;
    std::vector<HelloFailure> failures;
    std::vector<std::string> requests;
    std::vector<std::string> events;
};

TEST(CompanionHeartbeatTest, ReadsPortAndNonce) {
    EXPECT_EQ(CompanionHeartbeat::parse({{"hotkeyActive", "1"}, {"port", "65535"}, {"nonce", "abc="}}),
              (CompanionHeartbeat{65535, "abc=", true}));
    EXPECT_EQ(CompanionHeartbeat::parse({{"hotkeyActive", "0"}, {"port", "1"}, {"nonce", "a"}}),
              (CompanionHeartbeat{1, "a", false}));
    EXPECT_EQ(CompanionHeartbeat::parse({{"port", "1"}, {"nonce", "a"}}), (CompanionHeartbeat{1, "a", std::nullopt}));
}

TEST(CompanionHeartbeatTest, IgnoresWhatMakesNoSense) {
    EXPECT_EQ(CompanionHeartbeat::parse({}), std::nullopt);
    EXPECT_EQ(CompanionHeartbeat::parse({{"hotkeyActive", "1"}}), std::nullopt);
    EXPECT_EQ(CompanionHeartbeat::parse({{"port", "80"}}), std::nullopt);
    EXPECT_EQ(CompanionHeartbeat::parse({{"nonce", "abc"}}), std::nullopt);
    for (const char* port : {"", "0", "-1", "+80", " 80", "80 ", "80x", "0x50", "65536", "99999999999999999999", "8.0"})
        EXPECT_EQ(CompanionHeartbeat::parse({{"port", port}, {"nonce", "abc"}}), std::nullopt) << port;
    EXPECT_EQ(CompanionHeartbeat::parse({{"port", "80"}, {"nonce", ""}}), std::nullopt);
    EXPECT_EQ(CompanionHeartbeat::parse({{"port", "80"}, {"nonce", std::string(1025, 'x')}}), std::nullopt);
}

TEST_F(CompanionLinkTest, ConnectsAtTheFirstHeartbeat) {
    const auto companion = startCompanion();
    EXPECT_TRUE(link.isConnected());
    EXPECT_TRUE(companion->server.isConnected());
    EXPECT_EQ(connects, 1);
    EXPECT_THAT(requests, testing::Contains("store.snapshot"));
}

TEST_F(CompanionLinkTest, StaysConnectedWhileHeartbeatsGoOn) {
    const auto companion = startCompanion();
    queue.advance(60s);
    EXPECT_EQ(network.connections(), 1U);
    EXPECT_EQ(connects, 1);
    EXPECT_EQ(disconnects, 0);
}

TEST_F(CompanionLinkTest, FindsACompanionThatWasRestarted) {
    auto companion = startCompanion();
    companion.reset();
    queue.runUntilIdle();
    EXPECT_FALSE(link.isConnected());
    EXPECT_EQ(disconnects, 1);
    companion = startCompanion();
    EXPECT_TRUE(link.isConnected());
    EXPECT_EQ(connects, 2);
}

TEST_F(CompanionLinkTest, ReconnectsAtTheNextHeartbeatAfterALoss) {
    const auto companion = startCompanion();
    network.cut(0);
    queue.runUntilIdle();
    EXPECT_FALSE(link.isConnected());
    EXPECT_EQ(network.connections(), 1U);
    nextHeartbeat();
    EXPECT_TRUE(link.isConnected());
    EXPECT_EQ(network.connections(), 2U);
}

TEST_F(CompanionLinkTest, WaitsForTheNextHeartbeatWhenItsNonceIsStale) {
    bus.setDown(true);
    const auto companion = startCompanion();
    bus.setDown(false);
    const std::string port = std::to_string(companion->server.port().value());
    post({{"port", port}, {"nonce", "stale"}});
    EXPECT_THAT(failures, ElementsAre(HelloFailure{Reason::refused, {"bad_nonce", "Nonce rejected"}}));
    EXPECT_FALSE(link.isConnected());
    EXPECT_EQ(disconnects, 0);
    nextHeartbeat();
    EXPECT_TRUE(link.isConnected());
}

TEST_F(CompanionLinkTest, SurvivesTheDeathOfTheBus) {
    const auto companion = startCompanion();
    bus.setDown(true);
    queue.advance(30s);
    EXPECT_TRUE(link.isConnected());
    network.cut(0);
    queue.advance(30s);
    EXPECT_FALSE(link.isConnected());
    bus.setDown(false);
    nextHeartbeat();
    EXPECT_TRUE(link.isConnected());
}

TEST_F(CompanionLinkTest, TheFirstOfTwoCompanionsKeepsTheLink) {
    auto first = startCompanion();
    const auto second = startCompanion();
    queue.advance(30s);
    EXPECT_TRUE(first->server.isConnected());
    EXPECT_FALSE(second->server.isConnected());
    first.reset();
    nextHeartbeat();
    EXPECT_TRUE(second->server.isConnected());
}

TEST_F(CompanionLinkTest, AHeartbeatThatLeadsNowhereIsForgotten) {
    post({{"port", "1"}, {"nonce", "abc"}});
    queue.advance(5s);
    EXPECT_FALSE(link.isConnected());
    EXPECT_EQ(connects + disconnects, 0);
    const auto companion = startCompanion();
    EXPECT_TRUE(link.isConnected());
}

TEST_F(CompanionLinkTest, AConnectThatNobodyAnswersIsGivenUp) {
    network.swallowConnects(true);
    const auto companion = startCompanion();
    EXPECT_FALSE(link.isConnected());
    queue.advance(2s);
    network.swallowConnects(false);
    queue.advance(6s);
    EXPECT_TRUE(link.isConnected());
}

// Something that listens where a companion would and does as it likes.
class CompanionLinkLiarTest : public CompanionLinkTest {
protected:
    CompanionLinkLiarTest() {
        listener = network.listen(
            {.onReady = [this](std::uint16_t ready) { port = ready; },
             .onFailed = [] { FAIL(); },
             .onConnection =
                 [this](std::unique_ptr<TcpStream> stream) {
                     accepted.push_back(std::make_unique<ClipboardLinkConnection>(queue, network, std::move(stream)));
                     auto& connection = *accepted.back();
                     connection.onRequest = [this](CompanionLink::Message request) {
                         hellos.push_back(std::move(request));
                     };
                     connection.start();
                 }});
        queue.runUntilIdle();
        beat();
    }

    void beat() { post({{"port", std::to_string(port)}, {"nonce", "abc"}}); }
    void acceptHello() {
        accepted.at(0)->respond(hellos.at(0), ClipboardLinkPayload(ClipboardHelloAck{"Vexil Shortcut", {}}));
        queue.runUntilIdle();
    }

    std::uint16_t port = 0;
    std::vector<std::unique_ptr<ClipboardLinkConnection>> accepted;
    std::vector<CompanionLink::Message> hellos;
    std::unique_ptr<TcpListener> listener;
};

TEST_F(CompanionLinkLiarTest, TheHelloSaysWhoWeAre) {
    ASSERT_EQ(hellos.size(), 1U);
    EXPECT_EQ(hellos[0].header.m, "hello");
    EXPECT_EQ(hellos[0].header.v, 1);
    EXPECT_EQ(std::get<ClipboardHello>(hellos[0].payload), (ClipboardHello{"abc", "vexil-store", "1.2.3"}));
}

TEST_F(CompanionLinkLiarTest, WhatComesBeforeTheHelloIsAnsweredIsDropped) {
    ASSERT_EQ(accepted.size(), 1U);
    accepted[0]->sendEvent(ClipboardLinkMethod::pasteboardChanged,
                           ClipboardPasteboardChange{ClipboardKind::text, "early", false});
    accepted[0]->sendRequest(ClipboardLinkMethod::storeSnapshot, ClipboardLinkEmpty{});
    queue.runUntilIdle();
    EXPECT_THAT(requests, IsEmpty());
    EXPECT_THAT(events, IsEmpty());
    acceptHello();
    accepted[0]->sendEvent(ClipboardLinkMethod::pasteboardChanged,
                           ClipboardPasteboardChange{ClipboardKind::text, "now", false});
    queue.runUntilIdle();
    EXPECT_THAT(events, ElementsAre("pasteboard.changed"));
}

TEST_F(CompanionLinkLiarTest, AHelloThatIsNeverAnsweredTimesOutAndIsTriedAnew) {
    queue.advance(4s);
    beat();
    EXPECT_EQ(accepted.size(), 1U);
    queue.advance(2s);
    EXPECT_THAT(failures, ElementsAre(HelloFailure{Reason::noAnswer}));
    beat();
    EXPECT_EQ(accepted.size(), 2U);
}

TEST_F(CompanionLinkLiarTest, APeerThatDiesBeforeItAnswersIsTriedAnew) {
    accepted[0]->close();
    queue.runUntilIdle();
    EXPECT_THAT(failures, ElementsAre(HelloFailure{Reason::closed}));
    beat();
    EXPECT_EQ(accepted.size(), 2U);
}

TEST_F(CompanionLinkLiarTest, OnlyAnAcknowledgementAcceptsTheHello) {
    const auto answerWith = [this](CompanionLink::Message request, ClipboardLinkPayload payload) {
        accepted.back()->respond(request, std::move(payload));
        queue.runUntilIdle();
        EXPECT_FALSE(link.isConnected());
        EXPECT_TRUE(accepted.back()->isClosed());
        EXPECT_EQ(failures.back(), HelloFailure{Reason::notUnderstood});
        beat();
    };
    answerWith(hellos.back(), std::monostate());
    answerWith(hellos.back(), ClipboardLinkEmpty{});
    answerWith(hellos.back(), ClipboardStoreSnapshot{});
    auto ofAnotherMethod = hellos.back();
    ofAnotherMethod.header.m = "store.snapshot";
    answerWith(ofAnotherMethod, ClipboardStoreSnapshot{});
    EXPECT_EQ(failures.size(), 4U);
    EXPECT_EQ(accepted.size(), 5U);
    EXPECT_EQ(connects + disconnects, 0);
}

TEST_F(CompanionLinkLiarTest, ACompanionThatFellSilentLosesTheLinkToOneThatBeats) {
    acceptHello();
    ASSERT_TRUE(link.isConnected());
    const auto other = startCompanion(); // its first heartbeat
    nextHeartbeat();
    EXPECT_FALSE(other->server.isConnected());
    EXPECT_FALSE(accepted[0]->isClosed());
    nextHeartbeat();
    EXPECT_TRUE(other->server.isConnected());
    EXPECT_TRUE(accepted[0]->isClosed());
    EXPECT_EQ(disconnects, 1);
    beat();
    beat(); // as it may when it wakes up
    EXPECT_TRUE(other->server.isConnected());
}

TEST_F(CompanionLinkLiarTest, OneHeartbeatInTimeKeepsTheLink) {
    acceptHello();
    const auto other = startCompanion();
    for (int i = 0; i < 3; ++i) {
        nextHeartbeat();
        beat();
        nextHeartbeat();
    }
    EXPECT_FALSE(other->server.isConnected());
    EXPECT_FALSE(accepted[0]->isClosed());
    EXPECT_EQ(disconnects, 0);
}

TEST_F(CompanionLinkLiarTest, ManyOtherCompanionsAreNoReasonToLeave) {
    acceptHello();
    for (int round = 0; round < 3; ++round) {
        for (std::uint16_t other = 1; other <= 5; ++other)
            post({{"port", std::to_string(other)}, {"nonce", "abc"}});
        beat();
    }
    EXPECT_TRUE(link.isConnected());
    EXPECT_EQ(disconnects, 0);
}

TEST_F(CompanionLinkLiarTest, WhoWasLeftForNobodyIsLinkedAgain) {
    acceptHello();
    for (int i = 0; i < CompanionLink::kHeartbeatsToSucceed; ++i)
        post({{"port", "1"}, {"nonce", "abc"}}); // where nobody listens
    queue.advance(5s);
    EXPECT_FALSE(link.isConnected());
    beat();
    EXPECT_EQ(accepted.size(), 2U);
}

TEST_F(CompanionLinkLiarTest, NothingIsSentBeforeTheHelloIsAccepted) {
    link.sendEvent(ClipboardLinkMethod::storeChanged);
    int received = 0;
    accepted[0]->onEvent = [&](const CompanionLink::Message&) { ++received; };
    queue.runUntilIdle();
    EXPECT_EQ(received, 0);
}

TEST_F(CompanionLinkTest, ALinkThatIsGoneHearsNothingMore) {
    auto other = std::make_unique<CompanionLink>(queue, network, notifications, "1");
    other->start();
    const auto companion = startCompanion();
    nextHeartbeat();
    EXPECT_EQ(network.connections(), 3U); // one of the two is linked, the other tries at every heartbeat
    other.reset();
    queue.advance(10s);
    EXPECT_TRUE(link.isConnected());
    EXPECT_EQ(network.connections(), 3U);
}

} // namespace
} // namespace vexil
