// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/system_secure_random.h"
#include "platform/memory/memory_secure_random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

namespace vexil {
namespace {

template <class T> class SecureRandomContract : public testing::Test {
protected:
    T random;
};

using Implementations = testing::Types<MemorySecureRandom, SystemSecureRandom>;
TYPED_TEST_SUITE(SecureRandomContract, Implementations);

TYPED_TEST(SecureRandomContract, FillsAllOfTheSpan) {
    // Any given byte stays 0 in all of 16 fills once in 2^128 runs.
    std::vector<std::uint8_t> seen(1000);
    for (int i = 0; i < 16; ++i) {
        std::vector<std::uint8_t> bytes(seen.size());
        ASSERT_TRUE(this->random.fill(bytes));
        for (std::size_t j = 0; j < bytes.size(); ++j)
            seen[j] = static_cast<std::uint8_t>(seen[j] | bytes[j]);
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 0), 0);
}

TYPED_TEST(SecureRandomContract, NeverGivesTheSameSecretTwice) {
    std::set<std::vector<std::uint8_t>> secrets;
    for (int i = 0; i < 100; ++i) {
        std::vector<std::uint8_t> secret(32);
        ASSERT_TRUE(this->random.fill(secret));
        EXPECT_TRUE(secrets.insert(secret).second);
    }
}

TYPED_TEST(SecureRandomContract, FillsNothingAndMuchAlike) {
    EXPECT_TRUE(this->random.fill({}));
    std::vector<std::uint8_t> much(1U << 20U);
    EXPECT_TRUE(this->random.fill(much));
}

TEST(MemorySecureRandomTest, RepeatsItselfFromTheSameSeedAndFailsOnRequest) {
    MemorySecureRandom one(7);
    MemorySecureRandom two(7);
    std::vector<std::uint8_t> a(32);
    std::vector<std::uint8_t> b(32);
    ASSERT_TRUE(one.fill(a) && two.fill(b));
    EXPECT_EQ(a, b);
    one.setFails(true);
    EXPECT_FALSE(one.fill(a));
    one.setFails(false);
    EXPECT_TRUE(one.fill(a));
}

} // namespace
} // namespace vexil
