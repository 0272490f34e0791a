// SPDX-License-Identifier: Apache-2.0
#include "base/folding_table.h"
#include "base/text_folding.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

class FoldingTableTest : public testing::Test {
protected:
    // "refused" where it takes more than the table.
    std::string folded(std::string_view utf8) const {
        std::string appended = "kept";
        if (!table.appendFolded(appended, utf8))
            return appended == "kept" ? "refused" : "changed";
        return appended.substr(4);
    }

    text::FoldingTable table{[](std::string_view utf8) { return text::fold(utf8, text::CaseRules::common); }};
};

TEST_F(FoldingTableTest, FoldsWhatStandsByItself) {
    EXPECT_EQ(folded("Größe ẞ"), "grösse ss");
    EXPECT_EQ(folded("Grün, ÇA VA"), "grün, ça va");
    EXPECT_EQ(folded("Привет Ёж"), "привет ёж");
    EXPECT_EQ(folded("ΛΌΓΟΣ"), "λόγοσ");
    EXPECT_EQ(folded("Tiếng VIỆT"), "tiếng việt");
    EXPECT_EQ(folded("Ⱥ"), "ⱥ") << "two bytes become three";
    EXPECT_EQ(folded("ſ"), "s");
    EXPECT_EQ(folded("שלום مرحبا"), "שלום مرحبا");
    EXPECT_EQ(folded("世界 カタカナ ひらがな 한글 😀 “A” → ─"), "世界 カタカナ ひらがな 한글 😀 “a” → ─");
    EXPECT_EQ(folded(""), "");
}

TEST_F(FoldingTableTest, RefusesWhatGoesWithItsNeighbours) {
    EXPECT_EQ(folded("e\u0301"), "refused");
    EXPECT_EQ(folded("か\u3099"), "refused");
    EXPECT_EQ(folded("\u1100\u1161"), "refused");
    EXPECT_EQ(folded("\u0130"), "refused");
    EXPECT_EQ(folded("नमस्ते"), "refused") << "not in the table";
}

TEST_F(FoldingTableTest, RefusesWhatIsIllFormed) {
    for (const std::string_view text :
         {"\xFF", "\x80", "a\xC3", "\xC3(", "\xE4\xB8", "\xE4\xB8(", "\xF0\x9F\x98", "\xC1\x81", "\xE0\x81\x81",
          "\xF0\x84\xB8\x80", "\xED\xA0\x80", "\xF8\x88\x80\x80\x80"})
        EXPECT_EQ(folded(text), "refused");
}

} // namespace
} // namespace vexil
