// SPDX-License-Identifier: Apache-2.0
#include "platform/memory/memory_main_queue.h"
#include "platform/memory/memory_wall_clock.h"
#include "store/database/scratch_folder_fixture.h"
#include "store/store_hosts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Kind = HostsOutcome::Kind;
using Method = ClipboardLinkMethod;

const HostsCompanionState kIdle{.isInSync = false};
const HostsCompanionState kApplying{.isInSync = false, .isApplying = true};
const HostsCompanionState kApplied{.isInSync = true, .appliedHostnameCount = 1, .appliedProfileCount = 1};

class StoreHostsTest : public testing::Test {
protected:
    StoreHostsTest() {
        hosts.onSend = [this](Method method, ClipboardLinkPayload payload) {
            sent.push_back(method);
            lastPayload = std::move(payload);
        };
        hosts.onFailure = [this](const std::string& sentence) { failures.push_back(sentence); };
        hosts.start();
    }
    ~StoreHostsTest() override { EXPECT_THAT(failures, IsEmpty()); }

    StoreDatabase open() {
        return StoreDatabase::open(scratch.path() / "store.db", StoreDatabase::Mode::createIfMissing, 1ms).value();
    }

    // The other process.
    void addProfile(const std::string& name) {
        EXPECT_EQ(command.hostsProfiles().add({Uuid::random(), name, "1.2.3.4 " + name, true, clock.now()}).value(),
                  HostsProfileChange::done);
    }
    std::int64_t ask(bool removeAll = false, std::chrono::milliseconds patience = 60s) {
        return command.hostsRequests().add(removeAll, patience).value();
    }
    std::optional<Kind> outcome(std::int64_t number) {
        const auto found = command.hostsRequests().outcome(number).value();
        return found ? std::optional(found->kind) : std::nullopt;
    }
    CompanionStatus record() {
        queue.runUntilIdle();
        return command.companionRecord().read().value();
    }

    // The companion.
    void say(const HostsCompanionState& state) { hosts.handleEvent({{}, state, std::nullopt}); }
    std::vector<Method> takeSent() { return std::exchange(sent, {}); }
    HostsSnapshot fetch() { return std::get<HostsSnapshot>(hosts.snapshot().value()); }
    void linkAndSettle() {
        hosts.linked(true);
        fetch();
        say(kIdle);
    }
    // The companion does what was asked of it.
    void apply() {
        fetch();
        say(kApplying);
        say(kApplied);
    }

    ScratchFolder scratch;
    MemoryMainQueue queue;
    MemoryWallClock clock;
    StoreDatabase command = open();
    StoreDatabase database = open();
    StoreHosts hosts{queue, clock, database};
    std::vector<Method> sent;
    ClipboardLinkPayload lastPayload;
    std::vector<std::string> failures;
};

TEST_F(StoreHostsTest, TheSnapshotHoldsAllProfiles) {
    EXPECT_EQ(fetch(), (HostsSnapshot{0, {}}));
    addProfile("a");
    addProfile("b");
    const HostsSnapshot snapshot = fetch();
    EXPECT_EQ(snapshot.revision, 2);
    ASSERT_EQ(snapshot.profiles.size(), 2U);
    EXPECT_EQ(snapshot.profiles[0].name, "a");
}

TEST_F(StoreHostsTest, ALinkedCompanionIsToldOfAChangeOnce) {
    linkAndSettle();
    addProfile("a");
    addProfile("b");
    hosts.databaseChanged();
    EXPECT_THAT(takeSent(), ElementsAre(Method::hostsChanged));
    EXPECT_EQ(std::get<HostsSnapshot>(lastPayload), fetch()) << "for a companion that does not ask";
    hosts.databaseChanged();
    EXPECT_THAT(takeSent(), IsEmpty());
}

TEST_F(StoreHostsTest, AChangeOfTheEntriesIsNoChangeOfTheHosts) {
    linkAndSettle();
    ASSERT_TRUE(command.entries().record(ClipboardKind::text, bytesOf("copied"), clock.now()));
    hosts.databaseChanged();
    EXPECT_THAT(takeSent(), IsEmpty());
}

TEST_F(StoreHostsTest, WithoutACompanionNobodyIsTold) {
    addProfile("a");
    hosts.databaseChanged();
    linkAndSettle();
    hosts.databaseChanged();
    EXPECT_THAT(takeSent(), IsEmpty()) << "it asks by itself when it is linked";
}

