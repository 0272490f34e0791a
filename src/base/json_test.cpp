// SPDX-License-Identifier: Apache-2.0
#include "base/json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace vexil {

enum class Size { small, large };
constexpr std::array<std::string_view, 2> jsonNames(json::Tag<Size>) {
    return {"small", "large"};
}

struct Label {
    std::string text;
    std::optional<std::string> font;
    bool operator==(const Label&) const = default;
};
constexpr auto jsonFields(json::Tag<Label>) {
    return std::tuple{json::Field{"text", &Label::text}, json::Field{"font", &Label::font}};
}

struct Shirt {
    Uuid id;
    Size size = Size::small;
    std::int64_t price = 0;
    int stock = 0;
    bool isSold = false;
    Date madeAt;
    Label label;
    std::vector<Label> extras;
    std::optional<std::string> print;
    std::optional<Bytes> picture;
    std::optional<std::vector<double>> sizes;
    bool operator==(const Shirt&) const = default;
};
constexpr auto jsonFields(json::Tag<Shirt>) {
    using R = Shirt;
    return std::tuple{
        json::Field{"id", &R::id},           json::Field{"size", &R::size},     json::Field{"price", &R::price},
        json::Field{"stock", &R::stock},     json::Field{"isSold", &R::isSold}, json::Field{"madeAt", &R::madeAt},
        json::Field{"label", &R::label},     json::Field{"extras", &R::extras}, json::Field{"print", &R::print},
        json::Field{"picture", &R::picture}, json::Field{"sizes", &R::sizes}};
}

