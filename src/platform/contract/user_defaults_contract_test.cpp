// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/waiting_main_queue.h"
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

    // Whether the value became durable.
    bool set(UserDefaults& defaults, const std::string& key, bool value) {
        std::optional<bool> told;
        defaults.setBoolean(key, value, [&told](bool isDurable) { told = isDurable; });
        EXPECT_EQ(told, std::nullopt) << "told from within the call";
        EXPECT_TRUE(queue.runUntil([&told] { return told.has_value(); }));
        return told.value_or(false);
    }

protected:
    WaitingMainQueue queue;
};

class MemoryHome final : public Home {
public:
    std::unique_ptr<UserDefaults> run() override { return std::make_unique<MemoryUserDefaults>(queue, file_); }
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
        return std::make_unique<KeyFileUserDefaults>(queue, folder_.path() / "VexilShortcut" / "defaults.ini");
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
    EXPECT_TRUE(this->home.set(*this->home.run(), kKey, true));
    EXPECT_THAT(this->home.run()->boolean(kKey), Optional(true));
    EXPECT_TRUE(this->home.set(*this->home.run(), kKey, false));
    EXPECT_THAT(this->home.run()->boolean(kKey), Optional(false));
    EXPECT_EQ(this->home.run()->boolean("clipboardPanel.other"), std::nullopt);
}

TYPED_TEST(UserDefaultsContract, KeepsOneKeyWhenAnotherIsSet) {
    const auto defaults = this->home.run();
    EXPECT_TRUE(this->home.set(*defaults, "a", true));
    EXPECT_TRUE(this->home.set(*defaults, "b", false));
    EXPECT_THAT(this->home.run()->boolean("a"), Optional(true));
    EXPECT_THAT(this->home.run()->boolean("b"), Optional(false));
}

TYPED_TEST(UserDefaultsContract, AValueThatCannotBeWrittenHoldsForThisRunOnly) {
    const auto defaults = this->home.run();
    ASSERT_TRUE(this->home.set(*defaults, kKey, true));
    this->home.setWritable(false);
    EXPECT_FALSE(this->home.set(*defaults, kKey, false));
    EXPECT_THAT(defaults->boolean(kKey), Optional(false));
    this->home.setWritable(true);
    EXPECT_THAT(this->home.run()->boolean(kKey), Optional(true));
}

TYPED_TEST(UserDefaultsContract, WritesAgainOnceItCan) {
    const auto defaults = this->home.run();
    this->home.setWritable(false);
    EXPECT_FALSE(this->home.set(*defaults, "a", true));
    this->home.setWritable(true);
    EXPECT_TRUE(this->home.set(*defaults, "b", true));
    EXPECT_THAT(this->home.run()->boolean("a"), Optional(true));
}

class KeyFileUserDefaultsTest : public testing::Test {
protected:
    [[nodiscard]] std::optional<bool> read(const fs::path& from) {
        return KeyFileUserDefaults(queue, from).boolean(kKey);
    }
    // Whether it became durable.
    bool set(KeyFileUserDefaults& defaults, bool value) {
        std::optional<bool> told;
        defaults.setBoolean(kKey, value, [&told](bool isDurable) { told = isDurable; });
        EXPECT_TRUE(queue.runUntil([&told] { return told.has_value(); }));
        return told.value_or(false);
    }
    bool setInARun(bool value) {
        KeyFileUserDefaults defaults(queue, file);
        return set(defaults, value);
    }
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

    WaitingMainQueue queue;
    TemporaryFolder folder;
    fs::path file = folder.path() / "config" / "VexilShortcut" / "defaults.ini";
};

TEST_F(KeyFileUserDefaultsTest, MakesItsFoldersForTheOwnerAlone) {
    KeyFileUserDefaults defaults(queue, file);
    EXPECT_FALSE(fs::exists(file.parent_path()));
    ASSERT_TRUE(set(defaults, true));
    EXPECT_EQ(modeOf(file.parent_path()), 0700U);
    EXPECT_EQ(modeOf(file.parent_path().parent_path()), 0700U);
    EXPECT_EQ(modeOf(file), 0600U);
}

TEST_F(KeyFileUserDefaultsTest, WritesAGroupThatAPersonCanEdit) {
    ASSERT_TRUE(setInARun(true));
    EXPECT_EQ(text(), "[defaults]\nclipboardPanel.showsFavorites=true\n");
}

