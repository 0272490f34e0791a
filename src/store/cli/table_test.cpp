// SPDX-License-Identifier: Apache-2.0
#include "store/cli/table.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

using Align = Table::Column::Align;

Table sample(std::string last = "the rest") {
    Table table({{}, {.align = Align::right, .roomForLast = 36}, {.roomForLast = 20}, {}});
    table.addRow({{"one"}, {"5 B"}, {"today"}, {std::move(last)}});
    table.addRow({{"seven"}, {"48.2 kB"}, {""}, {""}});
    return table;
}

std::string onTerminal(const Table& table, std::size_t columns) {
    return table.text(Terminal{columns, false});
}

TEST(TableTest, ColumnsAreAlignedAndLinesHaveNoBlanksAtTheEnd) {
    EXPECT_EQ(sample().text(std::nullopt), "one        5 B  today  the rest\n"
                                           "seven  48.2 kB\n");
    EXPECT_EQ(Table(std::vector<Table::Column>(1)).text(std::nullopt), "");
}

TEST(TableTest, AColumnInWhichThereIsNothingTakesNoRoom) {
    Table table({{}, {}, {}});
    table.addRow({{"a"}, {""}, {"b"}});
    table.addRow({{"c"}, {""}, {"d"}});
    EXPECT_EQ(table.text(std::nullopt), "a  b\nc  d\n");
}

TEST(TableTest, ANarrowTerminalCostsColumnsAndThenTheEndOfTheLine) {
    const std::string rest(100, 'x');
    EXPECT_EQ(onTerminal(sample(rest), 59), "one        5 B  today  " + std::string(35, 'x') + "…\nseven  48.2 kB\n");
    EXPECT_EQ(onTerminal(sample(rest), 58), "one    today  " + std::string(43, 'x') + "…\nseven\n");
    EXPECT_EQ(onTerminal(sample(rest), 34), "one    today  " + std::string(19, 'x') + "…\nseven\n");
    EXPECT_EQ(onTerminal(sample(rest), 33), "one    " + std::string(25, 'x') + "…\nseven\n");
    EXPECT_EQ(onTerminal(sample(rest), 10), "one    xx…\nseven\n");
    EXPECT_EQ(onTerminal(sample(rest), 3), "on…\nse…\n");
    EXPECT_EQ(onTerminal(sample(rest), 1), "…\n…\n");
}

TEST(TableTest, WithoutATerminalNothingIsCut) {
    const std::string rest(5000, 'x');
    EXPECT_EQ(sample(rest).text(std::nullopt), "one        5 B  today  " + rest + "\nseven  48.2 kB\n");
}

TEST(TableTest, WideCharactersCountTwice) {
    Table table({{}, {}});
    table.addRow({{"日本"}, {"語語語語"}});
    table.addRow({{"abc"}, {"x"}});
    EXPECT_EQ(table.text(std::nullopt), "日本  語語語語\nabc   x\n");
    EXPECT_EQ(onTerminal(table, 12), "日本  語語…\nabc   x\n");
    EXPECT_EQ(onTerminal(table, 11), "日本  語語…\nabc   x\n");
    EXPECT_EQ(onTerminal(table, 14), "日本  語語語語\nabc   x\n");
}

TEST(TableTest, StylesShowOnATerminalWithColoursOnly) {
    Table table({{}, {}});
    table.addRow({{{"id", TextStyle::faint}}, {{"name", TextStyle::strong}, {" · "}, {"text", TextStyle::accent}}});
    EXPECT_EQ(table.text(std::nullopt), "id  name · text\n");
    EXPECT_EQ(onTerminal(table, 80), "id  name · text\n");
    EXPECT_EQ(table.text(Terminal{80, true}), "\x1B[2mid\x1B[0m  \x1B[1mname\x1B[0m · \x1B[33mtext\x1B[0m\n");
    EXPECT_EQ(table.text(Terminal{7, true}), "\x1B[2mid\x1B[0m  \x1B[1mna\x1B[0m…\n");
}

TEST(TableTest, ACellCannotCommandTheTerminalOrBreakTheLine) {
    Table table({{}, {}});
    table.addRow({{"a\nb"}, {"\x1B]0;title\a"}});
    for (const auto& printed : {table.text(std::nullopt), table.text(Terminal{80, true})})
        EXPECT_EQ(printed, "a␊b  ␛]0;title␇\n");
}

} // namespace
} // namespace vexil
