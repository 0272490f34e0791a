// SPDX-License-Identifier: Apache-2.0
#include "store/hosts_attempt.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

using Kind = HostsOutcome::Kind;

const HostsCompanionState kApplied{.isInSync = true, .appliedHostnameCount = 2, .appliedProfileCount = 1};
const HostsCompanionState kNotApplied{.isInSync = false, .appliedHostnameCount = 2, .appliedProfileCount = 1};
const HostsCompanionState kFailed{.appliedProfileCount = 1, .lastError = "Could not read /etc/hosts."};

HostsCompanionState applying(HostsCompanionState state) {
    state.isApplying = true;
    return state;
}

class HostsAttemptTest : public testing::Test {
protected:
    HostsAttempt attempt{HostsRequest{1, false, {}}, false};
    HostsAttempt removal{HostsRequest{2, true, {}}, false};
};

TEST_F(HostsAttemptTest, EndsWithTheStateAfterTheApplying) {
    attempt.profilesGiven();
    EXPECT_EQ(attempt.heard(applying(kNotApplied)), std::nullopt);
    EXPECT_EQ(attempt.heard(applying(kNotApplied)), std::nullopt);
    EXPECT_EQ(attempt.heard(kApplied), Kind::done);
}

TEST_F(HostsAttemptTest, EndsAtOnceWhereNothingHadToBeWritten) {
    attempt.profilesGiven();
    EXPECT_EQ(attempt.heard(kApplied), Kind::done);
}

TEST_F(HostsAttemptTest, AFailureIsWhatTheCompanionSaysOnceItHasBegun) {
    attempt.profilesGiven();
    EXPECT_EQ(attempt.heard(applying(kNotApplied)), std::nullopt);
    EXPECT_EQ(attempt.heard(kFailed), Kind::failed);
}

TEST_F(HostsAttemptTest, AnErrorOfLongAgoIsNoFailureOfThis) {
    EXPECT_EQ(attempt.heard(kFailed), std::nullopt) << "it has not even asked for the profiles";
    attempt.profilesGiven();
    EXPECT_EQ(attempt.heard(applying(kFailed)), std::nullopt);
    EXPECT_EQ(attempt.heard(kApplied), Kind::done);
}

TEST_F(HostsAttemptTest, AReportBeforeItBeginsIsNoOutcome) {
    EXPECT_EQ(attempt.heard(kNotApplied), std::nullopt);
    attempt.profilesGiven();
    EXPECT_EQ(attempt.heard(kApplied), Kind::done);
}

TEST_F(HostsAttemptTest, ACompanionThatHasTheProfilesNeedNotAsk) {
    EXPECT_EQ(attempt.heard(kApplied), Kind::done);
    EXPECT_EQ(removal.heard(HostsCompanionState{}), Kind::done);
}

TEST_F(HostsAttemptTest, WhatTheCompanionWasAtBeforeIsNotItsOutcome) {
    HostsAttempt behind{HostsRequest{1, false, {}}, true};
    EXPECT_EQ(behind.heard(applying(kNotApplied)), std::nullopt);
    EXPECT_EQ(behind.heard(kFailed), std::nullopt);
    behind.profilesGiven();
    EXPECT_EQ(behind.heard(applying(kFailed)), std::nullopt);
    EXPECT_EQ(behind.heard(kApplied), Kind::done);
}

TEST_F(HostsAttemptTest, ARemovalIsDoneThoughTheProfilesAreNotInForce) {
    removal.profilesGiven();
    EXPECT_EQ(removal.heard(applying(kApplied)), std::nullopt);
    EXPECT_EQ(removal.heard(HostsCompanionState{.isInSync = false}), Kind::done);
}

TEST_F(HostsAttemptTest, PatienceEndsDifferentlyOnceItApplies) {
    EXPECT_EQ(attempt.atEndOfPatience(), Kind::nothingHeard);
    attempt.profilesGiven();
    EXPECT_EQ(attempt.atEndOfPatience(), Kind::nothingHeard);
    ASSERT_EQ(attempt.heard(applying(kNotApplied)), std::nullopt);
    EXPECT_EQ(attempt.atEndOfPatience(), Kind::notFinished);
}

} // namespace
} // namespace vexil
