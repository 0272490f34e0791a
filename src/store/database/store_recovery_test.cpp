// SPDX-License-Identifier: Apache-2.0
// What becomes of the database when its file, its disk or its process fails.
#include "store/database/scratch_folder_fixture.h"
#include "store/database/store_database.h"
#include "store/database/store_schema.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <iterator>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::HasSubstr;
using Mode = StoreDatabase::Mode;

constexpr Date kNow{800'000'000};

class StoreRecoveryTest : public testing::Test {
protected:
    std::string contentsOfFile() {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    static mode_t permissionsOf(const std::filesystem::path& path) {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 0777;
    }

    // Why opening fails; the file must come out of it as it was.
    std::string refusal(Mode mode = Mode::createIfMissing) {
        EXPECT_EQ(::chmod(file.c_str(), 0644), 0);
        const std::string before = contentsOfFile();
        const auto opened = StoreDatabase::open(file, mode);
        EXPECT_EQ(contentsOfFile(), before);
        EXPECT_EQ(permissionsOf(file), 0644U);
        return opened ? "opened" : opened.error().sentence;
    }

    static Result<ClipboardEntries::Recorded, StoreError> record(StoreDatabase& database, const std::string& text) {
        return database.entries().record(ClipboardKind::text, bytesOf(text), kNow);
    }

    std::vector<std::string> history() {
        auto database = StoreDatabase::open(file, Mode::existing);
        EXPECT_TRUE(database) << database.error().sentence;
        std::vector<std::string> previews;
        const auto entries = database->lists().entries({}).value();
        for (const auto& entry : entries)
            previews.push_back(entry.row.preview);
        return previews;
    }

    std::string integrity() {
        auto connection = SqliteConnection::open(file, Mode::existing).value();
        auto check = connection.prepare("PRAGMA integrity_check").value();
        EXPECT_TRUE(check.step().value());
        return check.text(0);
    }

    ScratchFolder scratch;
    std::filesystem::path file = scratch.path() / "store.db";
};

TEST_F(StoreRecoveryTest, OnlyTheOwnerMayReadTheFiles) {
    const mode_t former = ::umask(0);
    auto database = StoreDatabase::open(file, Mode::createIfMissing).value();
    EXPECT_TRUE(record(database, "secret"));
    ::umask(former);
    for (const char* suffix : {"", "-wal", "-shm"})
        EXPECT_EQ(permissionsOf(file.string() + suffix), 0600U) << suffix;
}

TEST_F(StoreRecoveryTest, AStoreThatOthersCouldReadIsClosedToThem) {
    auto first = StoreDatabase::open(file, Mode::createIfMissing).value();
    ASSERT_TRUE(record(first, "secret"));
    for (const char* suffix : {"", "-wal", "-shm"})
        ASSERT_EQ(::chmod((file.string() + suffix).c_str(), 0644), 0) << suffix;
    auto second = StoreDatabase::open(file, Mode::createIfMissing).value();
    for (const char* suffix : {"", "-wal", "-shm"})
        EXPECT_EQ(permissionsOf(file.string() + suffix), 0600U) << suffix;
}

TEST_F(StoreRecoveryTest, AFileThatMayNotBeWrittenIsRefusedAtOnce) {
    ASSERT_TRUE(StoreDatabase::open(file, Mode::createIfMissing));
    ASSERT_EQ(::chmod(file.c_str(), 0400), 0);
    if (::access(file.c_str(), W_OK) == 0)
        GTEST_SKIP() << "the superuser may write every file";
    EXPECT_EQ(StoreDatabase::open(file, Mode::createIfMissing).error().sentence,
              file.string() + " cannot be used: Permission denied");
}

TEST_F(StoreRecoveryTest, ADatabaseThatCannotBeWrittenAheadIsRefused) {
    auto connection = SqliteConnection::open(":memory:", Mode::existing).value();
    const auto prepared = store_schema::prepare(connection, file);
    ASSERT_FALSE(prepared);
    EXPECT_EQ(prepared.error().sentence,
              file.string() + " cannot be given a write-ahead log: its journal mode remains \"memory\"");
}

TEST_F(StoreRecoveryTest, WhatIsDeletedIsWiped) {
    auto connection = SqliteConnection::open(file, Mode::createIfMissing).value();
    ASSERT_TRUE(connection.execute("PRAGMA secure_delete = OFF")); // systems differ in what they begin with
    ASSERT_TRUE(store_schema::prepare(connection, file));
    const std::string secret(100, 's');
    ASSERT_TRUE(connection.run("INSERT INTO categories VALUES ('a', ?, 'c', 1)", secret));
    ASSERT_TRUE(connection.execute("PRAGMA wal_checkpoint(TRUNCATE)"));
    EXPECT_THAT(contentsOfFile(), HasSubstr(secret));
    ASSERT_TRUE(connection.execute("DELETE FROM categories; PRAGMA wal_checkpoint(TRUNCATE)"));
    EXPECT_THAT(contentsOfFile(), testing::Not(HasSubstr(secret)));
}

TEST_F(StoreRecoveryTest, AMissingFileIsNotMadeWhereOneIsExpected) {
    EXPECT_THAT(StoreDatabase::open(file, Mode::existing).error().sentence, EndsWith("No such file or directory"));
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(StoreRecoveryTest, AFolderInPlaceOfTheFileIsRefused) {
    std::filesystem::create_directory(file);
    EXPECT_THAT(StoreDatabase::open(file, Mode::createIfMissing).error().sentence, HasSubstr("Is a directory"));
}

TEST_F(StoreRecoveryTest, AnEmptyFileBecomesAStore) {
    std::ofstream(file).close();
    auto database = StoreDatabase::open(file, Mode::createIfMissing).value();
    EXPECT_TRUE(record(database, "one"));
}

TEST_F(StoreRecoveryTest, AFileThatIsNoDatabaseIsRefusedAndKept) {
    std::ofstream(file) << std::string(10'000, 'x');
    EXPECT_EQ(refusal(), file.string() + " is not a database of vexil-store");
    std::ofstream(file) << "short";
    EXPECT_EQ(refusal(Mode::existing), file.string() + " is not a database of vexil-store");
}

TEST_F(StoreRecoveryTest, ADatabaseOfAnotherProgramIsRefusedAndKept) {
    ASSERT_TRUE(
        SqliteConnection::open(file, Mode::createIfMissing)->execute("CREATE TABLE t (a); PRAGMA user_version = 1"));
    EXPECT_EQ(refusal(), file.string() + " is a database of another program");
    std::filesystem::remove(file);
    ASSERT_TRUE(SqliteConnection::open(file, Mode::createIfMissing)->execute("PRAGMA application_id = 1"));
    EXPECT_EQ(refusal(), file.string() + " is a database of another program");
}

TEST_F(StoreRecoveryTest, ANewerSchemaIsRefusedAndKept) {
    {
        auto database = StoreDatabase::open(file, Mode::createIfMissing).value();
        ASSERT_TRUE(record(database, "one"));
    }
    const auto newer = store_schema::currentVersion() + 6;
    ASSERT_TRUE(SqliteConnection::open(file, Mode::existing)
                    ->execute(("PRAGMA user_version = " + std::to_string(newer)).c_str()));
    EXPECT_EQ(refusal(), file.string() + " was written by a newer vexil-store (schema " + std::to_string(newer) +
                             "; this one reads up to " + std::to_string(store_schema::currentVersion()) + ")");
}

TEST_F(StoreRecoveryTest, ADamagedDatabaseIsAFailureNotACrash) {
    {
        auto database = StoreDatabase::open(file, Mode::createIfMissing).value();
        for (int i = 0; i < 200; ++i)
            ASSERT_TRUE(record(database, std::to_string(i) + std::string(500, 'x')));
    }
    const std::string whole = contentsOfFile();
    int failures = 0;
    for (std::size_t page = 1; page < whole.size() / 4096; ++page) {
        std::string damaged = whole;
        damaged.replace(page * 4096, 64, std::string(64, '\xA5'));
        std::ofstream(file, std::ios::binary | std::ios::trunc) << damaged;
        auto database = StoreDatabase::open(file, Mode::existing);
        const auto read = database ? database->lists().entries({.withThumbnails = true}) : Failure{database.error()};
        if (read)
            continue;
        ++failures;
        EXPECT_THAT(read.error().sentence, HasSubstr("is damaged; move it away to start with an empty one"));
    }
    EXPECT_GT(failures, 0);
}

TEST_F(StoreRecoveryTest, ALockedDatabaseFailsTheCopyAndTakesTheNext) {
    auto database = StoreDatabase::open(file, Mode::createIfMissing, 1ms).value();
    auto other = SqliteConnection::open(file, Mode::existing).value();
    ASSERT_TRUE(other.execute("BEGIN IMMEDIATE"));
    const auto refused = record(database, "lost");
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().sentence, file.string() + " is in use by another program");
    EXPECT_EQ(database.lists().entries({})->size(), 0U); // reading goes on
    ASSERT_TRUE(other.execute("COMMIT"));
    EXPECT_TRUE(record(database, "kept"));
    EXPECT_THAT(history(), testing::ElementsAre("kept"));
}

TEST_F(StoreRecoveryTest, AFullDatabaseSaysSoAndRollsBack) {
    auto connection = SqliteConnection::open(file, Mode::createIfMissing).value();
    ASSERT_TRUE(store_schema::prepare(connection, file));
    ASSERT_TRUE(connection.execute("PRAGMA max_page_count = 40"));
    const auto result = connection.transaction(SqliteConnection::Access::write, [&]() -> Result<Done, StoreError> {
        if (auto category = connection.run("INSERT INTO categories VALUES ('a', 'b', 'c', 1)"); !category)
            return category;
        return connection.run("CREATE TABLE large AS SELECT zeroblob(1000000)");
    });
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().sentence, file.string() + " cannot grow: no space is left");
    EXPECT_EQ(connection.number("SELECT count(*) FROM categories").value(), 0);
    EXPECT_EQ(integrity(), "ok");
}

// No file of this process may grow past the limit while it lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : formerHandler_(std::signal(SIGXFSZ, SIG_IGN)) {
        EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &former_), 0);
        const rlimit limit{bytes, former_.rlim_max};
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    ~FileSizeLimit() {
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &former_), 0);
        std::signal(SIGXFSZ, formerHandler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit former_{};
    void (*formerHandler_)(int);
};