TEST_F(KeyFileUserDefaultsTest, KeepsWhatElseIsInTheFile) {
    write("# mine\n\n[other]\nkey=value\n\n[defaults]\nunknown=7\n");
    ASSERT_TRUE(setInARun(false));
    EXPECT_EQ(text(), "# mine\n\n[other]\nkey=value\n\n[defaults]\nunknown=7\nclipboardPanel.showsFavorites=false\n");
}

TEST_F(KeyFileUserDefaultsTest, AValueThatIsNoBoolIsNone) {
    write("[defaults]\nclipboardPanel.showsFavorites=perhaps\n");
    EXPECT_EQ(read(file), std::nullopt);
}

TEST_F(KeyFileUserDefaultsTest, ABrokenFileCountsAsAbsentAndStaysUntilTheNextWrite) {
    const std::string broken = "[defaults]\nclipboardPanel.showsFavorites=true\n\xff\xfe garbage";
    write(broken);
    KeyFileUserDefaults defaults(queue, file);
    EXPECT_EQ(defaults.boolean(kKey), std::nullopt);
    EXPECT_EQ(text(), broken);
    ASSERT_TRUE(set(defaults, false));
    EXPECT_THAT(read(file), Optional(false));
}

TEST_F(KeyFileUserDefaultsTest, NeverWaitsForAPipe) {
    fs::create_directories(file.parent_path());
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(read(file), std::nullopt);
}

TEST_F(KeyFileUserDefaultsTest, AFileInPlaceOfTheFolderRefusesTheWrite) {
    fs::create_directories(file.parent_path().parent_path());
    std::ofstream(file.parent_path()) << "in the way";
    KeyFileUserDefaults defaults(queue, file);
    EXPECT_FALSE(set(defaults, true));
    EXPECT_THAT(defaults.boolean(kKey), Optional(true));
    EXPECT_TRUE(fs::is_regular_file(file.parent_path()));
}

TEST_F(KeyFileUserDefaultsTest, AFailedWriteLeavesNothingBehind) {
    KeyFileHome disk;
    write("[defaults]\nclipboardPanel.showsFavorites=true\n");
    KeyFileUserDefaults defaults(queue, file);
    disk.setWritable(false);
    const bool isWritten = set(defaults, false);
    disk.setWritable(true);
    EXPECT_FALSE(isWritten);
    EXPECT_EQ(text(), "[defaults]\nclipboardPanel.showsFavorites=true\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), {}), 1);
}

TEST_F(KeyFileUserDefaultsTest, TheEndWaitsForWhatIsStillToBeWritten) {
    {
        KeyFileUserDefaults defaults(queue, file);
        for (int i = 0; i < 9; ++i)
            defaults.setBoolean(kKey, i % 2 == 0);
    }
    EXPECT_THAT(read(file), Optional(true)) << "the last one";
}

TEST_F(KeyFileUserDefaultsTest, OnceItIsGoneNobodyIsTold) {
    {
        KeyFileUserDefaults defaults(queue, file);
        defaults.setBoolean(kKey, true, [](bool) { FAIL() << "its owner may be gone too"; });
    }
    queue.runFor(std::chrono::milliseconds(20));
    EXPECT_THAT(read(file), Optional(true));
}

TEST_F(KeyFileUserDefaultsTest, AFileThatCannotBeOpenedCountsAsAbsentAndIsNotTouched) {
    const fs::path elsewhere = folder.path() / "nobody";
    fs::create_directories(file.parent_path());
    fs::create_symlink(elsewhere / "there", file);
    KeyFileUserDefaults defaults(queue, file);
    EXPECT_EQ(defaults.boolean(kKey), std::nullopt);
    EXPECT_TRUE(fs::is_symlink(file));
    EXPECT_FALSE(fs::exists(elsewhere));
}

TEST_F(KeyFileUserDefaultsTest, WritesThroughASymbolicLink) {
    write("");
    const fs::path elsewhere = folder.path() / "dotfiles.ini";
    fs::rename(file, elsewhere);
    fs::create_symlink(elsewhere, file);
    ASSERT_TRUE(setInARun(true));
    EXPECT_TRUE(fs::is_symlink(file));
    EXPECT_THAT(read(elsewhere), Optional(true));
}

} // namespace
} // namespace vexil
