// SPDX-License-Identifier: Apache-2.0
#include "app/app_delegate.h"
#include "link/test_main_application.h"
#include "platform/memory/memory_image_codec.h"
#include "platform/memory/memory_loopback_tcp.h"
#include "platform/memory/memory_notifications.h"
#include "platform/memory/memory_pasteboard.h"
#include "platform/memory/memory_secure_random.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::IsEmpty;
using testing::Key;
using testing::Not;
using testing::SizeIs;

class AppDelegateTest : public testing::Test {
protected:
    MemoryMainQueue queue;
    MemoryLoopbackTcp network{queue};
    MemorySecureRandom random;
    MemoryNotificationBus bus{queue};
    MemoryNotifications notifications{bus};
    MemoryPasteboard pasteboard{queue};
    MemorySerialQueue processing{queue};
    MemoryImageCodec codec;
    std::optional<AppDelegate> delegate{
        std::in_place, AppServices{queue, network, random, notifications, pasteboard, processing, codec}};
};

TEST_F(AppDelegateTest, ConstructionStartsNothing) {
    queue.advance(10s);
    EXPECT_EQ(queue.armedTimers(), 0U);
    EXPECT_EQ(network.openListeners(), 0U);
    EXPECT_THAT(bus.posted(), IsEmpty());
}

TEST_F(AppDelegateTest, LaunchingListensBeatsAndPolls) {
    delegate->applicationDidFinishLaunching();
    EXPECT_THAT(bus.posted(), SizeIs(1));
    EXPECT_THAT(bus.posted().back().userInfo, Not(Contains(Key("port"))));
    queue.advance(3s);
    EXPECT_EQ(network.openListeners(), 1U);
    EXPECT_THAT(bus.posted().back().userInfo, Contains(Key("port")));
    EXPECT_EQ(bus.posted().back().userInfo.at("hotkeyActive"), "0");
    EXPECT_EQ(queue.armedTimers(), 2U) << "heartbeat and poll";
}

TEST_F(AppDelegateTest, TheWatcherIsMadeOnce) {
    EXPECT_EQ(&delegate->clipboardWatcher(), &delegate->clipboardWatcher());
}

TEST_F(AppDelegateTest, ACopyReachesAMainApplicationThatFollowedTheHeartbeat) {
    delegate->applicationDidFinishLaunching();
    queue.advance(3s);
    const auto& heartbeat = bus.posted().back().userInfo;
    TestMainApplication main(queue, network, static_cast<std::uint16_t>(std::stoi(heartbeat.at("port"))));
    ASSERT_TRUE(main.hello(heartbeat.at("nonce")));
    pasteboard.copy("travelling");
    queue.advance(1s);
    ASSERT_THAT(main.events, SizeIs(1));
    EXPECT_EQ(std::get<ClipboardPasteboardChange>(main.events[0].payload),
              (ClipboardPasteboardChange{ClipboardKind::text, "travelling", false}));
}

TEST_F(AppDelegateTest, OnceReleasedNothingOfItRuns) {
    delegate->applicationDidFinishLaunching();
    queue.advance(3s);
    bus.forgetPosted();
    delegate.reset();
    queue.advance(30s);
    EXPECT_THAT(bus.posted(), IsEmpty());
    EXPECT_EQ(queue.armedTimers(), 0U);
}

} // namespace
} // namespace vexil
