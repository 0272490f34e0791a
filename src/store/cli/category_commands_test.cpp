// SPDX-License-Identifier: Apache-2.0
#include "store/cli/command_line_fixture.h"

#include <gmock/gmock.h>

namespace vexil {
namespace {

using testing::HasSubstr;

class CategoryCommandsTest : public CommandLineFixture {
protected:
    std::string list() { return outputOf({"category", "list"}); }
};

TEST_F(CategoryCommandsTest, WithoutAStoreThereAreNone) {
    EXPECT_EQ(list(), "");
    EXPECT_EQ(outputOf({"category", "list", "--json"}), "[]\n");
    EXPECT_FALSE(std::filesystem::exists(folder.path()));
}

TEST_F(CategoryCommandsTest, ListsThemInTheirOrderWithTheirFavorites) {
    outputOf({"category", "add", "work", "--color", "red"});
    outputOf({"category", "add", "at home"});
    outputOf({"favorite", add("hello"), "--category", "work"});
    EXPECT_EQ(list(), "1  work     red  1 favorite\n"
                      "2  at home       0 favorites\n");
    EXPECT_THAT(outputOf({"category", "list", "--json"}),
                HasSubstr(R"("name":"work","colorTag":"red","order":0,"favorites":1},)"));
}

TEST_F(CategoryCommandsTest, TheyAreRenamedColoredMovedAndDeleted) {
    for (const char* name : {"one", "two", "three"})
        outputOf({"category", "add", name});
    outputOf({"category", "rename", "two", "second"});
    outputOf({"category", "color", "second", "blue"});
    outputOf({"category", "move", "three", "1"});
    EXPECT_EQ(list(), "1  three         0 favorites\n"
                      "2  one           0 favorites\n"
                      "3  second  blue  0 favorites\n");
    outputOf({"category", "move", "three", "99"});
    outputOf({"category", "delete", "one"});
    EXPECT_EQ(list(), "1  second  blue  0 favorites\n"
                      "2  three         0 favorites\n");
}

TEST_F(CategoryCommandsTest, WhatWasFiledUnderADeletedOneStaysAFavorite) {
    outputOf({"category", "add", "work"});
    outputOf({"favorite", add("hello"), "--category", "work"});
    outputOf({"category", "delete", "work"});
    EXPECT_THAT(outputOf({"list", "--favorites"}), HasSubstr("  hello\n"));
}

TEST_F(CategoryCommandsTest, WhatCannotBeIsRefusedInASentence) {
    outputOf({"category", "add", "work"});
    EXPECT_EQ(run({"category", "add", "Work"}),
              failed("another category has that name; names differ by more than case"));
    for (const std::string& name : {std::string(), std::string(" work"), std::string("a\nb"), std::string(201, 'x')})
        EXPECT_THAT(run({"category", "add", name}).messages, HasSubstr("that is no name for a category")) << name;
    EXPECT_THAT(run({"category", "add", "home", "--color", "\x1B[31m"}).messages, HasSubstr("that is no color tag"));
    for (const char* verb : {"rename", "color", "move", "delete"}) {
        std::vector<std::string> command{"category", verb, "none"};
        if (std::string_view(verb) != "delete")
            command.emplace_back("1");
        EXPECT_EQ(run(command), failed("there is no category \"none\"; see vexil-store category list")) << verb;
    }
    EXPECT_EQ(list(), "1  work  0 favorites\n");
}

TEST_F(CategoryCommandsTest, APositionCountsFromOne) {
    outputOf({"category", "add", "work"});
    for (const char* position : {"0", "-1", "x", ""})
        EXPECT_EQ(run({"category", "move", "work", position}).status, 2) << position;
}

TEST_F(CategoryCommandsTest, OneOfItsCommandsIsRequired) {
    EXPECT_EQ(run({"category"}), refused("a command is missing; see vexil-store category --help"));
    EXPECT_EQ(run({"category", "paint"}), refused("there is no command \"paint\"; see vexil-store category --help"));
}

} // namespace
} // namespace vexil