TEST_F(StoreRecoveryTest, ADiskThatTakesNoMoreFailsTheCopyAndTakesTheNext) {
    auto database = StoreDatabase::open(file, Mode::createIfMissing).value();
    ASSERT_TRUE(record(database, "before"));
    {
        const FileSizeLimit limit(512 * 1024);
        const auto refused = record(database, std::string(4'000'000, 'x'));
        ASSERT_FALSE(refused);
        EXPECT_EQ(refused.error().sentence, file.string() + " cannot be used: File too large");
    }
    EXPECT_TRUE(record(database, "after"));
    EXPECT_THAT(history(), testing::ElementsAre("after", "before"));
    EXPECT_EQ(integrity(), "ok");
}

// Copies "0", "1", ... and writes a byte to `acknowledgements` for each that is stored, until it is killed.
[[noreturn]] void copyUntilKilled(const std::filesystem::path& file, int acknowledgements, std::size_t from) {
    auto database = StoreDatabase::open(file, Mode::createIfMissing);
    for (std::size_t next = from; database; ++next) {
        const std::string text = std::to_string(next) + " " + std::string(next % 7 * 3000, 'x');
        if (!database->entries().record(ClipboardKind::text, bytesOf(text), kNow) ||
            ::write(acknowledgements, "+", 1) != 1)
            break;
    }
    ::_exit(1);
}

