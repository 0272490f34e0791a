// SPDX-License-Identifier: Apache-2.0
#include "store/database/companion_record.h"
#include "store/database/scratch_folder_fixture.h"
#include "store/database/store_database.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

class CompanionRecordTest : public testing::Test {
protected:
    StoreDatabase open() {
        return StoreDatabase::open(scratch.path() / "store.db", StoreDatabase::Mode::createIfMissing).value();
    }

    ScratchFolder scratch;
    StoreDatabase database = open();
};

TEST_F(CompanionRecordTest, NothingIsKnownAtFirst) {
    EXPECT_EQ(database.companionRecord().read().value(), CompanionStatus{});
}

TEST_F(CompanionRecordTest, WhatIsWrittenIsReadByAnotherProcess) {
    const CompanionStatus status{
        Date{800'000'000.25}, false, Date{800'000'001.5},
        HostsCompanionState{true, 12, 3, Date{799'999'999}, "Could not read \"/etc/hosts\".\n", true}};
    ASSERT_TRUE(database.companionRecord().write(status));
    EXPECT_EQ(open().companionRecord().read().value(), status);
}

TEST_F(CompanionRecordTest, WhatIsNoLongerKnownIsForgotten) {
    ASSERT_TRUE(database.companionRecord().write({Date{1}, true, Date{2}, HostsCompanionState{}}));
    const CompanionStatus gone{std::nullopt, std::nullopt, Date{2}, HostsCompanionState{}};
    ASSERT_TRUE(database.companionRecord().write(gone));
    EXPECT_EQ(database.companionRecord().read().value(), gone);
    ASSERT_TRUE(database.companionRecord().write({}));
    EXPECT_EQ(database.companionRecord().read().value(), CompanionStatus{});
}

TEST_F(CompanionRecordTest, AStateThatCannotBeReadIsNone) {
    auto other = SqliteConnection::open(scratch.path() / "store.db", SqliteConnection::Mode::existing).value();
    ASSERT_TRUE(other.execute("UPDATE companion SET hosts_state = '{\"isInSync\":1}', linked_since = 5"));
    EXPECT_EQ(database.companionRecord().read().value(), CompanionStatus{.linkedSince = Date{5}});
}

} // namespace
} // namespace vexil
