// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/key_file_user_defaults.h"
#include "platform/memory/memory_user_defaults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

namespace vexil {
namespace {

namespace fs = std::filesystem;
using testing::Optional;

constexpr const char* kKey = "clipboardPanel.showsFavorites";

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string path = (fs::temp_directory_path() / "vexil-defaults-XXXXXX").string();
        path_ = ::mkdtemp(path.data());
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    [[nodiscard]] const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

// The settings of one person, over several runs of the program.
class Home {
public:
    virtual ~Home() = default;
    [[nodiscard]] virtual std::unique_ptr<UserDefaults> run() = 0;
    virtual void setWritable(bool writable) = 0;
};

class MemoryHome final : public Home {
public:
    std::unique_ptr<UserDefaults> run() override { return std::make_unique<MemoryUserDefaults>(file_); }
    void setWritable(bool writable) override { file_->isWritable = writable; }

private:
    std::shared_ptr<MemoryDefaultsFile> file_ = std::make_shared<MemoryDefaultsFile>();
};

class KeyFileHome final : public Home {
public:
    KeyFileHome() = default;
    KeyFileHome(const KeyFileHome&) = delete;
    KeyFileHome& operator=(const KeyFileHome&) = delete;
    ~KeyFileHome() override { setWritable(true); }
    std::unique_ptr<UserDefaults> run() override {
        return std::make_unique<KeyFileUserDefaults>(folder_.path() / "VexilShortcut" / "defaults.ini");
    }
    // A limit of nothing on the size of files is a full disk to a program that writes, even to root.
    void setWritable(bool writable) override {
        ::signal(SIGXFSZ, writable ? SIG_DFL : SIG_IGN);
        rlimit limit{};
        ::getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = writable ? limit.rlim_max : 0;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }

private:
    TemporaryFolder folder_;
};

template <class T> class UserDefaultsContract : public testing::Test {
protected:
    T home;
};

using Homes = testing::Types<MemoryHome, KeyFileHome>;
TYPED_TEST_SUITE(UserDefaultsContract, Homes);

TYPED_TEST(UserDefaultsContract, KnowsNothingAtFirst) {
    EXPECT_EQ(this->home.run()->boolean(kKey), std::nullopt);
}

TYPED_TEST(UserDefaultsContract, RemembersOverRuns) {
    EXPECT_TRUE(this->home.run()->setBoolean(kKey, true));
    EXPECT_THAT(this->home.run()->boolean(kKey), Optional(true));
    EXPECT_TRUE(this->home.run()->setBoolean(kKey, false));
    EXPECT_THAT(this->home.run()->boolean(kKey), Optional(false));
    EXPECT_EQ(this->home.run()->boolean("clipboardPanel.other"), std::nullopt);
}

TYPED_TEST(UserDefaultsContract, KeepsOneKeyWhenAnotherIsSet) {
    const auto defaults = this->home.run();
    EXPECT_TRUE(defaults->setBoolean("a", true));
    EXPECT_TRUE(defaults->setBoolean("b", false));
    EXPECT_THAT(this->home.run()->boolean("a"), Optional(true));
    EXPECT_THAT(this->home.run()->boolean("b"), Optional(false));
}

TYPED_TEST(UserDefaultsContract, AValueThatCannotBeWrittenHoldsForThisRunOnly) {
    const auto defaults = this->home.run();
    ASSERT_TRUE(defaults->setBoolean(kKey, true));
    this->home.setWritable(false);
    EXPECT_FALSE(defaults->setBoolean(kKey, false));
    EXPECT_THAT(defaults->boolean(kKey), Optional(false));
    this->home.setWritable(true);
    EXPECT_THAT(this->home.run()->boolean(kKey), Optional(true));
}

TYPED_TEST(UserDefaultsContract, WritesAgainOnceItCan) {
    const auto defaults = this->home.run();
    this->home.setWritable(false);
    EXPECT_FALSE(defaults->setBoolean("a", true));
    this->home.setWritable(true);
    EXPECT_TRUE(defaults->setBoolean("b", true));
    EXPECT_THAT(this->home.run()->boolean("a"), Optional(true));
}

class KeyFileUserDefaultsTest : public testing::Test {
protected:
    void write(std::string_view text) {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << text;
    }
    [[nodiscard]] std::string text() const {
        std::ifstream stream(file);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    [[nodiscard]] static mode_t modeOf(const fs::path& path) {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0);
        return status.st_mode & 0777U;
    }

