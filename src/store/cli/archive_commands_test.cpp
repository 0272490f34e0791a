// SPDX-License-Identifier: Apache-2.0
#include "base/uuid.h"
#include "store/cli/command_line_fixture.h"
#include "store/database/jpeg_fixture.h"
#include "store/database/store_database.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace vexil {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class ArchiveCommandsTest : public CommandLineFixture {
protected:
    std::string pathOf(const char* name) { return fileNamed(name).string(); }
    void write(const char* name, std::string_view content) {
        std::ofstream(fileNamed(name), std::ios::binary | std::ios::trunc) << content;
    }
    std::string addPicture() {
        write("picture.jpg", textOf(makeJpeg({64, 48})));
        return outputOf({"add", "--image", pathOf("picture.jpg")}).substr(0, 36);
    }
    StoreDatabase open() { return StoreDatabase::open(folder.database(), StoreDatabase::Mode::existing).value(); }
    void wipe() { std::filesystem::remove_all(folder.path()); }
    std::string everything() {
        return outputOf({"list", "--json"}) + outputOf({"list", "--favorites", "--json"}) +
               outputOf({"category", "list", "--json"});
    }
    // A little of everything that there is.
    void fill() {
        outputOf({"category", "add", "work", "--color", "red"});
        outputOf({"category", "add", "home"});
        const std::string plain = add("plain\n\ttext \x1B \u2028 😀");
        now.secondsSinceReference += 0.125;
        const std::string pinned = add("pinned");
        outputOf({"pin", pinned});
        outputOf({"alias", pinned, "an alias"});
        now.secondsSinceReference -= 3600; // a clock that was set back does not change the order of copies
        outputOf({"favorite", addPicture(), "--category", "home"});
        const std::string onlyFavorite = add("only a favorite");
        outputOf({"favorite", onlyFavorite, "--category", "work"});
        outputOf({"delete", onlyFavorite, "--from", "history"});
        for (const double when : {800'000'001.0, 800'000'002.5})
            EXPECT_TRUE(open().entries().use(*Uuid::parse(plain), Date{when}));
    }
    // The lines of an export that fill() leads to.
    std::vector<std::string> exportedLines() {
        outputOf({"export", pathOf("all.jsonl")});
        std::istringstream stream(contentOf("all.jsonl"));
        std::vector<std::string> lines;
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
        return lines;
    }
    static std::string joined(const std::vector<std::string>& lines) {
        std::string text;
        for (const std::string& line : lines)
            text += line + "\n";
        return text;
    }
};

TEST_F(ArchiveCommandsTest, TheHostsProfilesGoAlong) {
    fill();
    input = "10.0.0.5 api.test # east\n";
    outputOf({"hosts", "add", "Work", "-", "--disabled"});
    outputOf({"hosts", "add", "Empty"});
    const std::string before = outputOf({"hosts", "list", "--json"});
    outputOf({"export", pathOf("all.jsonl")});
    wipe();
    EXPECT_EQ(outputOf({"import", pathOf("all.jsonl")}), "imported 4 entries, 2 categories and 2 hosts profiles\n");
    EXPECT_EQ(outputOf({"hosts", "list", "--json"}), before);
    EXPECT_EQ(outputOf({"import", pathOf("all.jsonl")}), "imported 0 entries; 4 entries were there already\n");
    EXPECT_EQ(outputOf({"hosts", "list", "--json"}), before);
}

TEST_F(ArchiveCommandsTest, WhatIsExportedComesBackAsItWas) {
    fill();
    const std::string before = everything();
    EXPECT_EQ(outputOf({"export", pathOf("all.jsonl")}), "exported 4 entries\n");
    wipe();
    EXPECT_EQ(outputOf({"import", pathOf("all.jsonl")}), "imported 4 entries and 2 categories\n");
    EXPECT_EQ(everything(), before);
    const std::string exported = contentOf("all.jsonl");
    EXPECT_EQ(outputOf({"export", "-"}), exported); // with usages and dates to the last bit
}

TEST_F(ArchiveCommandsTest, WhatIsThereAlreadyStaysAsItIs) {
    fill();
    outputOf({"export", pathOf("all.jsonl")});
    const std::string id = add("newer");
    const std::string before = everything();
    EXPECT_EQ(outputOf({"import", pathOf("all.jsonl")}), "imported 0 entries; 4 entries were there already\n");
    EXPECT_EQ(everything(), before);
}

TEST_F(ArchiveCommandsTest, StandardInputAndOutputWillDo) {
    fill();
    const std::string before = everything();
    input = outputOf({"export", "-"});
    wipe();
    outputOf({"import", "-"});
    EXPECT_EQ(everything(), before);
}

