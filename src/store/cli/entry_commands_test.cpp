// SPDX-License-Identifier: Apache-2.0
#include "store/cli/command_line_fixture.h"
#include "store/database/jpeg_fixture.h"
#include "store/database/store_database.h"

#include <gmock/gmock.h>

#include <fstream>

namespace vexil {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class EntryCommandsTest : public CommandLineFixture {
protected:
    // An editor that does this with its file, "$1".
    void setEditor(const std::string& script) { editor = "sh -c '" + script + "' sh"; }
    std::string texts(const std::vector<std::string>& options = {}) {
        std::vector<std::string> words{"list", "--json"};
        words.insert(words.end(), options.begin(), options.end());
        return outputOf(words);
    }

    std::string id = add("hello");
};

TEST_F(EntryCommandsTest, APinnedEntryStaysAtTheTopUntilItIsUnpinned) {
    add("newer");
    EXPECT_EQ(outputOf({"pin", id}), "");
    EXPECT_THAT(outputOf({"list"}), testing::StartsWith(id.substr(0, 8) + "  ^"));
    outputOf({"unpin", id});
    EXPECT_THAT(outputOf({"list"}), Not(testing::StartsWith(id.substr(0, 8))));
}

TEST_F(EntryCommandsTest, OnlyWhatIsInTheHistoryCanBePinned) {
    outputOf({"favorite", id});
    outputOf({"delete", id, "--from", "history"});
    EXPECT_EQ(run({"pin", id}), failed(id + " is not in the history, and only what is there can be pinned"));
}

TEST_F(EntryCommandsTest, AFavoriteIsFiledUnderACategory) {
    outputOf({"category", "add", "work"});
    outputOf({"favorite", id, "--category", "WORK"});
    EXPECT_THAT(outputOf({"list", "--category", "work"}), HasSubstr("[work] hello"));
    outputOf({"favorite", id});
    EXPECT_THAT(texts({"--favorites"}), HasSubstr(R"("category":"work")")); // as it was
    outputOf({"favorite", id, "--no-category"});
    EXPECT_EQ(outputOf({"list", "--category", "work"}), "");
    EXPECT_THAT(texts({"--favorites"}), HasSubstr("hello"));
}

TEST_F(EntryCommandsTest, AnUnknownCategoryIsNamed) {
    const Outcome refusal = failed("there is no category \"none\"; see vexil-store category list");
    EXPECT_EQ(run({"favorite", id, "--category", "none"}), refusal);
    EXPECT_EQ(run({"list", "--category", "none"}), refusal);
    EXPECT_EQ(run({"favorite", id, "--category", "none", "--no-category"}).status, 2);
}

TEST_F(EntryCommandsTest, WhatIsNoFavoriteAnyMoreStaysInTheHistory) {
    EXPECT_EQ(run({"unfavorite", id}), failed(id + " is not a favorite"));
    outputOf({"favorite", id});
    outputOf({"unfavorite", id});
    EXPECT_EQ(texts({"--favorites"}), "[]\n");
    EXPECT_THAT(texts(), HasSubstr("hello"));
}

TEST_F(EntryCommandsTest, AnAliasIsGivenAndTakenAway) {
    outputOf({"alias", id, "greeting"});
    EXPECT_THAT(outputOf({"list"}), HasSubstr("greeting · hello"));
    EXPECT_THAT(outputOf({"list", "--search", "GREET"}), HasSubstr("hello"));
    outputOf({"alias", id, "--remove"});
    EXPECT_THAT(outputOf({"list"}), Not(HasSubstr("greeting")));
}

TEST_F(EntryCommandsTest, AnAliasThatCannotBeIsRefused) {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{}, {"greeting", "--remove"}, {""}, {"\xFF"}, {std::string(4097, 'x')}}) {
        std::vector<std::string> command{"alias", id};
        command.insert(command.end(), words.begin(), words.end());
        EXPECT_EQ(run(command).status, 2);
    }
    EXPECT_THAT(texts(), Not(HasSubstr("alias")));
}