namespace {

template <class T> std::string written(const T& value) {
    Bytes out;
    json::append(out, value);
    return std::string(textOf(out));
}

template <class T> std::optional<T> read(std::string_view text) {
    auto value = json::read<T>(bytesOf(text));
    if (!value)
        return std::nullopt;
    return std::move(value).value();
}

Shirt plainShirt() {
    Shirt shirt;
    shirt.id = Uuid::parse("00112233-4455-6677-8899-AABBCCDDEEFF").value();
    shirt.size = Size::large;
    shirt.price = -5;
    shirt.madeAt = Date{781234567.25};
    shirt.label.text = "cotton";
    return shirt;
}

constexpr std::string_view kPlainShirt =
    R"({"id":"00112233-4455-6677-8899-AABBCCDDEEFF","size":"large","price":-5,"stock":0,"isSold":false,)"
    R"("madeAt":781234567.25,"label":{"text":"cotton"},"extras":[]})";

TEST(JsonTest, WritesKeysInOrderAndLeavesOutWhatIsAbsent) {
    EXPECT_EQ(written(plainShirt()), kPlainShirt);
}

TEST(JsonTest, ReadsWhatItWrote) {
    Shirt shirt = plainShirt();
    EXPECT_EQ(read<Shirt>(written(shirt)), shirt);
    shirt.print = "a \"quoted\" \\ line\n\twith \x01 and \xF0\x9F\x98\x80";
    shirt.picture = Bytes{0, 1, 2, 0xFF};
    shirt.sizes = {0.1, -1e300, 5e-324, 1e21};
    shirt.extras = {{"one", "serif"}, {"", std::nullopt}};
    shirt.stock = std::numeric_limits<int>::min();
    shirt.price = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(read<Shirt>(written(shirt)), shirt);
}

TEST(JsonTest, TakesNullForAnAbsentOptional) {
    std::string text(kPlainShirt);
    text.insert(text.size() - 1, R"(,"print":null,"picture":null,"sizes":null)");
    EXPECT_EQ(read<Shirt>(text), plainShirt());
}

TEST(JsonTest, TakesKeysInAnyOrderAndSkipsUnknownOnes) {
    EXPECT_EQ(read<Label>(R"({"x":[{"text":1}],"font":"serif","\u0079":null,"text":"a"})"), (Label{"a", "serif"}));
    EXPECT_EQ(read<Label>(R"({"\u0074ext":"escaped key"})"), (Label{"escaped key", std::nullopt}));
    EXPECT_EQ(read<Label>(R"({"Text":"a"})"), std::nullopt);
}

TEST(JsonTest, NeedsEveryKeyThatIsNotOptional) {
    EXPECT_EQ(read<Label>("{}"), std::nullopt);
    EXPECT_EQ(read<Label>(R"({"font":"serif"})"), std::nullopt);
    EXPECT_EQ(read<Label>(R"({"text":null})"), std::nullopt);
}

TEST(JsonTest, LetsTheLastOfTwoEqualKeysWin) {
    EXPECT_EQ(read<Label>(R"({"text":"a","text":"b"})"), (Label{"b", std::nullopt}));
    EXPECT_EQ(read<Label>(R"({"text":"a","font":"b","font":null})"), (Label{"a", std::nullopt}));
    EXPECT_EQ(read<Label>(R"({"text":1,"text":"b"})"), std::nullopt);
    std::string twice(kPlainShirt);
    twice.insert(1, R"("label":{"text":"old","font":"serif"},"extras":[{"text":"old"}],)");
    EXPECT_EQ(read<Shirt>(twice), plainShirt());
}

TEST(JsonTest, RefusesAnEnumNameOutsideTheTable) {
    EXPECT_EQ(read<Size>(R"("large")"), Size::large);
    EXPECT_EQ(read<Size>(R"("\u006carge")"), Size::large);
    for (const char* text : {R"("Large")", R"("")", "0", "null"})
        EXPECT_EQ(read<Size>(text), std::nullopt) << text;
}

TEST(JsonTest, RefusesIntegersThatTheMemberCannotHold) {
    EXPECT_EQ(read<int>("2147483647"), 2147483647);
    EXPECT_EQ(read<int>("2147483648"), std::nullopt);
    EXPECT_EQ(read<int>("-2147483649"), std::nullopt);
}

TEST(JsonTest, ReadsIdentifiersInEitherCase) {
    EXPECT_EQ(read<Uuid>(R"("00112233-4455-6677-8899-aabbccddeeff")"), plainShirt().id);
    EXPECT_EQ(read<Uuid>(R"("00112233-4455-6677-8899-aabbccddeef")"), std::nullopt);
}

TEST(JsonTest, RefusesEveryStrictPrefixAndAnythingBehind) {
    const std::string text = written(plainShirt());
    for (std::size_t size = 0; size < text.size(); ++size)
        EXPECT_EQ(read<Shirt>(text.substr(0, size)), std::nullopt) << size;
    EXPECT_EQ(read<Shirt>(text + "\n \t\r"), plainShirt());
    EXPECT_EQ(read<Shirt>(text + "x"), std::nullopt);
    EXPECT_EQ(read<Shirt>(text + text), std::nullopt);
}

TEST(JsonTest, SurvivesEveryCorruptedByte) {
    const std::string good = written(plainShirt());
    for (std::size_t place = 0; place < good.size(); ++place) {
        for (const char byte : {'\0', '"', '\\', '{', '}', '[', ',', ':', '9', '-', '\x80', '\xFF', ' '}) {
            std::string text = good;
            text[place] = byte;
            const auto shirt = read<Shirt>(text);
            if (shirt) {
                EXPECT_EQ(read<Shirt>(written(*shirt)), shirt) << text;
            }
        }
    }
}

TEST(JsonTest, EscapesWhatHasToBeAndNothingElse) {
    EXPECT_EQ(written(std::string("a\"b\\c/d\x7F")), "\"a\\\"b\\\\c/d\x7F\"");
    EXPECT_EQ(written(std::string("\b\f\n\r\t\x01\x1F")), R"("\u0008\u000c\n\r\t\u0001\u001f")");
    EXPECT_EQ(written(std::string(1, '\0')), R"("\u0000")");
    for (int c = 0; c < 128; ++c) {
        for (std::size_t before = 0; before < 17; ++before) {
            const std::string text = std::string(before, 'x') + static_cast<char>(c) + std::string(before, 'y');
            EXPECT_EQ(read<std::string>(written(text)), text) << c << ' ' << before;
        }
    }
    const std::string controls(1000, '\x02');
    EXPECT_EQ(written(controls).size(), 6002U);
    EXPECT_EQ(read<std::string>(written(controls)), controls);
}

TEST(JsonTest, RepairsIllFormedText) {
    EXPECT_EQ(written(std::string("caf\xC3\xA9")), "\"caf\xC3\xA9\"");
    EXPECT_EQ(written(std::string("caf\xE9!")), "\"caf\xEF\xBF\xBD!\"");
    EXPECT_TRUE(read<std::string>(written(std::string("\xED\xA0\x80\xFF\xC3"))).has_value());
}

TEST(JsonTest, WritesTheShortestNumberThatReadsBack) {
    EXPECT_EQ(written(0.1), "0.1");
    EXPECT_EQ(written(2.0), "2");
    EXPECT_EQ(written(781234567.123456), "781234567.123456");
    EXPECT_EQ(written(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    for (const double value : {-0.0, 1e22, 1.7976931348623157e308, 2.2250738585072014e-308, 5e-324, 1.0 / 3})
        EXPECT_EQ(read<double>(written(value)), value);
}

TEST(JsonTest, NeverWritesInfinityOrNan) {
    for (const double value : {std::numeric_limits<double>::infinity(), std::nan("")}) {
#ifdef NDEBUG
        EXPECT_EQ(written(value), "0");
#else
        EXPECT_DEATH(written(value), "isfinite");
#endif
    }
}

TEST(JsonTest, AppendsBehindWhatIsThere) {
    Bytes out = copyOf(bytesOf("before"));
    json::append(out, std::vector<bool>{}.empty());
    json::append(out, std::vector<std::optional<int>>{1, std::nullopt});
    EXPECT_EQ(textOf(out), "beforetrue[1,null]");
}

TEST(JsonTest, ReadsOnSeveralTexts) {
    // Nothing of one text is left over for the next.
    for (int i = 0; i < 100; ++i) {
        const std::string text(static_cast<std::size_t>(i) * 1000, 'x');
        EXPECT_EQ(read<std::string>(written(text)), text);
        EXPECT_EQ(read<std::string>("\"x"), std::nullopt);
    }
}

} // namespace
} // namespace vexil
