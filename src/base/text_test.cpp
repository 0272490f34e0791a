// SPDX-License-Identifier: Apache-2.0
#include "base/text.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

TEST(TextTest, CountsCharactersAsAPersonSeesThem) {
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
    const std::string combined = "e\u0301";
    const std::string flag = "\U0001F1E9\U0001F1EA";
    for (const auto& one : {family, combined, flag, std::string("\r\n")}) {
        EXPECT_FALSE(text::hasMoreCharactersThan(one, 1)) << one;
        EXPECT_TRUE(text::hasMoreCharactersThan(one, 0)) << one;
    }
}

TEST(TextTest, TheLimitItselfIsWithin) {
    EXPECT_FALSE(text::hasMoreCharactersThan(std::string(4096, 'x'), 4096));
    EXPECT_TRUE(text::hasMoreCharactersThan(std::string(4097, 'x'), 4096));
    std::string accents;
    for (int i = 0; i < 4096; ++i)
        accents += "e\u0301";
    EXPECT_FALSE(text::hasMoreCharactersThan(accents, 4096));
    EXPECT_TRUE(text::hasMoreCharactersThan(accents + "x", 4096));
}

TEST(TextTest, RepairsIllFormedSequencesOnly) {
    EXPECT_EQ(text::repairedUtf8("gr\u00fcn"), "gr\u00fcn");
    EXPECT_EQ(text::repairedUtf8("a\xff"
                                 "b"),
              "a\uFFFDb");
    EXPECT_TRUE(text::isValidUtf8(text::repairedUtf8("\xed\xa0\x80\xc3")));
    EXPECT_FALSE(text::isValidUtf8("\xed\xa0\x80"));
}

TEST(TextTest, ReadsLatin1) {
    EXPECT_EQ(text::fromLatin1("gr\xfc\xdf"
                               "e"),
              "gr\u00fc\u00dfe");
}

} // namespace
} // namespace vexil
