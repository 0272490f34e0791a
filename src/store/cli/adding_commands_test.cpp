// SPDX-License-Identifier: Apache-2.0
#include "base/uuid.h"
#include "store/cli/command_line_fixture.h"
#include "store/database/jpeg_fixture.h"

#include <gmock/gmock.h>

#include <fstream>

namespace vexil {
namespace {

using testing::HasSubstr;

class AddingCommandsTest : public CommandLineFixture {
protected:
    void write(const char* name, ByteView content) {
        std::ofstream(fileNamed(name), std::ios::binary) << textOf(content);
    }
    std::string pathOf(const char* name) { return fileNamed(name).string(); }
};

TEST_F(AddingCommandsTest, AddsATextAndPrintsItsId) {
    const std::string id = add("hello");
    EXPECT_TRUE(Uuid::parse(id));
    EXPECT_EQ(outputOf({"show", id}), "hello");
}

TEST_F(AddingCommandsTest, ATextThatIsKnownMovesToTheTopUnderItsId) {
    const std::string id = add("hello");
    add("another");
    EXPECT_EQ(add("hello"), id);
    EXPECT_THAT(outputOf({"list"}), testing::StartsWith(id.substr(0, 8)));
}

TEST_F(AddingCommandsTest, StandardInputIsTakenByteForByte) {
    input = " one\ntwo\n";
    EXPECT_EQ(outputOf({"show", add("-")}), input);
    EXPECT_EQ(run({"add"}), run({"add", "-"}));
}

TEST_F(AddingCommandsTest, ATextMayLookLikeAnOptionBehindTwoHyphens) {
    const Outcome added = run({"add", "--", "--yes"});
    ASSERT_EQ(added.status, 0) << added.messages;
    EXPECT_EQ(outputOf({"show", added.output.substr(0, 36)}), "--yes");
}

TEST_F(AddingCommandsTest, WithoutATextATerminalIsNotRead) {
    isInputTerminal = true;
    EXPECT_EQ(run({"add"}), refused("there is nothing to add; give a text, - for standard input, or --image FILE"));
}

TEST_F(AddingCommandsTest, WhatNoEntryCanHoldIsRefusedAndNoStoreIsMade) {
    EXPECT_EQ(run({"add", ""}), failed("the text is empty"));
    EXPECT_EQ(run({"add", "-"}), failed("the text is empty"));
    EXPECT_EQ(run({"add", "\xFF"}), failed("the text is not UTF-8"));
    input = std::string((15U << 20U) + 1, 'x');
    EXPECT_EQ(run({"add"}), failed("the input is longer than 15728640 bytes"));
    EXPECT_FALSE(std::filesystem::exists(folder.path()));
}

TEST_F(AddingCommandsTest, AJpegIsStoredAsItIs) {
    const Bytes jpeg = makeJpeg({64, 48});
    write("picture.jpg", jpeg);
    const std::string id = outputOf({"add", "--image", pathOf("picture.jpg")}).substr(0, 36);
    EXPECT_EQ(outputOf({"show", id}), textOf(jpeg));
    EXPECT_THAT(outputOf({"list"}), HasSubstr("64 × 48 pixels"));
}

TEST_F(AddingCommandsTest, AnotherImageIsMadeAJpeg) {
    const Bytes jpeg = makeJpeg({8, 8});
    write("picture.png", bytesOf("a picture"));
    toJpeg = [&](ByteView image) {
        EXPECT_EQ(textOf(image), "a picture");
        return jpeg;
    };
    const std::string id = outputOf({"add", "--image", pathOf("picture.png")}).substr(0, 36);
    EXPECT_EQ(outputOf({"show", id}), textOf(jpeg));
    input = "a picture";
    EXPECT_EQ(outputOf({"add", "--image", "-"}).substr(0, 36), id);
}

TEST_F(AddingCommandsTest, WhatIsNoImageIsRefused) {
    write("notes.txt", bytesOf("no picture"));
    EXPECT_EQ(
        run({"add", "--image", pathOf("notes.txt")}),
        failed(pathOf("notes.txt") + " is no image that can be read; PNG, JPEG, TIFF, WebP, BMP and GIF are known"));
    EXPECT_EQ(run({"add", "--image", pathOf("none.png")}),
              failed(pathOf("none.png") + " cannot be read: No such file or directory"));
    EXPECT_EQ(run({"add", "--image", scratch.path().string()}).status, 1);
    EXPECT_EQ(run({"add", "text", "--image", pathOf("notes.txt")}).status, 2);
}

} // namespace
} // namespace vexil
