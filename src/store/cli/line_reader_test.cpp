// SPDX-License-Identifier: Apache-2.0
#include "store/cli/file_access.h"
#include "store/cli/line_reader.h"
#include "store/database/scratch_folder_fixture.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

namespace vexil {
namespace {

class LineReaderTest : public testing::Test {
protected:
    // The lines of `text`, or what the reading of them ended with.
    std::vector<std::string> linesOf(const std::string& text, std::size_t limit = 1U << 20) {
        std::ofstream(scratch.path() / "text", std::ios::binary) << text;
        const auto file = openForReading(scratch.path() / "text");
        const InputStream input(file.value().number(), false);
        LineReader reader(input, limit);
        std::vector<std::string> lines;
        for (;;) {
            const auto line = reader.next();
            if (!line) {
                lines.push_back(line.error().sentence);
                return lines;
            }
            if (!line.value())
                break;
            lines.emplace_back(textOf(*line.value()));
            EXPECT_EQ(reader.lineNumber(), lines.size());
        }
        EXPECT_EQ(reader.bytesRead(), text.size());
        return lines;
    }
    using Lines = std::vector<std::string>;

    ScratchFolder scratch;
};

TEST_F(LineReaderTest, CutsAtNewlinesAndKeepsALastLineWithoutOne) {
    EXPECT_EQ(linesOf(""), Lines{});
    EXPECT_EQ(linesOf("\n"), Lines{""});
    EXPECT_EQ(linesOf("one\n\ntwo\n"), (Lines{"one", "", "two"}));
    EXPECT_EQ(linesOf("one\ntwo"), (Lines{"one", "two"}));
}

TEST_F(LineReaderTest, LinesAreWholeWhereverThePiecesOfTheFileEnd) {
    for (const std::size_t length : {262'143U, 262'144U, 262'145U, 700'000U}) {
        const std::string wide(length, 'x');
        EXPECT_EQ(linesOf(wide + "\nend\n" + wide), (Lines{wide, "end", wide})) << length;
    }
}

TEST_F(LineReaderTest, ALineThatIsTooLongIsNotReadToItsEnd) {
    EXPECT_EQ(linesOf("short\n" + std::string(2U << 20U, 'x'), 1000),
              (Lines{"short", "line 2 is longer than 1000 bytes"}));
}

} // namespace
} // namespace vexil