// One process that copies and is killed once it has stored `copies` more, at whatever point it is then; how many it
// said that it had stored.
std::size_t copiedBeforeTheKill(const std::filesystem::path& file, std::size_t from, std::size_t copies) {
    int pipe[2];
    EXPECT_EQ(::pipe(pipe), 0);
    const pid_t child = ::fork();
    EXPECT_GE(child, 0);
    if (child == 0)
        copyUntilKilled(file, pipe[1], from);
    ::close(pipe[1]);
    std::size_t acknowledged = 0;
    char byte = 0;
    while (acknowledged < copies && ::read(pipe[0], &byte, 1) == 1)
        ++acknowledged;
    ::kill(child, SIGKILL);
    while (::read(pipe[0], &byte, 1) == 1)
        ++acknowledged;
    ::close(pipe[0]);
    EXPECT_EQ(::waitpid(child, nullptr, 0), child);
    return acknowledged;
}

// A thousand copies, each round after the ones before it, while the history lets go of the oldest ones.
TEST_F(StoreRecoveryTest, WhatWasAcknowledgedSurvivesAKillAtAnyPoint) {
    constexpr std::size_t kLimit = 100;
    ASSERT_TRUE(StoreDatabase::open(file, Mode::createIfMissing)->entries().setHistoryLimit(kLimit));
    std::size_t stored = 0;
    for (std::size_t round = 0; round < 200; ++round) {
        const std::size_t acknowledged = copiedBeforeTheKill(file, stored, 1 + round % 9);
        ASSERT_GE(acknowledged, 1 + round % 9);
        const auto previews = history();
        const std::size_t newest = std::stoul(previews.front()) + 1;
        ASSERT_GE(newest, stored + acknowledged);
        ASSERT_LE(newest, stored + acknowledged + 1); // stored, and killed before it could say so
        stored = newest;
        ASSERT_EQ(previews.size(), std::min(stored, kLimit));
        for (std::size_t i = 0; i < previews.size(); ++i)
            ASSERT_THAT(previews[i], testing::StartsWith(std::to_string(stored - 1 - i)));
        ASSERT_EQ(integrity(), "ok");
    }
    EXPECT_GE(stored, 1000U);
}

