// SPDX-License-Identifier: Apache-2.0
#include "store/cli/command_streams.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

namespace vexil {
namespace {

class CommandStreamsTest : public testing::Test {
protected:
    CommandStreamsTest() { EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0); }
    ~CommandStreamsTest() override {
        ::close(ends[0]);
        closeWriter();
    }
    void closeWriter() {
        if (ends[1] >= 0)
            ::close(ends[1]);
        ends[1] = -1;
    }

    std::array<int, 2> ends{};
};

TEST_F(CommandStreamsTest, ReadsUpToTheEnd) {
    const InputStream reader(ends[0], false);
    EXPECT_TRUE(OutputStream(ends[1], std::nullopt).write("one\ntwo"));
    closeWriter();
    EXPECT_EQ(textOf(reader.readAll(7).value()), "one\ntwo");
    EXPECT_EQ(textOf(reader.readAll(7).value()), "");
}

TEST_F(CommandStreamsTest, WhatIsTooLongIsRefused) {
    const InputStream reader(ends[0], false);
    EXPECT_TRUE(OutputStream(ends[1], std::nullopt).write("one\ntwo"));
    closeWriter();
    EXPECT_EQ(reader.readAll(6).error().sentence, "the input is longer than 6 bytes");
}

TEST_F(CommandStreamsTest, ReadsOneLineAndNoMore) {
    const InputStream reader(ends[0], false);
    EXPECT_TRUE(OutputStream(ends[1], std::nullopt).write("yes\nand more"));
    closeWriter();
    EXPECT_EQ(reader.readLine().value(), "yes");
    EXPECT_EQ(reader.readLine().value(), "and more");
    EXPECT_EQ(reader.readLine().value(), "");
}

TEST_F(CommandStreamsTest, WhatCannotBeReadOrWrittenIsAFailure) {
    EXPECT_EQ(InputStream(ends[1], false).readLine().error().sentence, "the input cannot be read: Bad file descriptor");
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    const auto written = OutputStream(full, std::nullopt).write("one");
    ::close(full);
    EXPECT_EQ(written.error().sentence, "the output cannot be written: No space left on device");
}

} // namespace
} // namespace vexil
