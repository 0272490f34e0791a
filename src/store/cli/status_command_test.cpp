// SPDX-License-Identifier: Apache-2.0
#include "store/cli/command_line_fixture.h"
#include "store/database/store_database.h"

#include <gmock/gmock.h>

namespace vexil {
namespace {

using testing::HasSubstr;

constexpr Date kLinkedAt{800'000'000.5}; // 2026-05-09 06:13:20

class StatusCommandTest : public CommandLineFixture {
protected:
    StoreDatabase& store() {
        if (!database_) {
            EXPECT_TRUE(folder.create());
            database_.emplace(StoreDatabase::open(folder.database(), StoreDatabase::Mode::createIfMissing).value());
        }
        return *database_;
    }
    void serve() {
        EXPECT_TRUE(folder.create());
        lock_.emplace(StoreLock::take(folder).value());
    }
    void note(const CompanionStatus& status) { EXPECT_TRUE(store().companionRecord().write(status)); }
    std::string status() { return outputOf({"status"}); }
    std::string json() { return outputOf({"status", "--json"}); }

private:
    std::optional<StoreDatabase> database_;
    std::optional<StoreLock> lock_;
};

TEST_F(StatusCommandTest, OfAStoreThatDoesNotExist) {
    EXPECT_EQ(status(), "serve           not running\n"
                        "companion       not linked; only vexil-store serve links it\n"
                        "hot key         unknown\n"
                        "history         0, 0 of them pinned\n"
                        "favorites       0, in 0 categories\n"
                        "images          0\n"
                        "size            0 B, 0 B on disk\n"
                        "hosts profiles  0, 0 of them enabled\n"
                        "hosts file      unknown; nothing was heard of it\n");
    EXPECT_EQ(json(), R"({"isServing":false,"isCompanionLinked":false,"history":0,"pinned":0,"favorites":0,)"
                      R"("categories":0,"images":0,"contentBytes":0,"bytesOnDisk":0,"hostsProfiles":0,)"
                      R"("enabledHostsProfiles":0})"
                      "\n");
    EXPECT_FALSE(std::filesystem::exists(folder.database()));
}

TEST_F(StatusCommandTest, CountsWhatIsStored) {
    for (const char* text : {"one", "two", "three"})
        ASSERT_TRUE(store().entries().record(ClipboardKind::text, bytesOf(text), now));
    const auto ids = store().lists().idsStartingWith("", 3).value();
    ASSERT_TRUE(store().entries().pin(ids[0], now));
    ASSERT_TRUE(store().categories().add("Work", "red"));
    ASSERT_TRUE(store().entries().addToFavorites(ids[1], std::nullopt));
    ASSERT_TRUE(store().hostsProfiles().add({Uuid::random(), "a", "", true, now}));
    ASSERT_TRUE(store().hostsProfiles().add({Uuid::random(), "b", "", false, now}));
    EXPECT_THAT(status(), HasSubstr("history         3, 1 of them pinned\n"
                                    "favorites       1, in 1 category\n"
                                    "images          0\n"
                                    "size            11 B, "));
    EXPECT_THAT(status(), HasSubstr("hosts profiles  2, 1 of them enabled\n"));
    EXPECT_THAT(json(),
                HasSubstr(R"("history":3,"pinned":1,"favorites":1,"categories":1,"images":0,"contentBytes":11)"));
    EXPECT_THAT(json(), testing::Not(HasSubstr(R"("bytesOnDisk":0,)")));
}

TEST_F(StatusCommandTest, TellsOfALinkedCompanion) {
    serve();
    note({kLinkedAt, true, kLinkedAt,
          HostsCompanionState{.isInSync = true,
                              .appliedHostnameCount = 12,
                              .appliedProfileCount = 1,
                              .lastAppliedAt = Date{800'000'060.5}}});
    EXPECT_THAT(status(), HasSubstr("serve           running\n"
                                    "companion       linked since 2026-05-09 06:13\n"
                                    "hot key         active\n"));
    EXPECT_THAT(status(), HasSubstr("hosts file      in sync, 12 host names of 1 profile applied\n"
                                    "last applied    2026-05-09 06:14\n"));
    EXPECT_THAT(json(), HasSubstr(R"({"isServing":true,"isCompanionLinked":true,"linkedSince":800000000.5,)"
                                  R"("isHotKeyActive":true,)"));
    EXPECT_THAT(json(), HasSubstr(R"("hostsStateAt":800000000.5,"hostsState":{"isInSync":true,)"
                                  R"("appliedHostnameCount":12,"appliedProfileCount":1,)"
                                  R"("lastAppliedAt":800000060.5,"isApplying":false}})"));
}

TEST_F(StatusCommandTest, TellsOfAnInactiveHotKeyAndAnApplyUnderWay) {
    serve();
    note({kLinkedAt, false, kLinkedAt, HostsCompanionState{.isApplying = true}});
    EXPECT_THAT(status(), HasSubstr("hot key         not active\n"));
    EXPECT_THAT(status(), HasSubstr("not in sync, 0 host names of 0 profiles applied, applying\n"));
}

TEST_F(StatusCommandTest, WhatAGoneCompanionSaidIsDated) {
    serve();
    note({std::nullopt, std::nullopt, kLinkedAt, HostsCompanionState{.isInSync = true}});
    EXPECT_THAT(status(), HasSubstr("companion       not linked\n"));
    EXPECT_THAT(status(), HasSubstr("applied (as of 2026-05-09 06:13)\n"));
}

TEST_F(StatusCommandTest, WhatAKilledServerLeftIsNotBelieved) {
    note({kLinkedAt, true, kLinkedAt, HostsCompanionState{}});
    EXPECT_THAT(status(), HasSubstr("serve           not running\n"
                                    "companion       not linked; only vexil-store serve links it\n"
                                    "hot key         unknown\n"));
    EXPECT_THAT(json(), testing::StartsWith(R"({"isServing":false,"isCompanionLinked":false,"history")"));
}

TEST_F(StatusCommandTest, AnErrorIsShownToItsEndAndCannotCommandTheTerminal) {
    serve();
    const std::string words = "The helper said \x1B[31m" + std::string(200, 'x') + ".";
    note({kLinkedAt, true, kLinkedAt, HostsCompanionState{.lastError = words}});
    terminal = Terminal{40, false};
    EXPECT_THAT(status(), HasSubstr("last error      The helper said ␛[31m" + std::string(200, 'x') + ".\n"));
}

} // namespace
} // namespace vexil
