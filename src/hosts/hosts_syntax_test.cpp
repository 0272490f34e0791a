// SPDX-License-Identifier: Apache-2.0
#include "hosts/hosts_syntax.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

namespace vexil::hosts_syntax {

void PrintTo(const Entry& entry, std::ostream* out) {
    *out << entry.line << ": " << entry.address << testing::PrintToString(entry.hostnames);
}
void PrintTo(const Issue& issue, std::ostream* out) {
    *out << issue.identifier();
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Kind = Issue::Kind;

std::vector<Entry> entriesOf(std::string_view text) {
    return parse(text).entries;
}
std::vector<Issue> issuesOf(std::string_view text) {
    return parse(text).issues;
}

TEST(HostsSyntaxTest, ALineMapsItsNamesAndEndsAtTheComment) {
    const Parsed parsed = parse("127.0.0.1 a b # note");
    EXPECT_THAT(parsed.entries, ElementsAre(Entry{"127.0.0.1", {"a", "b"}, 1}));
    EXPECT_THAT(parsed.issues, IsEmpty());
}

TEST(HostsSyntaxTest, BlankLinesAndCommentsAreNothing) {
    for (const char* text : {"", "   ", "\t \t", "# only a comment", "  # 1.2.3.4 a", "#", "\n\n\n"})
        EXPECT_EQ(parse(text), Parsed{}) << text;
}

TEST(HostsSyntaxTest, ACommentBeginsInsideAName) {
    EXPECT_THAT(entriesOf("1.2.3.4 na#me other"), ElementsAre(Entry{"1.2.3.4", {"na"}, 1}));
    EXPECT_THAT(issuesOf("1.2.3.4#a"), ElementsAre(Issue{1, Kind::missingHostname}));
}

TEST(HostsSyntaxTest, AnAddressAloneMissesItsName) {
    const Parsed parsed = parse("10.0.0.1");
    EXPECT_THAT(parsed.entries, IsEmpty());
    EXPECT_THAT(parsed.issues, ElementsAre(Issue{1, Kind::missingHostname}));
    EXPECT_THAT(issuesOf("10.0.0.1 \t # a"), ElementsAre(Issue{1, Kind::missingHostname}));
}

TEST(HostsSyntaxTest, BehindAnInvalidAddressNothingIsChecked) {
    const Parsed parsed = parse("999.1.1.1 bad!name x");
    EXPECT_THAT(parsed.entries, IsEmpty());
    EXPECT_THAT(parsed.issues, ElementsAre(Issue{1, Kind::invalidAddress, "999.1.1.1"}));
}

TEST(HostsSyntaxTest, AnEntryKeepsItsInvalidNames) {
    const Parsed parsed = parse("1.2.3.4 good bad!name a..b");
    EXPECT_THAT(parsed.entries, ElementsAre(Entry{"1.2.3.4", {"good", "bad!name", "a..b"}, 1}));
    EXPECT_THAT(parsed.issues,
                ElementsAre(Issue{1, Kind::invalidHostname, "bad!name"}, Issue{1, Kind::invalidHostname, "a..b"}));
}

TEST(HostsSyntaxTest, ANameThatComesTwiceIsKeptTwice) {
    EXPECT_THAT(entriesOf("1.2.3.4 a a"), ElementsAre(Entry{"1.2.3.4", {"a", "a"}, 1}));
    EXPECT_EQ(issuesOf("1.2.3.4 ! !").size(), 2U);
}

TEST(HostsSyntaxTest, BlanksAndTabsSeparateFieldsAndNothingElseDoes) {
    EXPECT_THAT(entriesOf("\t1.2.3.4\t\ta \t b\t"), ElementsAre(Entry{"1.2.3.4", {"a", "b"}, 1}));
    EXPECT_THAT(issuesOf("1.2.3.4 a\u00A0b"), ElementsAre(Issue{1, Kind::invalidHostname, "a\u00A0b"}));
    EXPECT_THAT(issuesOf("1.2.3.4\u00A0a"), ElementsAre(Issue{1, Kind::invalidAddress, "1.2.3.4\u00A0a"}));
    EXPECT_THAT(issuesOf("1.2.3.4 a\u3000b"), ElementsAre(Issue{1, Kind::invalidHostname, "a\u3000b"}));
}

TEST(HostsSyntaxTest, LineNumbersCountBlankLines) {
    EXPECT_THAT(issuesOf("\n\nx"), ElementsAre(Issue{3, Kind::invalidAddress, "x"}));
    EXPECT_THAT(entriesOf("# first\n\n1.2.3.4 a\n"), ElementsAre(Entry{"1.2.3.4", {"a"}, 3}));
}

TEST(HostsSyntaxTest, EveryNewlineCharacterEndsALine) {
    for (const char* newline : {"\n", "\v", "\f", "\r", "\u0085", "\u2028", "\u2029"}) {
        const std::string text = std::string("1.1.1.1 a") + newline + "2.2.2.2 b";
        EXPECT_THAT(entriesOf(text), ElementsAre(Entry{"1.1.1.1", {"a"}, 1}, Entry{"2.2.2.2", {"b"}, 2})) << newline;
    }
}

TEST(HostsSyntaxTest, CarriageReturnAndLineFeedEndALineEach) {
    EXPECT_THAT(entriesOf("1.1.1.1 a\r\n2.2.2.2 b\r\n"),
                ElementsAre(Entry{"1.1.1.1", {"a"}, 1}, Entry{"2.2.2.2", {"b"}, 3}));
}

TEST(HostsSyntaxTest, WhatOnlyBeginsLikeANewlineEndsNoLine) {
    EXPECT_THAT(issuesOf("1.1.1.1 \u2027 \u0084"),
                ElementsAre(Issue{1, Kind::invalidHostname, "\u2027"}, Issue{1, Kind::invalidHostname, "\u0084"}));
    EXPECT_EQ(issuesOf("1.1.1.1 a\xE2\x80").size(), 1U);
    EXPECT_EQ(issuesOf("1.1.1.1 a\xE2").size(), 1U);
    EXPECT_EQ(issuesOf("1.1.1.1 a\xC2").size(), 1U);
}

TEST(HostsSyntaxTest, IssuesComeInTheOrderOfTheLines) {
    EXPECT_THAT(issuesOf("x\n1.1.1.1\n1.1.1.1 ! a ?\n"),
                ElementsAre(Issue{1, Kind::invalidAddress, "x"}, Issue{2, Kind::missingHostname},
                            Issue{3, Kind::invalidHostname, "!"}, Issue{3, Kind::invalidHostname, "?"}));
}

TEST(HostsSyntaxTest, AnIssueIsIdentifiedByLineKindAndField) {
    EXPECT_EQ((Issue{3, Kind::invalidAddress, "999.1.1.1"}).identifier(), "3-addr-999.1.1.1");
    EXPECT_EQ((Issue{3, Kind::invalidHostname, "bad!name"}).identifier(), "3-host-bad!name");
    EXPECT_EQ((Issue{12, Kind::missingHostname}).identifier(), "12-nohost");
    EXPECT_EQ((Issue{3, Kind::invalidHostname, "a"}), (Issue{3, Kind::invalidHostname, "a"}));
    EXPECT_NE((Issue{3, Kind::invalidHostname, "a"}), (Issue{4, Kind::invalidHostname, "a"}));
    EXPECT_NE((Issue{3, Kind::invalidHostname, "a"}), (Issue{3, Kind::invalidAddress, "a"}));
    EXPECT_NE((Issue{3, Kind::invalidHostname, "a"}), (Issue{3, Kind::invalidHostname, "b"}));
}

TEST(HostsSyntaxTest, TheTotalCountsEveryNameOfEveryEntry) {
    EXPECT_EQ(hostnameTotal({}), 0);
    EXPECT_EQ(hostnameTotal(entriesOf("1.1.1.1 a b\n2.2.2.2 a bad!\n3.3.3.3\n")), 4);
}

TEST(HostsSyntaxTest, TakesAddressesOfBothProtocols) {
    for (const char* address : {"0.0.0.0", "255.255.255.255", "::", "::1", "fe80::1", "2001:DB8::a:b", "::ffff:1.2.3.4",
                                "0000:0000:0000:0000:0000:ffff:255.255.255.255"})
        EXPECT_TRUE(isValidAddress(address)) << address;
}

TEST(HostsSyntaxTest, TakesNoOtherWayToWriteAnAddress) {
    for (const char* address : {"", "localhost", "1", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.-4", "0x7f.0.0.1",
                                "1.2.3.4.", " 1.2.3.4", "1.2.3.4 ", "1.2.3.4/8", "[::1]", ":::", "1::2::3", "fffff::",
                                "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "0000:0000:0000:0000:0000:ffff:255.255.255.2555"})
        EXPECT_FALSE(isValidAddress(address)) << address;
    EXPECT_FALSE(isValidAddress(std::string_view("1.2.3.4\0", 8)));
    EXPECT_FALSE(isValidAddress(std::string(100'000, '1')));
}

TEST(HostsSyntaxTest, TheZoneOfAnAddressIsCutOff) {
    EXPECT_TRUE(isValidAddress("fe80::1%lo0"));
    EXPECT_TRUE(isValidAddress("1.2.3.4%x%y"));
    EXPECT_TRUE(isValidAddress("fe80::1%"));
    EXPECT_TRUE(isValidAddress("%fe80::1")) << "the empty piece in front is dropped";
    EXPECT_FALSE(isValidAddress("%lo0"));
    EXPECT_FALSE(isValidAddress("%"));
    EXPECT_FALSE(isValidAddress("%%"));
    EXPECT_THAT(entriesOf("fe80::1%lo0 host"), ElementsAre(Entry{"fe80::1%lo0", {"host"}, 1}));
    EXPECT_THAT(issuesOf("%lo0 host"), ElementsAre(Issue{1, Kind::invalidAddress, "%lo0"}));
}

TEST(HostsSyntaxTest, TakesLettersNumbersHyphensAndUnderscores) {
    for (const char* name : {"a", "Z9", "example.com", "-a-", "_dmarc.example", "1.2", "xn--bcher-kva.example"})
        EXPECT_TRUE(isValidHostname(name)) << name;
    for (const char* name : {"bad!name", "a b", "a/b", "a:b", "a@b", "*", "a*b", "\"a\"", "a,b", "a\tb"})
        EXPECT_FALSE(isValidHostname(name)) << name;
    EXPECT_FALSE(isValidHostname(std::string_view("a\0b", 3)));
}

TEST(HostsSyntaxTest, LettersAndNumbersOfAllScriptsCount) {
    for (const char* name : {"b\u00FCcher.example", "\u4F8B\u3048.jp", "\u0661\u0662", "\u2167", "\u00BD",
                             "e\u0301tat.fr", "\u0939\u093F\u0928\u094D\u0926\u0940.com", "\U00020000"})
        EXPECT_TRUE(isValidHostname(name)) << name;
    for (const char* name : {"\u20AC", "\U0001F600", "a\u200Bb", "a\u2013b", "\u0301a", "a-\u0301", "a\u3002b"})
        EXPECT_FALSE(isValidHostname(name)) << name;
}

TEST(HostsSyntaxTest, BytesThatAreNoUtf8AreNoLetters) {
    for (const char* name : {"\xFF", "a\x80", "\xC3", "\xED\xA0\x80", "\xC0\xAF"})
        EXPECT_FALSE(isValidHostname(name));
}

TEST(HostsSyntaxTest, OneDotMayEndAName) {
    EXPECT_TRUE(isValidHostname("example.com."));
    for (const char* name : {"", ".", "..", "a..", "a..b", ".a"})
        EXPECT_FALSE(isValidHostname(name)) << name;
}

TEST(HostsSyntaxTest, LabelsAndNamesHaveALengthInBytes) {
    const std::string label63(63, 'a');
    EXPECT_TRUE(isValidHostname(label63));
    EXPECT_TRUE(isValidHostname(label63 + ".b"));
    EXPECT_FALSE(isValidHostname(label63 + "a"));
    EXPECT_FALSE(isValidHostname("b." + label63 + "a"));
    std::string umlauts;
    for (int i = 0; i < 31; ++i)
        umlauts += "\u00FC";
    EXPECT_TRUE(isValidHostname(umlauts + "a")); // 63 bytes
    EXPECT_FALSE(isValidHostname(umlauts + "\u00FC"));

    const std::string name252 = label63 + "." + label63 + "." + label63 + "." + std::string(60, 'a');
    EXPECT_TRUE(isValidHostname(name252 + "a"));
    EXPECT_FALSE(isValidHostname(name252 + "aa"));
    EXPECT_TRUE(isValidHostname(name252 + "."));
    EXPECT_FALSE(isValidHostname(name252 + "a.")) << "the dot counts";
}

// Texts of pieces that matter to the parser, so that most lines mean something.
class RandomTexts {
public:
    std::string next() {
        static constexpr std::string_view kPieces[] = {
            " ",     "\t",      "\n",     "\r\n",        "\u0085",   "\u2028",   "#",
            "%",     "1.2.3.4", "::1",    "fe80::1%lo0", "10.0.0.1", "999.1.",   "localhost",
            "a.b.c", "bad!",    "\u00FC", ".",           "\xFF\xC2", "\xE2\x80", "\u00A0"};
        std::string text;
        for (std::size_t left = random_() % 60; left > 0; --left) {
            text += kPieces[random_() % std::size(kPieces)];
            text += random_() % 2 == 0 ? " " : "";
        }
        return text;
    }

private:
    std::mt19937 random_{20260101};
};

TEST(HostsSyntaxTest, TwoTextsJoinedMeanWhatTheyMeanOneByOne) {
    RandomTexts texts;
    for (int round = 0; round < 2000; ++round) {
        const std::string first = texts.next() + "\n";
        const std::string second = texts.next();
        Parsed expected = parse(first);
        const auto lines = issuesOf(first + "x").back().line - 1;
        for (Entry entry : parse(second).entries) {
            entry.line += lines;
            expected.entries.push_back(entry);
        }
        for (Issue issue : parse(second).issues) {
            issue.line += lines;
            expected.issues.push_back(issue);
        }
        ASSERT_EQ(parse(first + second), expected) << first << "--\n" << second;
    }
}

TEST(HostsSyntaxTest, WhatIsWrittenFromTheEntriesIsReadAsTheSame) {
    RandomTexts texts;
    std::size_t entries = 0;
    for (int round = 0; round < 2000; ++round) {
        std::string written;
        Parsed parsed = parse(texts.next());
        std::int64_t line = 0;
        for (Entry& entry : parsed.entries) {
            EXPECT_TRUE(isValidAddress(entry.address));
            written += entry.address;
            for (const std::string& name : entry.hostnames)
                written += " " + name;
            written += "\n";
            entry.line = ++line;
        }
        ASSERT_EQ(entriesOf(written), parsed.entries);
        entries += parsed.entries.size();
    }
    EXPECT_GT(entries, 1000U) << "the texts are to mean something";
}

} // namespace
} // namespace vexil::hosts_syntax
