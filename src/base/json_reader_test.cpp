// SPDX-License-Identifier: Apache-2.0
#include "base/json_reader.h"
#include "base/json_scalars.h"

#include <gtest/gtest.h>
#include <simdjson.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace vexil {
namespace {

using json::Reader;

std::optional<std::int64_t> integer(std::string_view text) {
    Reader in(bytesOf(text));
    std::int64_t value = 0;
    if (in.readInteger(value) && in.finish())
        return value;
    return std::nullopt;
}

std::optional<double> number(std::string_view text) {
    Reader in(bytesOf(text));
    double value = 0;
    if (in.readDouble(value) && in.finish())
        return value;
    return std::nullopt;
}

std::optional<std::string> string(std::string_view text) {
    Reader in(bytesOf(text));
    std::string value;
    if (in.readString(value) && in.finish())
        return value;
    return std::nullopt;
}

std::optional<Bytes> base64(std::string_view text) {
    Reader in(bytesOf(text));
    Bytes value;
    if (in.readBase64(value) && in.finish())
        return value;
    return std::nullopt;
}

bool isJson(std::string_view text) {
    Reader in(bytesOf(text));
    return in.skip() && in.finish();
}

std::string nested(int levels, std::string_view open, std::string_view close) {
    std::string text;
    for (int i = 0; i < levels; ++i)
        text += open;
    text += '0';
    for (int i = 0; i < levels; ++i)
        text += close;
    return text;
}

TEST(JsonReaderTest, ReadsIntegersByTheirValueNotTheirSpelling) {
    EXPECT_EQ(integer("0"), 0);
    EXPECT_EQ(integer("-0"), 0);
    EXPECT_EQ(integer(" 42 "), 42);
    EXPECT_EQ(integer("-17"), -17);
    EXPECT_EQ(integer("1.0"), 1);
    EXPECT_EQ(integer("1e2"), 100);
    EXPECT_EQ(integer("1.50E+1"), 15);
    EXPECT_EQ(integer("1200e-2"), 12);
    EXPECT_EQ(integer("0.00000000000000000000000001e26"), 1);
    EXPECT_EQ(integer("0e999999999999999999999"), 0);
    EXPECT_EQ(integer("9223372036854775807"), INT64_MAX);
    EXPECT_EQ(integer("-9223372036854775808"), INT64_MIN);
    EXPECT_EQ(integer("9223372036854775807.0"), INT64_MAX);
    EXPECT_EQ(integer("9007199254740993.0"), 9007199254740993);
}

TEST(JsonReaderTest, RefusesIntegersOutOfRangeOrWithAFraction) {
    for (const char* text : {"9223372036854775808", "-9223372036854775809", "1e19", "1e400", "1e99999999999999999999",
                             "1.5", "1e-1", "123e-999999999999", "100000000000000000000000000000000000000000"})
        EXPECT_EQ(integer(text), std::nullopt) << text;
}

TEST(JsonReaderTest, RefusesWhatIsNoNumber) {
    for (const char* text : {"",     "-",      "+1",  "01",   "-01",      "1.",        ".5",  "1e",  "1e+",
                             "0x10", "1_000",  "NaN", "nan",  "Infinity", "-Infinity", "inf", "1 2", "1,",
                             "1a",   "1\"a\"", "--1", "1.e5", "\"1\"",    "null",      "[1]", "1\f"}) {
        EXPECT_EQ(integer(text), std::nullopt) << text;
        EXPECT_EQ(number(text), std::nullopt) << text;
        EXPECT_FALSE(json::isNumber(text)) << text;
    }
}

TEST(JsonReaderTest, ReadsDoublesToTheLastBit) {
    EXPECT_EQ(number("0.1"), 0.1);
    EXPECT_EQ(number("781234567.123456"), 781234567.123456);
    EXPECT_EQ(number("-1.7976931348623157e308"), -1.7976931348623157e308);
    EXPECT_EQ(number("5e-324"), 5e-324);
    EXPECT_EQ(number("0e-999"), 0.0);
}

TEST(JsonReaderTest, RoundsLikeTheStandardLibrary) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 20'000; ++i) {
        std::string text = std::to_string(random() >> (random() % 60));
        text.insert(random() % text.size() + 1, random() % 4 == 0 ? "" : ".5");
        if (random() % 8 == 0)
            text.insert(0, "-");
        EXPECT_EQ(number(text), std::strtod(text.c_str(), nullptr)) << text;
    }
}

TEST(JsonReaderTest, RefusesNumbersThatADoubleCannotHold) {
    EXPECT_EQ(number("1e309"), std::nullopt);
    EXPECT_EQ(number("-1e999999"), std::nullopt);
    EXPECT_EQ(number("1e-400"), std::nullopt);
}

TEST(JsonReaderTest, ResolvesEveryEscape) {
    EXPECT_EQ(string(R"("")"), "");
    EXPECT_EQ(string(R"("plain")"), "plain");
    EXPECT_EQ(string(R"("\"\\\/\b\f\n\r\t")"), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(string(R"("a\u0041\u00e9\u20AC\uD83D\uDE00z")"), "aA\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z");
    EXPECT_EQ(string(R"("\u0000")"), std::string(1, '\0'));
    EXPECT_EQ(string("\"\xC3\xA9\""), "\xC3\xA9");
}

TEST(JsonReaderTest, RefusesBadStrings) {
    for (const char* text : {R"("\x")",
                             R"("\u12")",
                             R"("\u12G4")",
                             R"("\u+123")",
                             R"("\ud800")",
                             R"("\ud800x")",
                             R"("\ud800\n")",
                             R"("\ud800\ud800")",
                             R"("\ud800\u0041")",
                             R"("\udc00")",
                             R"("\udc00\ud800")",
                             R"("open)",
                             R"("a\")",
                             R"(")",
                             "\"a\nb\"",
                             "\"\x01\"",
                             "'a'",
                             R"("a"b)",
                             R"("a" "b")",
                             "\"\xFF\"",
                             "\"\xC3\"",
                             "\"\xED\xA0\x80\"",
                             "\"\xC0\x80\"",
                             "\"\xF4\x90\x80\x80\""}) {
        EXPECT_EQ(string(text), std::nullopt) << text;
        EXPECT_FALSE(isJson(text)) << text;
    }
}

