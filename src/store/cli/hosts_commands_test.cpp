// SPDX-License-Identifier: Apache-2.0
#include "store/cli/command_line_fixture.h"
#include "store/database/store_database.h"

#include <gmock/gmock.h>

#include <fstream>

namespace vexil {
namespace {

using testing::HasSubstr;

class HostsCommandsTest : public CommandLineFixture {
protected:
    std::string written(const char* name, std::string_view content) {
        std::ofstream(fileNamed(name), std::ios::binary) << content;
        return fileNamed(name).string();
    }
    void add(const std::string& name, std::string_view content = "1.2.3.4 a\n") {
        EXPECT_EQ(run({"hosts", "add", name, written("added", content)}).status, 0);
    }
    HostsProfile profile(const std::string& name) {
        auto database = StoreDatabase::open(folder.database(), StoreDatabase::Mode::existing).value();
        return database.hostsProfiles().named(name).value().value();
    }
    // What the editor does to the file that is $1.
    void editorDoes(const std::string& script) { editor = "sh " + written("editor", script + "\n"); }
};

TEST_F(HostsCommandsTest, WithoutAStoreThereAreNoProfilesAndNoneIsMade) {
    EXPECT_EQ(outputOf({"hosts", "list"}), "");
    EXPECT_EQ(outputOf({"hosts", "list", "--json"}), "[]\n");
    EXPECT_EQ(outputOf({"hosts", "check"}), "");
    EXPECT_EQ(run({"hosts", "show", "a"}).status, 1);
    EXPECT_FALSE(std::filesystem::exists(folder.database()));
}

TEST_F(HostsCommandsTest, AddsFromAFileFromStandardInputAndFromNothing) {
    add("File", "1.2.3.4 a\n");
    input = "5.6.7.8 b\n";
    outputOf({"hosts", "add", "Input", "-"});
    outputOf({"hosts", "add", "Nothing", "--disabled"});
    EXPECT_EQ(outputOf({"hosts", "show", "file"}), "1.2.3.4 a\n");
    EXPECT_EQ(outputOf({"hosts", "show", "input"}), "5.6.7.8 b\n");
    EXPECT_EQ(outputOf({"hosts", "show", "nothing"}), "");
    EXPECT_TRUE(profile("Input").isEnabled);
    EXPECT_FALSE(profile("Nothing").isEnabled);
    EXPECT_EQ(profile("Input").updatedAt, now);
}

TEST_F(HostsCommandsTest, ListsNameStateHostNamesAndIssues) {
    add("Work", "1.2.3.4 a b\n5.6.7.8 c\n");
    add("A bad one", "1.2.3.4 a!\nx\n");
    outputOf({"hosts", "add", "Empty", "--disabled"});
    EXPECT_EQ(outputOf({"hosts", "list"}), "Work       enabled   3 host names\n"
                                           "A bad one  enabled    1 host name  2 issues\n"
                                           "Empty      disabled  0 host names\n");
}

TEST_F(HostsCommandsTest, JsonHasOneObjectALine) {
    now = Date{800'000'000.5};
    add("Work", "1.2.3.4 a b!\n");
    const std::string id = profile("Work").id.toString();
    EXPECT_EQ(outputOf({"hosts", "list", "--json"}),
              "[\n{\"id\":\"" + id +
                  R"(","name":"Work","isEnabled":true,"updatedAt":800000000.5,"hostnames":2,"issues":1,)"
                  R"("content":"1.2.3.4 a b!\n"})"
                  "\n]\n");
}

TEST_F(HostsCommandsTest, AProfileIsNamedInAnyCaseOrByItsId) {
    add("Work");
    const std::string id = profile("Work").id.toString();
    EXPECT_EQ(outputOf({"hosts", "show", "WORK"}), "1.2.3.4 a\n");
    EXPECT_EQ(outputOf({"hosts", "show", id.substr(0, 13)}), "1.2.3.4 a\n");
    EXPECT_EQ(run({"hosts", "show", "Home"}), failed("there is no hosts profile \"Home\"; see vexil-store hosts list"));
    EXPECT_EQ(run({"hosts", "show", ""}).status, 1);
}

TEST_F(HostsCommandsTest, ANameGoesBeforeTheBeginningOfAnId) {
    add("Work");
    const std::string beginning = profile("Work").id.toString().substr(0, 8);
    add(beginning, "5.6.7.8 b\n");
    EXPECT_EQ(outputOf({"hosts", "show", beginning}), "5.6.7.8 b\n");
}

TEST_F(HostsCommandsTest, ABeginningOfSeveralIdsIsNotEnough) {
    for (int i = 0; i < 17; ++i) // two of which begin with the same digit
        add("Profile " + std::to_string(i));
    int ambiguous = 0;
    for (const char digit : std::string("0123456789ABCDEF"))
        ambiguous +=
            run({"hosts", "show", std::string(1, digit)}).messages.find("several hosts profiles") != std::string::npos;
    EXPECT_GT(ambiguous, 0);
}

TEST_F(HostsCommandsTest, EnablesDisablesRenamesAndDeletes) {
    add("Work");
    now = Date{800'000'100};
    outputOf({"hosts", "disable", "Work"});
    EXPECT_FALSE(profile("Work").isEnabled);
    EXPECT_EQ(profile("Work").updatedAt, now);
    outputOf({"hosts", "enable", "Work"});
    EXPECT_TRUE(profile("Work").isEnabled);
    outputOf({"hosts", "rename", "Work", "Home"});
    outputOf({"hosts", "delete", "Home"});
    EXPECT_EQ(outputOf({"hosts", "list"}), "");
}

TEST_F(HostsCommandsTest, WhatCannotBeIsRefusedWithASentence) {
    add("Work");
    EXPECT_EQ(run({"hosts", "add", "work"}),
              failed("another hosts profile has that name; names differ by more than case"));
    EXPECT_THAT(run({"hosts", "add", "a\nb"}).messages, HasSubstr("that is no name for a hosts profile"));
    EXPECT_EQ(run({"hosts", "add", "x", written("binary", std::string_view("a\0b", 3))}),
              failed("the lines are not a text in UTF-8"));
    EXPECT_THAT(run({"hosts", "add", "x", written("large", std::string(11'999'999, '\n'))}).messages,
                HasSubstr("would be longer than 12.0 MB"));
    EXPECT_EQ(run({"hosts", "add", "x", fileNamed("missing").string()}).status, 1);
    EXPECT_EQ(run({"hosts", "add"}).status, 2);
    EXPECT_EQ(run({"hosts"}).status, 2);
    EXPECT_EQ(run({"hosts", "frobnicate"}).status, 2);
}

TEST_F(HostsCommandsTest, ATextCannotCommandTheTerminal) {
    add("Work", "1.2.3.4 a\x1B]0;title\a\n");
    terminal = Terminal{80, true};
    EXPECT_EQ(outputOf({"hosts", "show", "Work"}), "1.2.3.4 a␛]0;title␇\n");
    EXPECT_THAT(run({"hosts", "check", "Work"}).output, HasSubstr("\"a␛]0;title␇\""));
}

TEST_F(HostsCommandsTest, CheckPrintsTheIssuesOfAFile) {
    const std::string file = written("list.hosts", "# fine\n1.2.3.4\n1.2.3.4 good bad!name a..b\n\n999.1.1.1 x\n");
    EXPECT_EQ(run({"hosts", "check", file}),
              (Outcome{1,
                       file + ":2: no host name after the address\n" + file + ":3: invalid host name \"bad!name\"\n" +
                           file + ":3: invalid host name \"a..b\"\n" + file + ":5: invalid address \"999.1.1.1\"\n",
                       "vexil-store: found 4 issues\n"}));
    EXPECT_EQ(run({"hosts", "check", written("good", "::1 localhost # yes\n")}), (Outcome{0, "", ""}));
}

TEST_F(HostsCommandsTest, CheckPrintsTheIssuesOfStandardInput) {
    input = "x";
    EXPECT_EQ(run({"hosts", "check", "-"}),
              (Outcome{1, "standard input:1: invalid address \"x\"\n", "vexil-store: found 1 issue\n"}));
}

TEST_F(HostsCommandsTest, CheckPrintsTheIssuesOfProfiles) {
    add("Good");
    add("Bad", "x\n");
    add("Worse", "y\n");
    EXPECT_EQ(outputOf({"hosts", "check", "good"}), "");
    EXPECT_EQ(run({"hosts", "check", "bad"}).output, "Bad:1: invalid address \"x\"\n");
    EXPECT_EQ(run({"hosts", "check"}), (Outcome{1, "Bad:1: invalid address \"x\"\nWorse:1: invalid address \"y\"\n",
                                                "vexil-store: found 2 issues\n"}));
}

TEST_F(HostsCommandsTest, CheckSaysWhatItCannotRead) {
    EXPECT_EQ(run({"hosts", "check", "nobody"}), failed("there is neither a hosts profile nor a file \"nobody\""));
    const std::string binary = written("binary", "\xFF");
    EXPECT_EQ(run({"hosts", "check", binary}), failed(binary + " is not a text in UTF-8"));
    EXPECT_EQ(run({"hosts", "check", scratch.path().string()}).status, 1);
}

TEST_F(HostsCommandsTest, AddingAndEditingTellTheIssuesAndKeepTheLines) {
    EXPECT_EQ(run({"hosts", "add", "Work", written("list", "1.2.3.4 a!\n")}),
              (Outcome{0, "", "Work:1: invalid host name \"a!\"\n"}));
    editorDoes("echo x >> $1");
    EXPECT_EQ(run({"hosts", "edit", "Work"}),
              (Outcome{0, "", "Work:1: invalid host name \"a!\"\nWork:2: invalid address \"x\"\n"}));
    EXPECT_EQ(outputOf({"hosts", "show", "Work"}), "1.2.3.4 a!\nx\n");
}

TEST_F(HostsCommandsTest, AnEditThatChangesNothingIsNoChange) {
    add("Work");
    const Date before = now;
    now = Date{900'000'000};
    editorDoes("true");
    outputOf({"hosts", "edit", "Work"});
    EXPECT_EQ(profile("Work").updatedAt, before);
}

TEST_F(HostsCommandsTest, NothingIsLostWhereTheEditorFailsOrTheContentIsRefused) {
    add("Work");
    editorDoes("echo lost > $1; exit 3");
    EXPECT_EQ(run({"hosts", "edit", "Work"}).status, 1);
    EXPECT_EQ(profile("Work").content, "1.2.3.4 a\n");
    editorDoes("printf '\\000' > $1");
    const Outcome refused = run({"hosts", "edit", "Work"});
    EXPECT_EQ(refused.status, 1);
    const std::string kept = refused.messages.substr(refused.messages.rfind(' ') + 1);
    EXPECT_EQ(std::filesystem::file_size(kept.substr(0, kept.size() - 1)), 1U) << refused.messages;
    EXPECT_EQ(profile("Work").content, "1.2.3.4 a\n");
}

} // namespace
} // namespace vexil
