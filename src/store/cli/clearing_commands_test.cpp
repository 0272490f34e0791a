// SPDX-License-Identifier: Apache-2.0
#include "store/cli/command_line_fixture.h"

#include <gmock/gmock.h>

namespace vexil {
namespace {

using testing::HasSubstr;
using testing::Not;

class ClearingCommandsTest : public CommandLineFixture {
protected:
    ClearingCommandsTest() {
        add("plain");
        outputOf({"pin", add("pinned")});
        outputOf({"favorite", add("favorite")});
        before = everything();
    }
    std::string everything() { return outputOf({"list", "--json"}) + outputOf({"list", "--favorites", "--json"}); }

    std::string before;
};

TEST_F(ClearingCommandsTest, PinnedAndFavoriteEntriesStay) {
    EXPECT_EQ(outputOf({"clear", "--yes"}), "deleted 1 entry\n");
    EXPECT_THAT(everything(), Not(HasSubstr("plain")));
    EXPECT_THAT(everything(), HasSubstr("pinned"));
    EXPECT_THAT(everything(), HasSubstr("favorite"));
}

TEST_F(ClearingCommandsTest, AllIsAll) {
    outputOf({"category", "add", "work"});
    EXPECT_EQ(outputOf({"clear", "--all", "--yes"}), "deleted 3 entries\n");
    EXPECT_EQ(everything(), "[]\n[]\n");
    EXPECT_THAT(outputOf({"category", "list"}), HasSubstr("work"));
}

TEST_F(ClearingCommandsTest, WithoutATerminalThereIsNobodyToAsk) {
    input = "y\n";
    EXPECT_EQ(run({"clear"}), refused("there is nobody to ask whether to delete; say --yes to do so"));
    EXPECT_EQ(everything(), before);
}

TEST_F(ClearingCommandsTest, OnATerminalThePersonIsAsked) {
    isInputTerminal = true;
    for (const char* answer : {"n\n", "\n", "", "yep\n"}) {
        input = answer;
        EXPECT_EQ(run({"clear"}), (Outcome{1, "",
                                           "Delete the history but for pinned and favorite entries? [y/N] vexil-store: "
                                           "nothing is deleted\n"}));
        EXPECT_EQ(everything(), before);
    }
    input = "y\n";
    EXPECT_EQ(run({"clear", "--all"}),
              (Outcome{0, "deleted 3 entries\n", "Delete all entries, pinned and favorite ones too? [y/N] "}));
}

} // namespace
} // namespace vexil
