// SPDX-License-Identifier: Apache-2.0
#include "store/cli/store_commands.h"
#include "store/database/jpeg_fixture.h"
#include "store/database/scratch_folder_fixture.h"
#include "store/database/store_database.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>

namespace vexil {
namespace {

using testing::HasSubstr;

class StoreCommandsTest : public testing::Test {
protected:
    StoreCommandsTest() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        EXPECT_TRUE(folder.create());
    }

    Uuid store(ClipboardKind kind, ByteView content) {
        auto database = StoreDatabase::open(folder.database(), StoreDatabase::Mode::createIfMissing).value();
        EXPECT_TRUE(database.record(kind, content, Date{800'000'000}));
        return database.entries(ClipboardScope::history, 1, StoreDatabase::Thumbnails::leave)->front().row.id;
    }

    // What a command writes, or the sentence that it fails with.
    template <class Command> std::string outputOf(Command command) {
        const auto path = scratch.path() / "output";
        const int output = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        EXPECT_GE(output, 0);
        const Result<Done, StoreError> result = command(output);
        ::close(output);
        if (!result)
            return result.error().sentence;
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    std::string list(ListFormat format = ListFormat::table) {
        return outputOf([&](int output) { return listHistory(folder, format, output); });
    }
    std::string show(std::string_view id) {
        return outputOf([&](int output) { return showEntry(folder, id, output); });
    }

    ScratchFolder scratch;
    StoreFolder folder{scratch.path() / "vexil-store"};
};

TEST_F(StoreCommandsTest, AStoreThatDoesNotExistHasNoEntriesAndIsNotMade) {
    EXPECT_EQ(list(), "");
    EXPECT_EQ(list(ListFormat::json), "[]\n");
    EXPECT_EQ(show("00"), "no entry has the id 00");
    EXPECT_FALSE(std::filesystem::exists(folder.database()));
}

TEST_F(StoreCommandsTest, ListsTheHistory) {
    store(ClipboardKind::text, bytesOf("one\ttwo"));
    EXPECT_THAT(list(), HasSubstr("  text   7 B  2026-05-09 "));
    EXPECT_THAT(list(), testing::EndsWith("  one two\n"));
    EXPECT_THAT(list(ListFormat::json), HasSubstr(R"("size":7,)"));
}

TEST_F(StoreCommandsTest, ShowsTextByteForByte) {
    const std::string text("a\0b\r\n\xC3\xBC", 7);
    EXPECT_EQ(show(store(ClipboardKind::text, bytesOf(text)).toString()), text);
}

TEST_F(StoreCommandsTest, ShowsAnImageByteForByte) {
    const Bytes jpeg = makeJpeg({64, 48});
    EXPECT_EQ(show(store(ClipboardKind::image, jpeg).toString()), textOf(jpeg));
}

TEST_F(StoreCommandsTest, TakesTheBeginningOfAnIdInEveryForm) {
    const std::string id = store(ClipboardKind::text, bytesOf("found")).toString();
    std::string lower;
    std::string bare;
    for (const char c : id) {
        lower.push_back(c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c);
        if (c != '-')
            bare.push_back(c);
    }
    for (const std::string& form :
         {id, lower, bare, id.substr(0, 8), id.substr(0, 9), bare.substr(0, 9), id.substr(0, 1), bare.substr(0, 31)})
        EXPECT_EQ(show(form), "found") << form;
}

TEST_F(StoreCommandsTest, WhatBeginsNoIdIsNoEntry) {
    const std::string id = store(ClipboardKind::text, bytesOf("found")).toString();
    for (const std::string& form : {std::string("xyz"), std::string("-"), std::string(""), id + "0",
                                    std::string(1'000'000, '0'), std::string(id[0] == '0' ? "1" : "0")})
        EXPECT_EQ(show(form), "no entry has the id " + form);
}

TEST_F(StoreCommandsTest, AnIdThatSeveralEntriesBeginWithIsRefused) {
    for (int i = 0; i < 17; ++i) // two of them begin with the same digit
        store(ClipboardKind::text, bytesOf(std::to_string(i)));
    int refused = 0;
    for (const char digit : std::string_view("0123456789ABCDEF")) {
        if (show(std::string(1, digit))
                .starts_with(std::string(1, digit) + " begins the ids of several entries, such as "))
            ++refused;
    }
    EXPECT_GT(refused, 0);
}

TEST_F(StoreCommandsTest, AnImageIsNotPrintedOnATerminal) {
    const std::string image = store(ClipboardKind::image, makeJpeg({8, 8})).toString().substr(0, 8);
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0);
    const auto shown = showEntry(folder, image, terminal);
    ::close(terminal);
    ASSERT_FALSE(shown);
    EXPECT_EQ(shown.error().sentence,
              image + " is an image; write it to a file: vexil-store show " + image + " > picture.jpg");
}

TEST_F(StoreCommandsTest, AnOutputThatTakesNothingIsAFailure) {
    store(ClipboardKind::text, bytesOf("one"));
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    const auto listed = listHistory(folder, ListFormat::table, full);
    ::close(full);
    ASSERT_FALSE(listed);
    EXPECT_EQ(listed.error().sentence, "the output cannot be written: No space left on device");
}

TEST_F(StoreCommandsTest, AFileThatIsNoStoreIsReported) {
    std::ofstream(folder.database()) << "not a database";
    EXPECT_EQ(list(), folder.database().string() + " is not a database of vexil-store");
    EXPECT_EQ(show("00"), folder.database().string() + " is not a database of vexil-store");
}

} // namespace
} // namespace vexil
