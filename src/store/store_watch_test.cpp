// SPDX-License-Identifier: Apache-2.0
#include "platform/memory/memory_main_queue.h"
#include "store/database/store_fixture.h"
#include "store/store_watch.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;

class StoreWatchTest : public StoreFixture {
protected:
    StoreWatchTest() {
        watch.onChange = [this] { ++changes; };
        watch.onFailure = [this](const std::string& sentence) { failures.push_back(sentence); };
    }

    StoreDatabase other = StoreDatabase::open(file, StoreDatabase::Mode::existing).value();
    MemoryMainQueue queue;
    StoreWatch watch{queue, database};
    int changes = 0;
    std::vector<std::string> failures;
};

TEST_F(StoreWatchTest, NoticesWithinASecondWhatAnotherProcessChanged) {
    ASSERT_TRUE(other.entries().record(ClipboardKind::text, bytesOf("before"), nextSecond()));
    watch.start();
    queue.advance(3s);
    EXPECT_EQ(changes, 0);
    ASSERT_TRUE(other.entries().record(ClipboardKind::text, bytesOf("one"), nextSecond()));
    ASSERT_TRUE(other.entries().record(ClipboardKind::text, bytesOf("two"), nextSecond()));
    queue.advance(StoreWatch::kInterval);
    EXPECT_EQ(changes, 1);
    queue.advance(3s);
    EXPECT_EQ(changes, 1);
    ASSERT_TRUE(other.categories().add("work", "red"));
    queue.advance(StoreWatch::kInterval);
    EXPECT_EQ(changes, 2);
}

TEST_F(StoreWatchTest, OwnChangesAreNoNews) {
    watch.start();
    copy("one");
    queue.advance(3s);
    EXPECT_EQ(changes, 0);
}

TEST_F(StoreWatchTest, WhatChangesNothingIsNoNews) {
    watch.start();
    ASSERT_EQ(other.entries().use(Uuid::random(), nextSecond()).value(), EntryChange::noSuchEntry);
    ASSERT_EQ(other.lists().entries({})->size(), 0U);
    queue.advance(3s);
    EXPECT_EQ(changes, 0);
}

TEST_F(StoreWatchTest, MayEndBeforeItsNextLook) {
    {
        StoreWatch brief(queue, database);
        brief.onChange = [this] { ++changes; };
        brief.start();
    }
    copy("one");
    ASSERT_TRUE(other.entries().record(ClipboardKind::text, bytesOf("two"), nextSecond()));
    queue.advance(3s);
    EXPECT_EQ(changes, 0);
}

} // namespace
} // namespace vexil
