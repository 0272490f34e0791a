// SPDX-License-Identifier: Apache-2.0
#include "store/database/hosts_requests.h"
#include "store/database/scratch_folder_fixture.h"
#include "store/database/store_database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Kind = HostsOutcome::Kind;

class HostsRequestsTest : public testing::Test {
protected:
    StoreDatabase open() {
        return StoreDatabase::open(scratch.path() / "store.db", StoreDatabase::Mode::createIfMissing).value();
    }
    HostsRequests asking() { return command.hostsRequests(); }
    HostsRequests serving() { return server.hostsRequests(); }
    std::vector<HostsRequest> pending() { return serving().pending().value(); }

    ScratchFolder scratch;
    StoreDatabase command = open();
    StoreDatabase server = open();
};

TEST_F(HostsRequestsTest, WhatIsAskedIsServedInOrder) {
    const auto first = asking().add(false, 60s).value();
    const auto second = asking().add(true, 1500ms).value();
    EXPECT_THAT(pending(), ElementsAre(HostsRequest{first, false, 60s}, HostsRequest{second, true, 1500ms}));
    EXPECT_EQ(asking().outcome(first).value(), std::nullopt);
}

TEST_F(HostsRequestsTest, TheOutcomeComesBackWithWhatTheCompanionSaid) {
    const auto number = asking().add(false, 60s).value();
    for (const Kind kind : {Kind::done, Kind::failed, Kind::notLinked, Kind::linkLost, Kind::nothingHeard,
                            Kind::notFinished, Kind::abandoned}) {
        const HostsOutcome outcome{kind, HostsCompanionState{.appliedHostnameCount = 7, .lastError = "No."}};
        ASSERT_TRUE(serving().finish(number, outcome));
        EXPECT_EQ(asking().outcome(number).value(), outcome);
    }
    EXPECT_THAT(pending(), IsEmpty());
    ASSERT_TRUE(serving().finish(number, {Kind::notLinked, std::nullopt}));
    EXPECT_EQ(asking().outcome(number).value(), (HostsOutcome{Kind::notLinked, std::nullopt}));
}

TEST_F(HostsRequestsTest, AWithdrawnRequestIsServedNoMore) {
    const auto first = asking().add(false, 60s).value();
    ASSERT_TRUE(asking().withdraw(first));
    EXPECT_THAT(pending(), IsEmpty());
    ASSERT_TRUE(serving().finish(first, {}));
    EXPECT_EQ(asking().outcome(first).value(), (HostsOutcome{Kind::abandoned, std::nullopt}));
    EXPECT_GT(asking().add(false, 60s).value(), first) << "or a late outcome would be taken for that of another";
}

TEST_F(HostsRequestsTest, ANewServerAbandonsWhatIsLeftOfTheLast) {
    const auto finished = asking().add(false, 60s).value();
    ASSERT_TRUE(serving().finish(finished, {}));
    const auto open = asking().add(false, 60s).value();
    ASSERT_TRUE(serving().abandonAll());
    EXPECT_THAT(pending(), IsEmpty());
    EXPECT_EQ(asking().outcome(open).value(), (HostsOutcome{Kind::abandoned, std::nullopt}));
    auto rows = SqliteConnection::open(scratch.path() / "store.db", SqliteConnection::Mode::existing).value();
    EXPECT_EQ(rows.number("SELECT count(*) FROM hosts_requests").value(), 1) << "nobody comes back for the other";
}

} // namespace
} // namespace vexil
