// SPDX-License-Identifier: Apache-2.0
#include "store/database/scratch_folder_fixture.h"
#include "store/database/sqlite_connection.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace vexil {
namespace {

class StatementCacheTest : public testing::Test {
protected:
    int compiled() const {
        int count = 0;
        for (sqlite3_stmt* each = nullptr; (each = sqlite3_next_stmt(connection.handle(), each)) != nullptr;)
            ++count;
        return count;
    }

    ScratchFolder scratch;
    SqliteConnection connection =
        SqliteConnection::open(scratch.path() / "db", SqliteConnection::Mode::createIfMissing).value();
};

TEST_F(StatementCacheTest, AStatementIsCompiledOnce) {
    for (std::int64_t i = 0; i < 10; ++i)
        EXPECT_EQ(connection.number("SELECT ?", i).value(), i);
    EXPECT_EQ(compiled(), 1);
    EXPECT_EQ(connection.number("SELECT ? + 1", 1).value(), 2);
    EXPECT_EQ(compiled(), 2);
}

TEST_F(StatementCacheTest, NothingIsLeftOfTheRunBefore) {
    ASSERT_TRUE(connection.execute("CREATE TABLE t (a)"));
    {
        auto half = connection.prepare("SELECT ? UNION ALL SELECT 2", 1).value();
        ASSERT_TRUE(half.step().value()); // and not to its end
    }
    ASSERT_TRUE(connection.execute("DROP TABLE t")); // no statement holds the file any more
    auto again = connection.prepare("SELECT ? UNION ALL SELECT 2", std::nullopt).value();
    ASSERT_TRUE(again.step().value());
    EXPECT_TRUE(again.isNull(0));
}

TEST_F(StatementCacheTest, AStatementMayRunTwiceAtATime) {
    auto outer = connection.prepare("SELECT 1 UNION ALL SELECT 2").value();
    ASSERT_TRUE(outer.step().value());
    {
        auto inner = connection.prepare("SELECT 1 UNION ALL SELECT 2").value();
        ASSERT_TRUE(inner.step().value());
        EXPECT_EQ(inner.integer(0), 1);
    }
    ASSERT_TRUE(outer.step().value());
    EXPECT_EQ(outer.integer(0), 2);
}

TEST_F(StatementCacheTest, TheNumberOfWaitingStatementsIsBounded) {
    for (std::size_t i = 0; i < 2 * StatementCache::kMaxWaiting; ++i)
        ASSERT_TRUE(connection.run("SELECT " + std::to_string(i)));
    EXPECT_EQ(compiled(), static_cast<int>(StatementCache::kMaxWaiting));
}

TEST_F(StatementCacheTest, AConnectionMayBeReplacedWithStatementsWaiting) {
    ASSERT_TRUE(connection.run("SELECT 1"));
    connection = SqliteConnection::open(scratch.path() / "other", SqliteConnection::Mode::createIfMissing).value();
    EXPECT_EQ(compiled(), 0);
    EXPECT_TRUE(connection.run("SELECT 1"));
}

} // namespace
} // namespace vexil
