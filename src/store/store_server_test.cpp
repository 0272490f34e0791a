// SPDX-License-Identifier: Apache-2.0
// The store and the companion's real side of the link, together on a memory network.
#include "link/clipboard_link_server.h"
#include "link/heartbeat_broadcaster.h"
#include "platform/memory/memory_loopback_tcp.h"
#include "platform/memory/memory_main_queue.h"
#include "platform/memory/memory_notifications.h"
#include "platform/memory/memory_secure_random.h"
#include "platform/memory/memory_wall_clock.h"
#include "store/database/jpeg_fixture.h"
#include "store/database/scratch_folder_fixture.h"
#include "store/store_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::StartsWith;

class StoreServerTest : public testing::Test {
protected:
    StoreServerTest() {
        store.onNotice = [this](const std::string& sentence) { notices.push_back(sentence); };
        store.onFailure = [this](const std::string& sentence) { failures.push_back(sentence); };
        store.start();
        companion.start();
        queue.runUntilIdle();
        heartbeat.start(companion, [] { return false; });
        queue.runUntilIdle();
    }

    void copyText(const std::string& text) {
        companion.publishPasteboardChange(ClipboardKind::text, text, std::nullopt);
        queue.runUntilIdle();
    }
    const ClipboardStoreSnapshot& refreshed() {
        companion.refreshSnapshot(false);
        queue.runUntilIdle();
        return *companion.snapshot();
    }

    ScratchFolder scratch;
    MemoryMainQueue queue;
    MemoryWallClock clock;
    MemoryLoopbackTcp network{queue};
    MemoryNotificationBus bus{queue};
    MemoryNotifications notifications{bus};
    MemorySecureRandom random;
    StoreDatabase database =
        StoreDatabase::open(scratch.path() / "store.db", StoreDatabase::Mode::createIfMissing).value();
    StoreServer store{queue, clock, network, notifications, database, "1.2.3"};
    ClipboardLinkServer companion{queue, network, random};
    HeartbeatBroadcaster heartbeat{queue, notifications};
    std::vector<std::string> notices;
    std::vector<std::string> failures;
};

TEST_F(StoreServerTest, ACopyOnTheOtherSideIsAnEntryHere) {
    EXPECT_THAT(notices, ElementsAre(StartsWith("linked to the companion on port ")));
    EXPECT_FALSE(companion.isSnapshotStale());
    copyText("hello");
    EXPECT_TRUE(companion.isSnapshotStale()); // it was told of the change
    ASSERT_EQ(refreshed().history.size(), 1U);
    EXPECT_EQ(companion.snapshot()->history[0].preview, "hello");
    EXPECT_EQ(companion.snapshot()->revision, 1);
}

TEST_F(StoreServerTest, AnImageComesBackAsItWent) {
    const Bytes jpeg = makeJpeg({800, 600}, false, true);
    companion.publishPasteboardChange(ClipboardKind::image, std::nullopt, jpeg);
    queue.runUntilIdle();
    ASSERT_EQ(refreshed().history.size(), 1U);
    std::optional<ClipboardLinkServer::EntryContent> fetched;
    companion.fetchPayload({companion.snapshot()->history[0].id, ClipboardScope::history}, [&](auto result) {
        ASSERT_TRUE(result);
        fetched = std::move(result).value();
    });
    queue.runUntilIdle();
    ASSERT_TRUE(fetched);
    EXPECT_TRUE(fetched->payload.hasAttachment);
    EXPECT_EQ(fetched->attachment, jpeg);
}

TEST_F(StoreServerTest, AnImageTooLargeForTheLinkIsNoEntry) {
    companion.publishPasteboardChange(ClipboardKind::image, std::nullopt,
                                      Bytes(ClipboardLinkServer::kMaxAttachmentBytes + 1, 0));
    queue.runUntilIdle();
    EXPECT_TRUE(refreshed().history.empty());
    EXPECT_THAT(notices, Contains("left out: a copied image without content"));
}

TEST_F(StoreServerTest, AnEntryThatIsGoneIsNotFound) {
    std::optional<ClipboardLinkError> error;
    companion.fetchPayload({Uuid::random(), ClipboardScope::history}, [&](auto result) { error = result.error(); });
    queue.runUntilIdle();
    EXPECT_EQ(error, (ClipboardLinkError{"not_found", "No such entry"}));
}