    TemporaryFolder folder;
    fs::path file = folder.path() / "config" / "VexilShortcut" / "defaults.ini";
};

TEST_F(KeyFileUserDefaultsTest, MakesItsFoldersForTheOwnerAlone) {
    KeyFileUserDefaults defaults(file);
    EXPECT_FALSE(fs::exists(file.parent_path()));
    ASSERT_TRUE(defaults.setBoolean(kKey, true));
    EXPECT_EQ(modeOf(file.parent_path()), 0700U);
    EXPECT_EQ(modeOf(file.parent_path().parent_path()), 0700U);
    EXPECT_EQ(modeOf(file), 0600U);
}

TEST_F(KeyFileUserDefaultsTest, WritesAGroupThatAPersonCanEdit) {
    ASSERT_TRUE(KeyFileUserDefaults(file).setBoolean(kKey, true));
    EXPECT_EQ(text(), "[defaults]\nclipboardPanel.showsFavorites=true\n");
}

TEST_F(KeyFileUserDefaultsTest, KeepsWhatElseIsInTheFile) {
    write("# mine\n\n[other]\nkey=value\n\n[defaults]\nunknown=7\n");
    ASSERT_TRUE(KeyFileUserDefaults(file).setBoolean(kKey, false));
    EXPECT_EQ(text(), "# mine\n\n[other]\nkey=value\n\n[defaults]\nunknown=7\nclipboardPanel.showsFavorites=false\n");
}

TEST_F(KeyFileUserDefaultsTest, AValueThatIsNoBoolIsNone) {
    write("[defaults]\nclipboardPanel.showsFavorites=perhaps\n");
    EXPECT_EQ(KeyFileUserDefaults(file).boolean(kKey), std::nullopt);
}

TEST_F(KeyFileUserDefaultsTest, ABrokenFileCountsAsAbsentAndStaysUntilTheNextWrite) {
    const std::string broken = "[defaults]\nclipboardPanel.showsFavorites=true\n\xff\xfe garbage";
    write(broken);
    KeyFileUserDefaults defaults(file);
    EXPECT_EQ(defaults.boolean(kKey), std::nullopt);
    EXPECT_EQ(text(), broken);
    ASSERT_TRUE(defaults.setBoolean(kKey, false));
    EXPECT_THAT(KeyFileUserDefaults(file).boolean(kKey), Optional(false));
}

TEST_F(KeyFileUserDefaultsTest, NeverWaitsForAPipe) {
    fs::create_directories(file.parent_path());
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(KeyFileUserDefaults(file).boolean(kKey), std::nullopt);
}

TEST_F(KeyFileUserDefaultsTest, AFileInPlaceOfTheFolderRefusesTheWrite) {
    fs::create_directories(file.parent_path().parent_path());
    std::ofstream(file.parent_path()) << "in the way";
    KeyFileUserDefaults defaults(file);
    EXPECT_FALSE(defaults.setBoolean(kKey, true));
    EXPECT_THAT(defaults.boolean(kKey), Optional(true));
    EXPECT_TRUE(fs::is_regular_file(file.parent_path()));
}

TEST_F(KeyFileUserDefaultsTest, AFailedWriteLeavesNothingBehind) {
    KeyFileHome disk;
    write("[defaults]\nclipboardPanel.showsFavorites=true\n");
    KeyFileUserDefaults defaults(file);
    disk.setWritable(false);
    const bool isWritten = defaults.setBoolean(kKey, false);
    disk.setWritable(true);
    EXPECT_FALSE(isWritten);
    EXPECT_EQ(text(), "[defaults]\nclipboardPanel.showsFavorites=true\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), {}), 1);
}

TEST_F(KeyFileUserDefaultsTest, WritesThroughASymbolicLink) {
    write("");
    const fs::path elsewhere = folder.path() / "dotfiles.ini";
    fs::rename(file, elsewhere);
    fs::create_symlink(elsewhere, file);
    ASSERT_TRUE(KeyFileUserDefaults(file).setBoolean(kKey, true));
    EXPECT_TRUE(fs::is_symlink(file));
    EXPECT_THAT(KeyFileUserDefaults(elsewhere).boolean(kKey), Optional(true));
}

} // namespace
} // namespace vexil