TEST_F(ArchiveCommandsTest, AnExportIsPrivateAndTakesThePlaceOfAnOlderOne) {
    add("hello");
    write("all.jsonl", "older");
    ::chmod(pathOf("all.jsonl").c_str(), 0644);
    outputOf({"export", pathOf("all.jsonl")});
    EXPECT_THAT(contentOf("all.jsonl"), StartsWith(R"({"header":{"format":"vexil-store","version":1}})"));
    EXPECT_THAT(contentOf("all.jsonl"), EndsWith("{\"end\":{\"items\":1}}\n"));
    struct stat status {};
    ASSERT_EQ(::stat(pathOf("all.jsonl").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(ArchiveCommandsTest, AnExportThatFailsLeavesNothingBehind) {
    EXPECT_EQ(run({"export", pathOf("all.jsonl")}).status, 1); // there is no store
    EXPECT_FALSE(std::filesystem::exists(fileNamed("all.jsonl")));
    add("hello");
    EXPECT_EQ(run({"export", scratch.path().string()}).status, 1);
    EXPECT_EQ(run({"export", "/dev/null"}),
              failed("/dev/null is no regular file; give another name, or - for standard output"));
    EXPECT_EQ(run({"export", pathOf("none/all.jsonl")}),
              failed(pathOf("none/all.jsonl") + " cannot be written: No such file or directory"));
}

TEST_F(ArchiveCommandsTest, ATerminalIsNoPlaceForAnExport) {
    add("hello");
    terminal = Terminal{80, false};
    isInputTerminal = true;
    EXPECT_EQ(run({"export", "-"}).status, 2);
    EXPECT_EQ(run({"import", "-"}).status, 2);
}

TEST_F(ArchiveCommandsTest, ABrokenFileChangesNothingAndItsLineIsNamed) {
    fill();
    const std::vector<std::string> good = exportedLines();
    ASSERT_EQ(good.size(), 8U);
    wipe();
    add("another");
    const std::string before = everything();
    const auto check = [&](const std::string& text, const std::string& place) {
        write("broken.jsonl", text);
        const Outcome outcome = run({"import", pathOf("broken.jsonl")});
        EXPECT_EQ(outcome.status, 1) << text;
        EXPECT_THAT(outcome.messages, StartsWith("vexil-store: " + pathOf("broken.jsonl") + place)) << text;
        EXPECT_THAT(outcome.messages, EndsWith("; nothing is imported\n"));
        EXPECT_EQ(everything(), before) << text;
    };
    check("", ": this is no file that vexil-store export has written");
    check("{}\n", ":1: this is no file that vexil-store export has written");
    check("\x1F\x8B\x08", ":1: this is no file");
    check(R"({"header":{"format":"vexil-store","version":2}})", ":1: the file has version 2 of the format, this");
    for (std::size_t i = 1; i < good.size(); ++i) {
        const std::string place = ":" + std::to_string(i + 1) + ": ";
        auto lines = good;
        lines[i] = lines[i].substr(0, lines[i].size() / 2);
        check(joined(lines), place + "this is no line of an export: ");
        lines = good;
        lines[i] = R"({"somethingElse":{}})";
        check(joined(lines), place + "this is no line of an export");
        lines[i] = good[0];
        check(joined(lines), place + "the file has a second header");
        lines.assign(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(i));
        check(joined(lines), ":" + std::to_string(i) + ": the file was cut off after this line");
    }
    auto lines = good;
    lines.erase(lines.begin() + 3);
    check(joined(lines), ":7: the file has 5 items where it says 6");
    check(joined(good) + "more\n", ":9: the file goes on after its end");
    lines = good;
    lines.insert(lines.begin() + 4, lines[3]);
    check(joined(lines), ":5: the entry ");
}

TEST_F(ArchiveCommandsTest, AFileThatCannotBeReadIsNamed) {
    EXPECT_EQ(run({"import", pathOf("none.jsonl")}),
              failed(pathOf("none.jsonl") + " cannot be read: No such file or directory"));
    EXPECT_FALSE(std::filesystem::exists(folder.path()));
}

TEST_F(ArchiveCommandsTest, ProgressIsShownOnATerminalOnly) {
    add("hello");
    add("world");
    messagesTerminal = Terminal{40, false};
    const Outcome exported = run({"export", pathOf("all.jsonl")});
    EXPECT_EQ(exported.messages, "\rexporting [###########           ]  50%"
                                 "\rexporting [######################] 100%"
                                 "\r\x1B[K");
    EXPECT_THAT(run({"import", pathOf("all.jsonl")}).messages, EndsWith("] 100%\r\x1B[K"));
    messagesTerminal = Terminal{12, false};
    EXPECT_EQ(run({"export", pathOf("all.jsonl")}).messages, "");
}

} // namespace
} // namespace vexil