TEST_F(StoreServerTest, ActionsOfThePanelChangeTheStore) {
    copyText("one");
    copyText("two");
    const Uuid one = refreshed().history.at(1).id;
    companion.pinEntry(one, true);
    queue.runUntilIdle();
    EXPECT_EQ(refreshed().history.at(0).id, one);
    EXPECT_TRUE(companion.snapshot()->history.at(0).isPinned);
    companion.deleteEntry({one, ClipboardScope::history});
    queue.runUntilIdle();
    EXPECT_EQ(refreshed().history.size(), 1U);
}

TEST_F(StoreServerTest, RecordingResumesAfterALoss) {
    network.cut(0);
    queue.runUntilIdle();
    EXPECT_THAT(notices, Contains("the link to the companion is gone"));
    copyText("while nobody listened");
    queue.advance(HeartbeatBroadcaster::kInterval);
    copyText("again");
    ASSERT_EQ(refreshed().history.size(), 1U);
    EXPECT_EQ(companion.snapshot()->history[0].preview, "again");
}

TEST_F(StoreServerTest, WhatAnotherProcessChangesReachesTheCompanionWithinASecond) {
    auto other = StoreDatabase::open(scratch.path() / "store.db", StoreDatabase::Mode::existing).value();
    ASSERT_TRUE(other.entries().record(ClipboardKind::text, bytesOf("from a command"), clock.now()));
    EXPECT_FALSE(companion.isSnapshotStale());
    queue.advance(StoreWatch::kInterval);
    EXPECT_TRUE(companion.isSnapshotStale());
    ASSERT_EQ(refreshed().history.size(), 1U);
    EXPECT_EQ(companion.snapshot()->history[0].preview, "from a command");
}

TEST_F(StoreServerTest, ADatabaseThatIsLockedCostsCopiesAndNotTheLink) {
    copyText("before");
    refreshed();
    database = StoreDatabase::open(scratch.path() / "store.db", StoreDatabase::Mode::existing, 1ms).value();
    auto other = SqliteConnection::open(scratch.path() / "store.db", SqliteConnection::Mode::existing).value();
    ASSERT_TRUE(other.execute("BEGIN IMMEDIATE"));
    for (int second = 0; second < 10; ++second) {
        copyText("lost " + std::to_string(second));
        queue.advance(1s);
    }
    EXPECT_EQ(failures.size(), 10U);
    EXPECT_THAT(failures.front(), StartsWith("a copied text of 6 B is not stored: "));
    EXPECT_TRUE(companion.isConnected());
    companion.refreshSnapshot(true);
    queue.runUntilIdle();
    EXPECT_EQ(companion.snapshot()->history.size(), 1U); // reading goes on meanwhile
    ASSERT_TRUE(other.execute("COMMIT"));
    copyText("after");
    EXPECT_EQ(refreshed().history.at(0).preview, "after");
    EXPECT_THAT(notices, testing::Not(Contains("the link to the companion is gone")));
}

TEST_F(StoreServerTest, ARefusedHelloIsSaid) {
    network.cut(0);
    queue.runUntilIdle();
    notifications.post(HeartbeatBroadcaster::kNotificationName,
                       {{"port", std::to_string(companion.port().value())}, {"nonce", "stale"}});
    queue.runUntilIdle();
    EXPECT_THAT(notices, Contains("the companion refused the hello: bad_nonce, Nonce rejected"));
}

TEST_F(StoreServerTest, ARunOfRefusalsIsSaidOnce) {
    const auto refuseTwice = [this] {
        network.cut(network.connections() - 1);
        queue.runUntilIdle();
        for (int i = 0; i < 2; ++i) {
            notifications.post(HeartbeatBroadcaster::kNotificationName,
                               {{"port", std::to_string(companion.port().value())}, {"nonce", "stale"}});
            queue.runUntilIdle();
        }
        queue.advance(HeartbeatBroadcaster::kInterval);
    };
    notices.clear();
    refuseTwice();
    refuseTwice();
    EXPECT_THAT(notices, ElementsAre("the link to the companion is gone", StartsWith("the companion refused"),
                                     StartsWith("linked to"), "the link to the companion is gone",
                                     StartsWith("the companion refused"), StartsWith("linked to")));
}

TEST_F(StoreServerTest, ACompanionThatIsLinkedToAnotherIsSaidOnce) {
    StoreServer late{queue, clock, network, notifications, database, "1.2.3"};
    std::vector<std::string> noticesOfLate;
    late.onNotice = [&](const std::string& sentence) { noticesOfLate.push_back(sentence); };
    late.start();
    const auto before = network.connections();
    queue.advance(3 * HeartbeatBroadcaster::kInterval);
    EXPECT_EQ(network.connections(), before + 3);
    EXPECT_THAT(noticesOfLate,
                ElementsAre("the companion closed the connection; another main application may be linked"));
}

} // namespace
} // namespace vexil
