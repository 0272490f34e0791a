// SPDX-License-Identifier: Apache-2.0
#include "base/text_columns.h"

#include <gtest/gtest.h>

#include <string>

namespace vexil::text {
namespace {

TEST(TextColumnsTest, AWideCharacterTakesTwoColumnsAndAMarkNone) {
    EXPECT_EQ(columnCount(""), 0U);
    EXPECT_EQ(columnCount("plain"), 5U);
    EXPECT_EQ(columnCount("größe"), 5U);
    EXPECT_EQ(columnCount("e\u0301"), 1U);
    EXPECT_EQ(columnCount("日本"), 4U);
    EXPECT_EQ(columnCount("ｆｕｌｌ"), 8U);
    EXPECT_EQ(columnCount("ﾊﾝｶｸ"), 4U);
    EXPECT_EQ(columnCount("한국"), 4U);
    EXPECT_EQ(columnCount("\u1112\u1161\u11AB"), 2U); // one syllable, spelled in its parts
    EXPECT_EQ(columnCount("a\u200Bb"), 2U);
    EXPECT_EQ(columnCount("שלום"), 4U);
}

TEST(TextColumnsTest, AnEmojiTakesTwoColumnsWhateverItIsJoinedFrom) {
    for (const char* emoji : {"😀", "👩‍👩‍👧‍👦", "👍🏽", "❤️", "🇩🇪", "1️⃣"})
        EXPECT_EQ(columnCount(emoji), 2U) << emoji;
    EXPECT_EQ(columnCount("❤"), 1U); // as a text, without the mark that makes it an emoji
}

TEST(TextColumnsTest, ACutEndsBeforeTheCharacterThatDoesNotFit) {
    EXPECT_EQ(cutToColumns("plain", 3), "pla");
    EXPECT_EQ(cutToColumns("plain", 9), "plain");
    EXPECT_EQ(cutToColumns("日本語", 4), "日本");
    EXPECT_EQ(cutToColumns("日本語", 3), "日");
    EXPECT_EQ(cutToColumns("日本語", 0), "");
    EXPECT_EQ(cutToColumns("a👩‍👩‍👧‍👦b", 2), "a");
    EXPECT_EQ(cutToColumns("a👩‍👩‍👧‍👦b", 3), "a👩‍👩‍👧‍👦");
    EXPECT_EQ(cutToColumns("e\u0301e\u0301", 1), "e\u0301");
}

TEST(TextColumnsTest, WhatWouldCommandATerminalIsMadeVisible) {
    EXPECT_EQ(withVisibleControls("plain größe 日本 👩‍👩‍👧‍👦"),
              "plain größe 日本 👩‍👩‍👧‍👦");
    EXPECT_EQ(withVisibleControls("\x1B[31mred\a\x7F"), "␛[31mred␇␡");
    EXPECT_EQ(withVisibleControls(std::string_view("a\0b", 3)), "a␀b");
    EXPECT_EQ(withVisibleControls("\u009B31m"), "\uFFFD31m"); // the same in one C1 character
    EXPECT_EQ(withVisibleControls("a\u202Etxt.exe\u2066"), "a\uFFFDtxt.exe\uFFFD");
    EXPECT_EQ(withVisibleControls("a\u2028b"), "a\uFFFDb");
    EXPECT_EQ(withVisibleControls("a\xFF\x9B"), "a\uFFFD\uFFFD");
}

TEST(TextColumnsTest, LineBreaksAndTabsStayWhereTheyAreKept) {
    EXPECT_EQ(withVisibleControls("a\n\tb\r\n"), "a␊␉b␍␊");
    EXPECT_EQ(withVisibleControls("a\n\tb\r\n", LineBreaks::keep), "a\n\tb␍\n");
}

} // namespace
} // namespace vexil::text