// Runs `work` in a process of a person who owns nothing; whether it returned true.
template <class Work> bool asNobody(Work work) {
    const pid_t child = ::fork();
    EXPECT_GE(child, 0);
    if (child == 0)
        ::_exit(::setgid(65534) == 0 && ::setuid(65534) == 0 && work() ? 0 : 1);
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST_F(StoreRecoveryTest, AFolderThatMayNotBeWrittenIsRefusedInASentence) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "only the superuser can become somebody who may not write here";
    ASSERT_EQ(::chmod(scratch.path().c_str(), 0755), 0);
    EXPECT_TRUE(asNobody([&] {
        const auto missing = StoreDatabase::open(file, Mode::createIfMissing);
        return !missing && missing.error().sentence == file.string() + " cannot be used: Permission denied";
    }));
    { ASSERT_TRUE(StoreDatabase::open(file, Mode::createIfMissing)); }
    ASSERT_EQ(::chown(file.c_str(), 65534, 65534), 0); // the file alone: its log has no place
    EXPECT_TRUE(asNobody([&] {
        const auto refused = StoreDatabase::open(file, Mode::createIfMissing);
        return !refused && refused.error().sentence.starts_with(file.string() + " cannot be ");
    }));
    EXPECT_TRUE(StoreDatabase::open(file, Mode::createIfMissing));
}

TEST_F(StoreRecoveryTest, AStoreOfTheFirstSchemaIsBroughtUpToDate) {
    constexpr std::size_t kEntries = 1200;
    auto connection = SqliteConnection::open(file, Mode::createIfMissing).value();
    ASSERT_TRUE(store_schema::prepare(connection, file, 1));
    ASSERT_TRUE(connection.execute(
        "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1200) "
        "INSERT INTO entries (id, kind, content_hash, size, created_at, last_copied_at, copied_revision, in_history, "
        "is_favorite, preview) SELECT printf('00000000-0000-4000-8000-%012d', i), 'text', x'00', 1, i, i, i, 1, "
        "i <= 3, 'Nr. ' || i FROM n"));
    ASSERT_TRUE(connection.execute("INSERT INTO contents SELECT number, 'ÄLTER ' || number FROM entries; "
                                   "UPDATE store SET revision = 1200"));
    auto database = StoreDatabase::open(file, Mode::existing).value();
    EXPECT_EQ(database.lists().entries({})->size(), kEntries);
    EXPECT_EQ(database.lists().entries({.search = "älter 1200"})->size(), 1U);
    ASSERT_TRUE(record(database, "new"));
    EXPECT_EQ(database.lists().entries({})->size(), ClipboardEntries::kDefaultHistoryLimit + 3);
    EXPECT_EQ(history().front(), "new");
    EXPECT_EQ(integrity(), "ok");
}

} // namespace
} // namespace vexil
