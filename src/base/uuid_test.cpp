// SPDX-License-Identifier: Apache-2.0
#include "base/uuid.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

TEST(UuidTest, IsWrittenInUpperCase) {
    const auto id = Uuid::parse("00112233-4455-6677-8899-aabbccddeeff");
    ASSERT_TRUE(id);
    EXPECT_EQ(id->toString(), "00112233-4455-6677-8899-AABBCCDDEEFF");
}

TEST(UuidTest, ReadsEitherCaseAsTheSameValue) {
    EXPECT_EQ(Uuid::parse("ABCDEFAB-4455-6677-8899-AABBCCDDEEFF"), Uuid::parse("abcdefab-4455-6677-8899-aabbccddeeff"));
}

TEST(UuidTest, RefusesEverythingButThe36CharacterForm) {
    for (const char* text : {"", "0011", "00112233445566778899AABBCCDDEEFF", "{0112233-4455-6677-8899-AABBCCDDEEF}",
                             "00112233-4455-6677-8899-AABBCCDDEEF", "00112233-4455-6677-8899-AABBCCDDEEFF0",
                             "0011223-34455-6677-8899-AABBCCDDEEFF", "G0112233-4455-6677-8899-AABBCCDDEEFF",
                             "00112233-4455-6677-8899-AABBCCDDEE F"})
        EXPECT_EQ(Uuid::parse(text), std::nullopt) << text;
}

TEST(UuidTest, RandomOnesDifferAndAreOfTheRandomVersion) {
    const auto one = Uuid::random();
    EXPECT_NE(one, Uuid::random());
    EXPECT_EQ(one.toString().at(14), '4');
    EXPECT_NE(std::string("89AB").find(one.toString().at(19)), std::string::npos);
    EXPECT_EQ(Uuid::parse(one.toString()), one);
}

} // namespace
} // namespace vexil
