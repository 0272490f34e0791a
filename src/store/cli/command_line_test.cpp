// SPDX-License-Identifier: Apache-2.0
#include "store/cli/command_line_fixture.h"

#include <gmock/gmock.h>

#include <sstream>

namespace vexil {
namespace {

using testing::HasSubstr;

class CommandLineTest : public CommandLineFixture {};

TEST_F(CommandLineTest, HelpAndVersionGoToStandardOutput) {
    EXPECT_EQ(run({"--version"}), (Outcome{0, "vexil-store 1.2.3\n", ""}));
    for (const std::vector<std::string>& asked : {std::vector<std::string>{"--help"}, {"list", "--help"}, {"-h"}}) {
        const Outcome outcome = run(asked);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_THAT(outcome.output, HasSubstr("Usage: vexil-store"));
        EXPECT_EQ(outcome.messages, "");
    }
}

TEST_F(CommandLineTest, HelpKeepsToTheWidthOfATerminal) {
    std::istringstream help(outputOf({"--help"}) + outputOf({"list", "--help"}) + outputOf({"show", "--help"}));
    for (std::string line; std::getline(help, line);)
        EXPECT_LE(line.size(), 80U) << line;
}

TEST_F(CommandLineTest, WhatIsNotUnderstoodIsOneSentenceAndStatus2) {
    EXPECT_EQ(run({}), refused("a command is missing; see vexil-store --help"));
    EXPECT_EQ(run({"show"}), refused("ID is required; see vexil-store show --help"));
    EXPECT_EQ(run({"show", "A", "B"}),
              refused("The following argument was not expected: B; see vexil-store show --help"));
    EXPECT_EQ(run({"list", "--no-such"}).status, 2);
    EXPECT_EQ(run({"no-such", "A"}), refused("there is no command \"no-such\"; see vexil-store --help"));
    EXPECT_EQ(run({"--no-such"}).status, 2);
}

TEST_F(CommandLineTest, AnErrorCannotCommandTheTerminal) {
    EXPECT_THAT(run({"show", "A", "\x1B[31m"}).messages, HasSubstr("␛[31m"));
    EXPECT_THAT(run({"no-such\x1B[31m"}).messages, HasSubstr("␛[31m"));
}

} // namespace
} // namespace vexil
