// SPDX-License-Identifier: Apache-2.0
#include "link/clipboard_link_server.h"
#include "link/heartbeat_broadcaster.h"
#include "link/test_main_application.h"
#include "platform/memory/memory_notifications.h"
#include "platform/memory/memory_secure_random.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::Pair;
using testing::SizeIs;

class HeartbeatBroadcasterTest : public testing::Test {
protected:
    void startHeartbeat() {
        heartbeat.start(server, [this] { return isActive; });
    }
    const MemoryNotificationBus::Notice& last() { return bus.posted().back(); }

    MemoryMainQueue queue;
    MemoryLoopbackTcp network{queue};
    MemorySecureRandom random;
    MemoryNotificationBus bus{queue};
    MemoryNotifications notifications{bus};
    ClipboardLinkServer server{queue, network, random};
    HeartbeatBroadcaster heartbeat{queue, notifications};
    bool isActive = false;
};

TEST_F(HeartbeatBroadcasterTest, BeatsAtOnceAndThenEveryThreeSeconds) {
    startHeartbeat();
    EXPECT_THAT(bus.posted(), SizeIs(1));
    queue.advance(2999ms);
    EXPECT_THAT(bus.posted(), SizeIs(1));
    queue.advance(1ms);
    EXPECT_THAT(bus.posted(), SizeIs(2));
    queue.advance(30s);
    EXPECT_THAT(bus.posted(), SizeIs(12));
}

TEST_F(HeartbeatBroadcasterTest, CarriesOnlyTheHotKeyStateBeforeTheServerListens) {
    server.start();
    startHeartbeat();
    EXPECT_EQ(last().name, "com.orvane.vexil.shortcut.heartbeat");
    EXPECT_THAT(last().userInfo, ElementsAre(Pair("hotkeyActive", "0")));
}

TEST_F(HeartbeatBroadcasterTest, CarriesPortAndNonceOnceItDoes) {
    server.start();
    startHeartbeat();
    isActive = true;
    queue.advance(3s);
    EXPECT_THAT(last().userInfo, ElementsAre(Pair("hotkeyActive", "1"), Pair("nonce", server.nonce()),
                                             Pair("port", std::to_string(*server.port()))));
}

TEST_F(HeartbeatBroadcasterTest, CarriesTheNewNonceAfterAHello) {
    server.start();
    startHeartbeat();
    queue.advance(3s);
    const std::string used = last().userInfo.at("nonce");
    TestMainApplication main(queue, network, *server.port());
    EXPECT_TRUE(main.hello(used));
    queue.advance(3s);
    EXPECT_NE(last().userInfo.at("nonce"), used);
    EXPECT_EQ(last().userInfo.at("nonce"), server.nonce());
}

TEST_F(HeartbeatBroadcasterTest, TellsTheLinkOfAChangeOfTheHotKeyOnly) {
    server.start();
    startHeartbeat();
    queue.advance(3s);
    TestMainApplication main(queue, network, *server.port());
    EXPECT_TRUE(main.hello(server.nonce()));
    queue.advance(6s);
    EXPECT_THAT(main.events, SizeIs(0));
    isActive = true;
    queue.advance(6s);
    ASSERT_THAT(main.events, SizeIs(1));
    EXPECT_EQ(std::get<ClipboardShortcutState>(main.events[0].payload), (ClipboardShortcutState{true}));
}

TEST_F(HeartbeatBroadcasterTest, AChangeWhileNobodyIsLinkedIsNotSentLater) {
    server.start();
    startHeartbeat();
    isActive = true;
    queue.advance(3s);
    TestMainApplication main(queue, network, *server.port());
    EXPECT_TRUE(main.hello(server.nonce()));
    queue.advance(6s);
    EXPECT_THAT(main.events, SizeIs(0));
}

TEST_F(HeartbeatBroadcasterTest, GoesOnWhileTheBusIsDown) {
    startHeartbeat();
    bus.setDown(true);
    queue.advance(9s);
    EXPECT_THAT(bus.posted(), SizeIs(1));
    bus.setDown(false);
    queue.advance(3s);
    EXPECT_THAT(bus.posted(), SizeIs(2));
}

} // namespace
} // namespace vexil
