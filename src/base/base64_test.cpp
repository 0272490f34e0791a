// SPDX-License-Identifier: Apache-2.0
#include "base/base64.h"

#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <string>
#include <utility>

namespace vexil {
namespace {

std::optional<std::string> decodedText(std::string_view text) {
    const auto bytes = base64::decode(text);
    if (!bytes)
        return std::nullopt;
    return std::string(textOf(*bytes));
}

TEST(Base64Test, KnowsTheVectorsOfTheStandard) {
    const std::pair<const char*, const char*> kVectors[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
    };
    for (const auto& [plain, encoded] : kVectors) {
        EXPECT_EQ(base64::encode(bytesOf(plain)), encoded);
        EXPECT_EQ(decodedText(encoded), plain);
    }
}

TEST(Base64Test, TakesEveryLengthThereAndBack) {
    std::mt19937 random(1);
    for (std::size_t size = 0; size < 300; ++size) {
        Bytes bytes(size);
        for (auto& byte : bytes)
            byte = static_cast<std::uint8_t>(random());
        const std::string text = base64::encode(bytes);
        EXPECT_EQ(text.size(), base64::encodedSize(size));
        EXPECT_EQ(base64::decode(text), bytes) << size;
    }
}

TEST(Base64Test, WritesEveryLetterOfTheAlphabetInVectorsAndInTails) {
    Bytes bytes;
    for (unsigned group = 0; group < 64; ++group)
        bytes.insert(bytes.end(), {static_cast<std::uint8_t>(group << 2 | group >> 4),
                                   static_cast<std::uint8_t>(group << 4 | group >> 2),
                                   static_cast<std::uint8_t>(group << 6 | group)});
    std::string whole;
    for (std::size_t i = 0; i < bytes.size(); i += 3)
        whole += base64::encode(ByteView(bytes).subspan(i, 3));
    EXPECT_EQ(base64::encode(bytes), whole);
    EXPECT_EQ(whole.substr(0, 12), "AAAABBBBCCCC");
    EXPECT_EQ(whole.substr(whole.size() - 8), "++++////");
}

TEST(Base64Test, RefusesEveryForeignCharacterAtEveryPlace) {
    const std::string good = base64::encode(Bytes(60, 0x5A));
    for (std::size_t place = 0; place < good.size(); ++place) {
        for (int value = 0; value < 256; ++value) {
            std::string text = good;
            text[place] = static_cast<char>(value);
            const bool isLetter = value < 128 && (std::isalnum(value) != 0 || value == '+' || value == '/');
            EXPECT_EQ(base64::decode(text).has_value(), isLetter) << place << ' ' << value;
        }
    }
}

TEST(Base64Test, RefusesWhatTheEncoderNeverWrites) {
    for (const char* text : {"Zg", "Zg=", "Zg===", "=", "====", "Z===", "Zg==Zg==", "Zm=v", "Zm9v\n", "Zm9v ", " Zm9v",
                             "Zm9-", "Zm9_", "Zh==", "Zm9=", "Zm8=Zm8="})
        EXPECT_EQ(decodedText(text), std::nullopt) << text;
}

} // namespace
} // namespace vexil
