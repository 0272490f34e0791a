// SPDX-License-Identifier: Apache-2.0
// The hosts of the store and the companion's real side of the link, together on a memory network.
#include "link/clipboard_link_server.h"
#include "link/heartbeat_broadcaster.h"
#include "platform/memory/memory_loopback_tcp.h"
#include "platform/memory/memory_main_queue.h"
#include "platform/memory/memory_notifications.h"
#include "platform/memory/memory_secure_random.h"
#include "platform/memory/memory_wall_clock.h"
#include "store/database/scratch_folder_fixture.h"
#include "store/store_server.h"
#include "store/store_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

const HostsCompanionState kIdle{.isInSync = false};
const HostsCompanionState kApplied{.isInSync = true, .appliedHostnameCount = 1, .appliedProfileCount = 1};

class StoreServerHostsTest : public testing::Test {
protected:
    StoreServerHostsTest() {
        store.onFailure = [this](const std::string& sentence) { failures.push_back(sentence); };
        companion.onHostsChanged = [this] { fetch(kIdle); };
        companion.onHostsApply = [this](const HostsApplyCommand& asked) {
            commands.push_back(asked.removeAll);
            fetch(kApplied);
        };
        store.start();
        companion.start();
        queue.runUntilIdle();
        heartbeat.start(companion, [] { return true; });
        queue.runUntilIdle();
    }
    ~StoreServerHostsTest() override { EXPECT_THAT(failures, IsEmpty()); }

    StoreDatabase open() {
        return StoreDatabase::open(scratch.path() / "store.db", StoreDatabase::Mode::createIfMissing).value();
    }
    // As the companion does: asks for the profiles, then reports its state.
    void fetch(const HostsCompanionState& state) {
        companion.fetchHostsSnapshot([this, state](const std::optional<HostsSnapshot>& snapshot) {
            fetched.push_back(snapshot ? static_cast<int>(snapshot->profiles.size()) : -1);
            companion.sendHostsState(state);
        });
    }
    void addProfile(const char* name) {
        EXPECT_EQ(command.hostsProfiles().add({Uuid::random(), name, "1.2.3.4 a\n", true, Date{1}}).value(),
                  HostsProfileChange::done);
    }

    ScratchFolder scratch;
    MemoryMainQueue queue;
    MemoryWallClock clock;
    MemoryLoopbackTcp network{queue};
    MemoryNotificationBus bus{queue};
    MemoryNotifications notifications{bus};
    MemorySecureRandom random;
    StoreDatabase command = open();
    StoreDatabase database = open();
    StoreServer store{queue, clock, network, notifications, database, "1.2.3"};
    ClipboardLinkServer companion{queue, network, random};
    HeartbeatBroadcaster heartbeat{queue, notifications};
    std::vector<int> fetched; // how many profiles there were, each time
    std::vector<bool> commands;
    std::vector<std::string> failures;
};

TEST_F(StoreServerHostsTest, TheCompanionHearsOfEveryChangeOnce) {
    EXPECT_THAT(fetched, ElementsAre(0));
    addProfile("a");
    addProfile("b");
    queue.advance(StoreWatch::kInterval);
    EXPECT_THAT(fetched, ElementsAre(0, 2));
    queue.advance(5s);
    EXPECT_THAT(fetched, ElementsAre(0, 2));
}

TEST_F(StoreServerHostsTest, AnApplyRightAfterAChangeComesBackWithItsOwnOutcome) {
    addProfile("a");
    const auto request = command.hostsRequests().add(false, 60s).value();
    queue.advance(StoreWatch::kInterval);
    EXPECT_THAT(commands, ElementsAre(false));
    EXPECT_THAT(fetched, ElementsAre(0, 1, 1));
    EXPECT_EQ(command.hostsRequests().outcome(request).value(), (HostsOutcome{HostsOutcome::Kind::done, kApplied}));
    EXPECT_EQ(command.companionRecord().read()->hostsState, kApplied);
}

TEST_F(StoreServerHostsTest, TheRecordFollowsTheLink) {
    EXPECT_EQ(command.companionRecord().read()->isHotKeyActive, true) << "from the heartbeat";
    companion.sendShortcutState(false);
    queue.runUntilIdle();
    EXPECT_EQ(command.companionRecord().read()->isHotKeyActive, false);
    EXPECT_TRUE(command.companionRecord().read()->linkedSince);
    network.cut(0);
    queue.runUntilIdle();
    EXPECT_FALSE(command.companionRecord().read()->linkedSince);
    queue.advance(HeartbeatBroadcaster::kInterval);
    EXPECT_TRUE(command.companionRecord().read()->linkedSince);
    store.stop();
    EXPECT_FALSE(command.companionRecord().read()->linkedSince);
}

} // namespace
} // namespace vexil