TEST(JsonReaderTest, ReadsBase64AlsoWithEscapedSlashes) {
    EXPECT_EQ(base64(R"("")"), Bytes{});
    EXPECT_EQ(base64(R"("////")"), Bytes(3, 0xFF));
    EXPECT_EQ(base64(R"("\/\/\u002F\/")"), Bytes(3, 0xFF));
    for (const char* text : {R"("///")", R"("Zg")", R"("Zg==\n")", R"("-_-_")", R"("\q///")", "5", "null"})
        EXPECT_EQ(base64(text), std::nullopt) << text;
}

TEST(JsonReaderTest, ChecksWhatItSkips) {
    for (const char* text : {"{}", "[]", " [ 1 , {\"a\" : [ null,true , false]} ] ", R"({"a":{"a":1},"a":2})", "1e999",
                             "123456789012345678901234567890", R"("\u0041")"})
        EXPECT_TRUE(isJson(text)) << text;
    for (const char* text : {"",
                             " ",
                             "{",
                             "}",
                             "[",
                             "]",
                             "[1",
                             "[1,",
                             "[1,]",
                             "[,1]",
                             "[1 2]",
                             "{\"a\"}",
                             "{\"a\":}",
                             "{\"a\":1,}",
                             "{,}",
                             "{1:2}",
                             "{\"a\" 1}",
                             "{\"a\":1 \"b\":2}",
                             "{\"a\"::1}",
                             "[1}",
                             "{\"a\":1]",
                             "tru",
                             "truex",
                             "True",
                             "nulll",
                             "[tru]",
                             "{} {}",
                             "{}x",
                             "1]",
                             "[]]",
                             "[1]\\",
                             "\\",
                             "[\\\"a\"]",
                             "\xEF\xBB\xBF{}",
                             "[\x0C]",
                             "[1\x1A]",
                             "{\"\\x\":1}",
                             "// c\n1",
                             ":",
                             ",",
                             "\"a\":1"})
        EXPECT_FALSE(isJson(text)) << text;
}

TEST(JsonReaderTest, AgreesWithSimdjsonOnEveryCutOfADocument) {
    const std::string whole = R"( {"a":[1,-2.5e3,true,null,"x\u00e9\n"],"b":{"c":{}, "d":[]},"e":""} )";
    simdjson::dom::parser parser;
    for (std::size_t first = 0; first < whole.size(); ++first) {
        for (std::size_t size = 0; first + size <= whole.size(); ++size) {
            const std::string text = whole.substr(first, size);
            EXPECT_EQ(isJson(text), parser.parse(text).error() == simdjson::SUCCESS) << text;
        }
    }
}

TEST(JsonReaderTest, RefusesDeepNestingWithoutRecursingIntoIt) {
    EXPECT_TRUE(isJson(nested(json::kMaxDepth, "[", "]")));
    EXPECT_FALSE(isJson(nested(json::kMaxDepth + 1, "[", "]")));
    EXPECT_FALSE(isJson(nested(1000, "[", "]")));
    EXPECT_FALSE(isJson(nested(1000, "{\"a\":", "}")));
    EXPECT_FALSE(isJson(std::string(1U << 20, '[')));
}

TEST(JsonReaderTest, SaysWhereItStopped) {
    const std::string_view text = R"({"a": 1, "b": tru})";
    Reader in(bytesOf(text));
    EXPECT_FALSE(in.skip());
    EXPECT_EQ(in.error().offset, text.find("tru"));
    EXPECT_EQ(in.error().reason, "expected a value");
}

TEST(JsonReaderTest, StaysFailed) {
    Reader in(bytesOf("[1, x, 2]"));
    EXPECT_FALSE(in.skip());
    const auto first = in.error();
    EXPECT_FALSE(in.skip());
    EXPECT_FALSE(in.takeNull());
    EXPECT_FALSE(in.finish());
    EXPECT_EQ(in.error(), first);
}

TEST(JsonReaderTest, ReadsAgainFromAMark) {
    Reader in(bytesOf(R"([{"a":5},7])"));
    std::optional<Reader::Mark> mark;
    EXPECT_TRUE(in.readArray([&] {
        if (!mark)
            mark = in.mark();
        return in.skip();
    }));
    EXPECT_TRUE(in.finish());
    in.rewind(*mark);
    std::int64_t value = 0;
    EXPECT_FALSE(in.readInteger(value));
    in.rewind(*mark);
    EXPECT_TRUE(in.readObject([&](std::string_view key) { return key == "a" && in.readInteger(value); }));
    EXPECT_EQ(value, 5);
}

TEST(JsonReaderTest, ReadsNothingPastTheEndOfTheText) {
    // A heap buffer of the exact size, so that the address sanitizer sees one byte too many.
    for (const std::string_view text : {"12", "\"a", "{\"a\":1", "tru", "[", "\"\\", "1e", "\"\\ud83d"}) {
        const Bytes exact = copyOf(bytesOf(text));
        Reader in(exact);
        EXPECT_EQ(in.skip() && in.finish(), text == "12") << text;
    }
}

} // namespace
} // namespace vexil
