// SPDX-License-Identifier: Apache-2.0
#include "store/database/scratch_folder_fixture.h"
#include "store/database/store_folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <optional>

namespace vexil {
namespace {

mode_t permissionsOf(const std::filesystem::path& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 0777;
}

TEST(StoreFolderTest, LivesWhereTheEnvironmentSays) {
    EXPECT_EQ(StoreFolder::find("/data", "/home/p").value().database(), "/data/vexil-store/store.db");
    EXPECT_EQ(StoreFolder::find("", "/home/p").value().path(), "/home/p/.local/share/vexil-store");
}

TEST(StoreFolderTest, APathThatIsNotAbsoluteDoesNotCount) {
    EXPECT_EQ(StoreFolder::find("data", "/home/p").value().path(), "/home/p/.local/share/vexil-store");
    EXPECT_FALSE(StoreFolder::find("data", "home"));
    EXPECT_FALSE(StoreFolder::find("", ""));
}

TEST(StoreFolderTest, MakesAPrivateFolderAndWhatIsAboveIt) {
    const ScratchFolder scratch;
    const StoreFolder folder(scratch.path() / "a" / "b");
    ASSERT_TRUE(folder.create());
    EXPECT_EQ(permissionsOf(folder.path()), 0700U);
    EXPECT_EQ(permissionsOf(scratch.path() / "a"), 0700U);
}

TEST(StoreFolderTest, MakesAnExistingFolderPrivate) {
    const ScratchFolder scratch;
    const StoreFolder folder(scratch.path() / "store");
    std::filesystem::create_directory(folder.path());
    ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
    ASSERT_TRUE(folder.create());
    EXPECT_EQ(permissionsOf(folder.path()), 0700U);
}

TEST(StoreFolderTest, AFileInTheWayIsLeftAlone) {
    const ScratchFolder scratch;
    const StoreFolder folder(scratch.path() / "store");
    std::ofstream(folder.path()) << "precious";
    ASSERT_EQ(::chmod(folder.path().c_str(), 0644), 0);
    const auto created = folder.create();
    ASSERT_FALSE(created);
    EXPECT_EQ(created.error().sentence,
              folder.path().string() + " cannot be used as the store's folder: Not a directory");
    EXPECT_EQ(permissionsOf(folder.path()), 0644U);
}

TEST(StoreLockTest, OneAtATime) {
    const ScratchFolder scratch;
    const StoreFolder folder(scratch.path());
    std::optional lock(StoreLock::take(folder));
    ASSERT_TRUE(*lock);
    const auto second = StoreLock::take(folder);
    ASSERT_FALSE(second);
    EXPECT_EQ(second.error().sentence, "another vexil-store serves " + folder.path().string() + " already");
    lock.reset();
    EXPECT_TRUE(StoreLock::take(folder));
}

TEST(StoreLockTest, NeedsTheFolder) {
    const ScratchFolder scratch;
    const auto lock = StoreLock::take(StoreFolder(scratch.path() / "missing"));
    ASSERT_FALSE(lock);
    EXPECT_NE(lock.error().sentence.find("No such file or directory"), std::string::npos);
}

} // namespace
} // namespace vexil