TEST_F(StoreHostsTest, WhatTheCompanionSaysIsOnRecord) {
    EXPECT_EQ(record(), CompanionStatus{});
    const Date linkedAt = clock.now();
    hosts.linked(false);
    EXPECT_EQ(record(), (CompanionStatus{linkedAt, false, std::nullopt, std::nullopt}));
    clock.jump(5);
    hosts.handleEvent({{}, ClipboardShortcutState{true}, std::nullopt});
    say(kApplied);
    EXPECT_EQ(record(), (CompanionStatus{linkedAt, true, clock.now(), kApplied}));
    const Date heardAt = clock.now();
    clock.jump(5);
    hosts.unlinked();
    EXPECT_EQ(record(), (CompanionStatus{std::nullopt, std::nullopt, heardAt, kApplied}));
}

TEST_F(StoreHostsTest, ManyStatesInOneTurnAreWrittenOnce) {
    record();
    const auto before = command.dataVersion().value();
    for (int i = 0; i < 1000; ++i)
        say(kIdle);
    say(kApplied);
    EXPECT_EQ(record().hostsState, kApplied);
    EXPECT_EQ(command.dataVersion().value(), before + 1);
}

TEST_F(StoreHostsTest, EventsOfOtherKindsMeanNothing) {
    const CompanionStatus before = record();
    hosts.handleEvent({{}, ClipboardLinkEmpty{}, std::nullopt});
    hosts.handleEvent({{}, std::monostate(), std::nullopt});
    EXPECT_EQ(record(), before);
}

TEST_F(StoreHostsTest, StoppingForgetsTheCompanionAtOnce) {
    hosts.linked(true);
    hosts.stop();
    EXPECT_EQ(command.companionRecord().read()->linkedSince, std::nullopt);
}

TEST_F(StoreHostsTest, WhatAKilledProcessLeftIsCleared) {
    ASSERT_TRUE(command.companionRecord().write({Date{1}, true, Date{2}, kApplying}));
    const auto left = ask();
    hosts.start();
    EXPECT_EQ(record(), CompanionStatus{});
    EXPECT_EQ(outcome(left), Kind::abandoned);
    hosts.databaseChanged();
    EXPECT_THAT(takeSent(), IsEmpty());
}

TEST_F(StoreHostsTest, AnApplyIsSentAndItsOutcomeNoted) {
    linkAndSettle();
    addProfile("a");
    hosts.databaseChanged();
    fetch();
    say(kIdle);
    takeSent();
    const auto number = ask();
    hosts.databaseChanged();
    EXPECT_THAT(takeSent(), ElementsAre(Method::hostsApply));
    EXPECT_EQ(std::get<HostsApplyCommand>(lastPayload), HostsApplyCommand{false});
    EXPECT_EQ(outcome(number), std::nullopt);
    apply();
    EXPECT_EQ(command.hostsRequests().outcome(number).value(), (HostsOutcome{Kind::done, kApplied}));
}

TEST_F(StoreHostsTest, AFailureIsNotedWithTheCompanionsWords) {
    linkAndSettle();
    const auto number = ask(true);
    hosts.databaseChanged();
    EXPECT_EQ(std::get<HostsApplyCommand>(lastPayload), HostsApplyCommand{true});
    fetch();
    say(kApplying);
    say({.lastError = "The prompt was cancelled."});
    const auto found = command.hostsRequests().outcome(number)->value();
    EXPECT_EQ(found.kind, Kind::failed);
    EXPECT_EQ(found.state->lastError, "The prompt was cancelled.");
}

TEST_F(StoreHostsTest, WithoutACompanionAnApplyIsRefused) {
    const auto number = ask();
    hosts.databaseChanged();
    EXPECT_EQ(outcome(number), Kind::notLinked);
    EXPECT_THAT(takeSent(), IsEmpty());
}

TEST_F(StoreHostsTest, AnApplyWaitsForTheReportAboutAChange) {
    linkAndSettle();
    addProfile("a");
    const auto number = ask();
    hosts.databaseChanged();
    EXPECT_THAT(takeSent(), ElementsAre(Method::hostsChanged));
    fetch();
    say(kIdle); // about the profiles that it has now
    EXPECT_THAT(takeSent(), ElementsAre(Method::hostsApply));
    EXPECT_EQ(outcome(number), std::nullopt);
    apply();
    EXPECT_EQ(outcome(number), Kind::done);
}

TEST_F(StoreHostsTest, ACompanionThatReportsNothingIsNotWaitedForLong) {
    hosts.linked(true);
    ask();
    hosts.databaseChanged();
    EXPECT_THAT(takeSent(), IsEmpty());
    queue.advance(StoreHosts::kSettlingTime);
    EXPECT_THAT(takeSent(), ElementsAre(Method::hostsApply));
}

TEST_F(StoreHostsTest, AChangeDuringAnApplyIsToldAfterIt) {
    linkAndSettle();
    const auto number = ask();
    hosts.databaseChanged();
    addProfile("late");
    hosts.databaseChanged();
    EXPECT_THAT(takeSent(), ElementsAre(Method::hostsApply));
    apply();
    EXPECT_EQ(outcome(number), Kind::done);
    EXPECT_THAT(takeSent(), ElementsAre(Method::hostsChanged));
}

