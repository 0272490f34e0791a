// SPDX-License-Identifier: Apache-2.0
#include "store/cli/text_editor.h"
#include "store/database/scratch_folder_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <iterator>

namespace vexil {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class TextEditorTest : public testing::Test {
protected:
    CommandResult edit(const std::string& script, std::string_view text = "before") {
        const CommandContext context{.folder = StoreFolder(scratch.path()),
                                     .input = {-1, false},
                                     .output = {-1, std::nullopt},
                                     .messages = {-1, std::nullopt},
                                     .now = [] { return Date{}; },
                                     .pause = [](std::chrono::milliseconds) {},
                                     .toJpeg = [](ByteView) { return std::nullopt; },
                                     .editor = "sh -c '" + script + "' sh",
                                     .temporaryFolder = scratch.path()};
        return editText(context, text, "draft.txt", [this](const std::string& edited) {
            applied.push_back(edited);
            return outcome;
        });
    }
    bool isScratchEmpty() { return std::filesystem::is_empty(scratch.path()); }

    ScratchFolder scratch;
    CommandResult outcome = Done{};
    std::vector<std::string> applied;
};

TEST_F(TextEditorTest, WhatWasWrittenIsApplied) {
    EXPECT_TRUE(edit("printf after > \"$1\""));
    EXPECT_EQ(applied, std::vector<std::string>{"after"});
    EXPECT_TRUE(isScratchEmpty());
}

TEST_F(TextEditorTest, TheFileIsPrivateAndHoldsTheText) {
    EXPECT_TRUE(edit(
        "umask 77; { stat -c %a \"$1\" \"$(dirname \"$1\")\"; cat \"$1\"; } > \"$1.new\" && mv \"$1.new\" \"$1\""));
    EXPECT_EQ(applied, std::vector<std::string>{"600\n700\nbefore"});
}

TEST_F(TextEditorTest, ANewlineThatTheEditorAddsIsNoChange) {
    EXPECT_TRUE(edit("echo >> \"$1\""));
    EXPECT_TRUE(edit("true", "before\n"));
    EXPECT_TRUE(applied.empty());
    EXPECT_TRUE(edit("printf before > \"$1\"", "before\n"));
    EXPECT_EQ(applied, std::vector<std::string>{"before"});
}

TEST_F(TextEditorTest, AnEditorThatFailsAppliesNothing) {
    for (const char* script : {"printf after > \"$1\"; exit 3", "rm \"$1\"", "kill -9 $$"}) {
        EXPECT_FALSE(edit(script)) << script;
        EXPECT_TRUE(isScratchEmpty()) << script;
    }
    EXPECT_TRUE(applied.empty());
    EXPECT_THAT(edit("exit 3").error().sentence, HasSubstr("ended with status 3, nothing is changed"));
    EXPECT_THAT(edit("kill -9 $$").error().sentence, HasSubstr("ended with s"));
}

TEST_F(TextEditorTest, WhatCannotBeAppliedIsKept) {
    outcome = failure("there is no room for it");
    const CommandResult result = edit("printf after > \"$1\"");
    ASSERT_FALSE(result);
    const std::string beginning = "there is no room for it; what you wrote is kept in ";
    ASSERT_THAT(result.error().sentence, StartsWith(beginning));
    std::ifstream kept(result.error().sentence.substr(beginning.size()));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "after");
}

TEST_F(TextEditorTest, WhatIsNoTextIsKeptToo) {
    EXPECT_THAT(edit("printf \"\\377\" > \"$1\"").error().sentence,
                StartsWith("the text is not UTF-8; what you wrote"));
    EXPECT_TRUE(applied.empty());
}

TEST_F(TextEditorTest, TheInterruptKeyIsTheEditors) {
    EXPECT_TRUE(edit("trap \"printf interrupted > \\\"$1\\\"; exit\" INT; kill -INT $$; exit 3"));
    EXPECT_EQ(applied, std::vector<std::string>{"interrupted"});
}

} // namespace
} // namespace vexil