TEST_F(EntryCommandsTest, AnAliasCannotCommandTheTerminal) {
    outputOf({"alias", id, "\x1B]0;title\a\n\u009B31m"});
    terminal = Terminal{80, true};
    EXPECT_THAT(outputOf({"list"}), HasSubstr("␛]0;title␇␊\uFFFD31m"));
}

TEST_F(EntryCommandsTest, ATextIsReplacedByAnArgumentOrByStandardInput) {
    outputOf({"edit", id, "one"});
    EXPECT_EQ(outputOf({"show", id}), "one");
    input = "two\n";
    outputOf({"edit", id, "-"});
    EXPECT_EQ(outputOf({"show", id}), "two\n");
    EXPECT_EQ(run({"edit", id, ""}), failed("the text is empty"));
    EXPECT_EQ(run({"edit", id, "\xFF"}), failed("the text is not UTF-8"));
    EXPECT_EQ(outputOf({"show", id}), "two\n");
}

TEST_F(EntryCommandsTest, ATextIsEditedInTheEditor) {
    setEditor("printf \" world\\n\" >> \"$1\"");
    outputOf({"edit", id});
    EXPECT_EQ(outputOf({"show", id}), "hello world"); // the newline is the editor's
}

TEST_F(EntryCommandsTest, AnUnchangedTextChangesNothing) {
    const auto revision = [&] {
        return StoreDatabase::open(folder.database(), StoreDatabase::Mode::existing)->revision().value();
    };
    const auto before = revision();
    setEditor("echo >> \"$1\"");
    outputOf({"edit", id});
    outputOf({"edit", id, "hello"});
    EXPECT_EQ(revision(), before);
}

TEST_F(EntryCommandsTest, AnEditorThatFailsChangesNothing) {
    setEditor("echo more >> \"$1\"; exit 3");
    EXPECT_EQ(run({"edit", id}).status, 1);
    EXPECT_EQ(outputOf({"show", id}), "hello");
}

TEST_F(EntryCommandsTest, AnImageHasNoTextToEdit) {
    std::ofstream(fileNamed("picture.jpg"), std::ios::binary) << textOf(makeJpeg({8, 8}));
    const std::string image = outputOf({"add", "--image", fileNamed("picture.jpg").string()}).substr(0, 36);
    const Outcome refusal = failed(image + " is an image, it has no text to edit");
    EXPECT_EQ(run({"edit", image}), refusal);
    EXPECT_EQ(run({"edit", image, "text"}), refusal);
}

TEST_F(EntryCommandsTest, ADeletedEntryIsGoneFromBothLists) {
    outputOf({"favorite", id});
    outputOf({"delete", id});
    EXPECT_EQ(texts(), "[]\n");
    EXPECT_EQ(texts({"--favorites"}), "[]\n");
    EXPECT_EQ(run({"delete", id}), failed("no entry has the id " + id + "; see vexil-store list"));
}

TEST_F(EntryCommandsTest, AnEntryCanBeDeletedFromOneList) {
    EXPECT_EQ(run({"delete", id, "--from", "favorites"}), failed(id + " is not a favorite"));
    outputOf({"favorite", id});
    outputOf({"delete", id, "--from", "history"});
    EXPECT_EQ(texts(), "[]\n");
    EXPECT_THAT(texts({"--favorites"}), HasSubstr("hello"));
    EXPECT_EQ(run({"delete", id, "--from", "history"}), failed(id + " is not in the history"));
    EXPECT_EQ(run({"delete", id, "--from", "attic"}).status, 2);
}

TEST_F(EntryCommandsTest, EveryCommandWantsAnEntryThatIsThere) {
    for (const std::vector<std::string>& command : {std::vector<std::string>{"pin", "zz"},
                                                    {"unpin", "zz"},
                                                    {"favorite", "zz"},
                                                    {"unfavorite", "zz"},
                                                    {"alias", "zz", "name"},
                                                    {"edit", "zz", "text"},
                                                    {"delete", "zz"},
                                                    {"show", "zz"}}) {
        EXPECT_EQ(run(command), failed("no entry has the id zz; see vexil-store list")) << command.front();
        EXPECT_EQ(run({command.front()}).status, 2) << command.front();
    }
}

} // namespace
} // namespace vexil