TEST_F(StoreHostsTest, RequestsAreServedOneAfterTheOther) {
    linkAndSettle();
    const auto first = ask();
    const auto second = ask(true);
    hosts.databaseChanged();
    EXPECT_THAT(takeSent(), ElementsAre(Method::hostsApply));
    apply();
    EXPECT_EQ(outcome(first), Kind::done);
    EXPECT_EQ(outcome(second), std::nullopt);
    EXPECT_THAT(takeSent(), ElementsAre(Method::hostsApply));
    EXPECT_EQ(std::get<HostsApplyCommand>(lastPayload), HostsApplyCommand{true});
    fetch();
    say(kIdle);
    EXPECT_EQ(outcome(second), Kind::done);
}

TEST_F(StoreHostsTest, ACompanionThatWasApplyingFinishesThatFirst) {
    linkAndSettle();
    say(kApplying); // by its own menu
    const auto number = ask();
    hosts.databaseChanged();
    say(kApplied);
    EXPECT_EQ(outcome(number), std::nullopt);
    apply();
    EXPECT_EQ(outcome(number), Kind::done);
}

TEST_F(StoreHostsTest, WhatAFormerCompanionWasAtDoesNotCount) {
    linkAndSettle();
    say(kApplying);
    hosts.unlinked();
    hosts.linked(true);
    queue.advance(StoreHosts::kSettlingTime);
    const auto number = ask();
    hosts.databaseChanged();
    fetch();
    say(kApplied);
    EXPECT_EQ(outcome(number), Kind::done);
}

TEST_F(StoreHostsTest, TheLossOfTheLinkEndsWhatWasAsked) {
    linkAndSettle();
    const auto first = ask();
    const auto second = ask();
    hosts.databaseChanged();
    addProfile("late");
    hosts.databaseChanged();
    takeSent();
    hosts.unlinked();
    EXPECT_EQ(outcome(first), Kind::linkLost);
    EXPECT_EQ(outcome(second), Kind::notLinked);
    EXPECT_THAT(takeSent(), IsEmpty());
}

TEST_F(StoreHostsTest, PatienceEndsAnAttemptThatNothingIsHeardOf) {
    linkAndSettle();
    const auto silent = ask(false, 10s);
    hosts.databaseChanged();
    queue.advance(9s);
    EXPECT_EQ(outcome(silent), std::nullopt);
    queue.advance(1s);
    EXPECT_EQ(outcome(silent), Kind::nothingHeard);
    const auto slow = ask(false, 10s);
    hosts.databaseChanged();
    say(kApplying);
    queue.advance(10s);
    EXPECT_EQ(outcome(slow), Kind::notFinished);
    say(kApplied);
    EXPECT_EQ(outcome(slow), Kind::notFinished) << "too late";
}

TEST_F(StoreHostsTest, PatienceOfAnyLengthDoesNoHarm) {
    linkAndSettle();
    const auto none = ask(false, std::chrono::milliseconds::min());
    hosts.databaseChanged();
    queue.advance(1ms);
    EXPECT_EQ(outcome(none), Kind::nothingHeard);
    const auto endless = ask(false, std::chrono::milliseconds::max());
    hosts.databaseChanged();
    queue.advance(StoreHosts::kMaxPatience);
    EXPECT_EQ(outcome(endless), Kind::nothingHeard);
}

TEST_F(StoreHostsTest, AWithdrawnRequestMakesRoomForTheNext) {
    linkAndSettle();
    const auto withdrawn = ask();
    hosts.databaseChanged();
    takeSent();
    ASSERT_TRUE(command.hostsRequests().withdraw(withdrawn));
    const auto next = ask(true);
    hosts.databaseChanged();
    EXPECT_THAT(takeSent(), ElementsAre(Method::hostsApply));
    fetch();
    say(kIdle);
    EXPECT_EQ(outcome(next), Kind::done);
}

TEST_F(StoreHostsTest, ALockedDatabaseIsSaidAndOutlived) {
    linkAndSettle();
    record();
    auto other = SqliteConnection::open(scratch.path() / "store.db", SqliteConnection::Mode::existing).value();
    ASSERT_TRUE(other.execute("BEGIN IMMEDIATE"));
    say(kApplied);
    queue.runUntilIdle();
    EXPECT_THAT(std::exchange(failures, {}), ElementsAre(testing::EndsWith("is in use by another program")));
    ASSERT_TRUE(other.execute("COMMIT"));
    say(kApplied);
    EXPECT_EQ(record().hostsState, kApplied);
}

} // namespace
} // namespace vexil
