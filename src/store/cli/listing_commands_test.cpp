// SPDX-License-Identifier: Apache-2.0
#include "store/cli/command_line_fixture.h"
#include "store/database/jpeg_fixture.h"
#include "store/database/store_database.h"

#include <gmock/gmock.h>

#include <cctype>
#include <fstream>

namespace vexil {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

class ListingCommandsTest : public CommandLineFixture {
protected:
    ListingCommandsTest() { EXPECT_TRUE(folder.create()); }

    std::string store(ClipboardKind kind, ByteView content) {
        auto database = StoreDatabase::open(folder.database(), StoreDatabase::Mode::createIfMissing).value();
        return database.entries().record(kind, content, now)->id.toString();
    }
};

TEST_F(ListingCommandsTest, AStoreThatDoesNotExistHasNoEntriesAndIsNotMade) {
    EXPECT_EQ(outputOf({"list"}), "");
    EXPECT_EQ(outputOf({"list", "--json"}), "[]\n");
    EXPECT_EQ(run({"show", "00"}), failed("nothing has been stored yet: there is no " + folder.database().string()));
    EXPECT_FALSE(std::filesystem::exists(folder.database()));
}

TEST_F(ListingCommandsTest, ListsTheHistory) {
    store(ClipboardKind::text, bytesOf("one\ttwo"));
    EXPECT_THAT(outputOf({"list"}), HasSubstr("  text  7 B  2026-05-09 "));
    EXPECT_THAT(outputOf({"list"}), EndsWith("  one two\n"));
    EXPECT_THAT(outputOf({"list", "--json"}), HasSubstr(R"("size":7,)"));
}

TEST_F(ListingCommandsTest, ATerminalSeesWhatFitsIntoItsWidth) {
    store(ClipboardKind::text, bytesOf(std::string(300, 'x')));
    terminal = Terminal{40, false};
    EXPECT_EQ(outputOf({"list"}).size(), 40 + std::string("…").size());
}

TEST_F(ListingCommandsTest, ShowsTextByteForByte) {
    const std::string text("a\0b\r\n\xC3\xBC\x1B[31m", 12);
    EXPECT_EQ(outputOf({"show", store(ClipboardKind::text, bytesOf(text))}), text);
}

TEST_F(ListingCommandsTest, ATextCannotCommandTheTerminal) {
    terminal = Terminal{80, true};
    EXPECT_EQ(outputOf({"show", store(ClipboardKind::text, bytesOf("a\tb\n\x1B]0;title\a"))}), "a\tb\n␛]0;title␇\n");
}

TEST_F(ListingCommandsTest, ShowsAnImageByteForByte) {
    const Bytes jpeg = makeJpeg({64, 48});
    EXPECT_EQ(outputOf({"show", store(ClipboardKind::image, jpeg)}), textOf(jpeg));
}

TEST_F(ListingCommandsTest, AnImageIsNotPrintedOnATerminal) {
    const std::string image = store(ClipboardKind::image, makeJpeg({8, 8})).substr(0, 8);
    terminal = Terminal{80, true};
    EXPECT_EQ(run({"show", image}),
              failed(image + " is an image; write it to a file: vexil-store show " + image + " > picture.jpg"));
}

TEST_F(ListingCommandsTest, TakesTheBeginningOfAnIdInEveryForm) {
    const std::string id = store(ClipboardKind::text, bytesOf("found"));
    std::string lower;
    std::string bare;
    for (const char c : id) {
        lower.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
        if (c != '-')
            bare.push_back(c);
    }
    for (const std::string& form :
         {id, lower, bare, id.substr(0, 8), id.substr(0, 9), bare.substr(0, 9), id.substr(0, 1), bare.substr(0, 31)})
        EXPECT_EQ(outputOf({"show", form}), "found") << form;
}

TEST_F(ListingCommandsTest, WhatBeginsNoIdIsNoEntry) {
    const std::string id = store(ClipboardKind::text, bytesOf("found"));
    for (const std::string& form :
         {std::string("xyz"), id + "0", std::string(100'000, '0'), std::string(id[0] == '0' ? "1" : "0")})
        EXPECT_EQ(run({"show", form}), failed("no entry has the id " + form + "; see vexil-store list"));
}

TEST_F(ListingCommandsTest, AnIdThatSeveralEntriesBeginWithIsRefused) {
    for (int i = 0; i < 17; ++i) // two of them begin with the same digit
        store(ClipboardKind::text, bytesOf(std::to_string(i)));
    int refused = 0;
    for (const char digit : std::string_view("0123456789ABCDEF")) {
        const Outcome outcome = run({"show", std::string(1, digit)});
        if (outcome.messages.find("begins the ids of several entries, such as ") != std::string::npos)
            refused += outcome.status;
    }
    EXPECT_GT(refused, 0);
}

TEST_F(ListingCommandsTest, AFileThatIsNoStoreIsReported) {
    std::ofstream(folder.database()) << "not a database";
    const Outcome refusal = failed(folder.database().string() + " is not a database of vexil-store");
    EXPECT_EQ(run({"list"}), refusal);
    EXPECT_EQ(run({"show", "00"}), refusal);
}

} // namespace
} // namespace vexil
