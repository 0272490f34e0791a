// SPDX-License-Identifier: Apache-2.0
#include "store/cli/command_line_fixture.h"
#include "store/database/store_database.h"

#include <gmock/gmock.h>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using Kind = HostsOutcome::Kind;

// A process serves the store while `lock` is there; what it does in the pauses of the command is up to each test.
class HostsApplyTest : public CommandLineFixture {
protected:
    HostsApplyTest() {
        EXPECT_TRUE(folder.create());
        database.emplace(StoreDatabase::open(folder.database(), StoreDatabase::Mode::createIfMissing).value());
        lock.emplace(StoreLock::take(folder).value());
    }

    std::vector<HostsRequest> pending() { return database->hostsRequests().pending().value(); }
    void finish(const HostsOutcome& outcome) {
        ASSERT_EQ(pending().size(), 1U);
        ASSERT_TRUE(database->hostsRequests().finish(pending().front().number, outcome));
    }
    // Ends what is asked with `outcome` in the third pause.
    void serve(const HostsOutcome& outcome) {
        pause = [this, outcome, pauses = 0](std::chrono::milliseconds) mutable {
            if (++pauses == 3)
                finish(outcome);
            ASSERT_LE(pauses, 3);
        };
    }

    std::optional<StoreDatabase> database;
    std::optional<StoreLock> lock;
};

TEST_F(HostsApplyTest, SaysWhatWasApplied) {
    serve({Kind::done, HostsCompanionState{.isInSync = true, .appliedHostnameCount = 12, .appliedProfileCount = 3}});
    EXPECT_EQ(run({"hosts", "apply"}), (Outcome{0, "applied 12 host names of 3 profiles\n", ""}));
    serve({Kind::done, HostsCompanionState{.isInSync = true, .appliedHostnameCount = 1, .appliedProfileCount = 1}});
    EXPECT_EQ(outputOf({"hosts", "apply"}), "applied 1 host name of 1 profile\n");
    EXPECT_TRUE(pending().empty());
}

TEST_F(HostsApplyTest, AsksForWhatWasMeant) {
    std::vector<HostsRequest> asked;
    pause = [&](std::chrono::milliseconds) {
        asked.push_back(pending().at(0));
        finish({Kind::done, HostsCompanionState{}});
    };
    EXPECT_EQ(outputOf({"hosts", "remove-all", "--wait", "7"}), "removed everything that was applied\n");
    outputOf({"hosts", "apply"});
    ASSERT_EQ(asked.size(), 2U);
    EXPECT_TRUE(asked[0].removeAll);
    EXPECT_EQ(asked[0].patience, 7s);
    EXPECT_FALSE(asked[1].removeAll);
    EXPECT_EQ(asked[1].patience, 60s);
}

TEST_F(HostsApplyTest, AFailureIsSaidInTheCompanionsWords) {
    serve({Kind::failed, HostsCompanionState{.lastError = "The prompt was cancelled."}});
    EXPECT_EQ(run({"hosts", "apply"}), failed("Vexil Shortcut could not do it: The prompt was cancelled"));
    serve({Kind::failed, std::nullopt});
    EXPECT_EQ(run({"hosts", "apply"}), failed("Vexil Shortcut could not do it: it did not say why"));
}

TEST_F(HostsApplyTest, EveryOtherEndSaysWhatToDo) {
    serve({Kind::notLinked, std::nullopt});
    EXPECT_EQ(run({"hosts", "apply"}), failed("no Vexil Shortcut is linked to the store; start it and try again"));
    serve({Kind::linkLost, std::nullopt});
    EXPECT_EQ(run({"hosts", "apply"}),
              failed("the link to Vexil Shortcut was lost before it was done; try again when vexil-store status shows "
                     "it linked"));
    serve({Kind::nothingHeard, std::nullopt});
    EXPECT_EQ(run({"hosts", "apply", "--wait", "1"}),
              failed("nothing was heard from Vexil Shortcut for 1 second; see vexil-store status"));
    serve({Kind::notFinished, std::nullopt});
    EXPECT_EQ(run({"hosts", "apply"}),
              failed("Vexil Shortcut is not done after 60 seconds; it may be asking for a password, and vexil-store "
                     "status will show what came of it"));
    serve({Kind::abandoned, std::nullopt});
    EXPECT_EQ(run({"hosts", "apply"}),
              failed("vexil-store serve has ended before it was done; start it and try again"));
}

TEST_F(HostsApplyTest, WithoutAServerNothingIsAsked) {
    lock.reset();
    EXPECT_EQ(run({"hosts", "apply"}), failed("no vexil-store serve is running; start it and try again"));
    EXPECT_TRUE(pending().empty());
}

TEST_F(HostsApplyTest, AServerThatEndsIsNoticedAtOnce) {
    pause = [&](std::chrono::milliseconds) { lock.reset(); };
    EXPECT_EQ(run({"hosts", "apply"}),
              failed("vexil-store serve has ended before it was done; start it and try again"));
    EXPECT_TRUE(pending().empty()) << "it takes back what it asked";
}

TEST_F(HostsApplyTest, AServerThatDoesNothingIsNotWaitedForForEver) {
    std::chrono::milliseconds waited = 0ms;
    pause = [&](std::chrono::milliseconds time) {
        EXPECT_GE(time, 50ms) << "no busy waiting";
        waited += time;
    };
    EXPECT_EQ(run({"hosts", "apply", "--wait", "2"}),
              failed("nothing was heard from Vexil Shortcut for 2 seconds; see vexil-store status"));
    EXPECT_EQ(waited, 7s);
    EXPECT_TRUE(pending().empty());
}

TEST_F(HostsApplyTest, OtherChangesOfTheDatabaseAreNoOutcome) {
    pause = [&, pauses = 0](std::chrono::milliseconds) mutable {
        ASSERT_TRUE(database->companionRecord().write({.hostsStateAt = Date{double(pauses)}}));
        if (++pauses == 5)
            finish({Kind::done, std::nullopt});
    };
    EXPECT_EQ(outputOf({"hosts", "apply"}), "applied\n");
}

TEST_F(HostsApplyTest, TheWaitHasBounds) {
    for (const char* seconds : {"0", "-1", "3601", "99999999999999999999", "x"})
        EXPECT_EQ(run({"hosts", "apply", "--wait", seconds}).status, 2) << seconds;
}

} // namespace
} // namespace vexil
