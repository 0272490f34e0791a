// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/cli/store_command_line.h"
#include "store/database/scratch_folder_fixture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace vexil {

// Runs commands of vexil-store on a store of the test's own, in the time zone UTC.
class CommandLineFixture : public testing::Test {
protected:
    struct Outcome {
        int status = 0;
        std::string output;
        std::string messages;

        bool operator==(const Outcome&) const = default;
    };

    CommandLineFixture() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }

    Outcome run(const std::vector<std::string>& arguments) {
        std::ofstream(fileNamed("input"), std::ios::binary) << input;
        const int in = ::open(fileNamed("input").c_str(), O_RDONLY | O_CLOEXEC);
        const int out = openForWriting("output");
        const int err = openForWriting("messages");
        CommandContext context{
            .folder = folder,
            .input = {in, isInputTerminal},
            .output = {out, terminal},
            .messages = {err, messagesTerminal},
            .now = [this] { return now; },
            .toJpeg = [this](ByteView image) { return toJpeg(image); },
            .editor = editor,
            .temporaryFolder = scratch.path(),
        };
        const int status = runIn(context, arguments);
        for (const int descriptor : {in, out, err})
            ::close(descriptor);
        return {status, contentOf("output"), contentOf("messages")};
    }
    // What a command that must succeed prints.
    std::string outputOf(const std::vector<std::string>& arguments) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 0) << outcome.messages;
        return outcome.output;
    }
    static Outcome failed(const std::string& sentence) { return {1, "", "vexil-store: " + sentence + "\n"}; }
    static Outcome refused(const std::string& sentence) { return {2, "", "vexil-store: " + sentence + "\n"}; }

    std::filesystem::path fileNamed(const char* name) { return scratch.path() / name; }
    std::string contentOf(const char* name) {
        std::ifstream stream(fileNamed(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    ScratchFolder scratch;
    StoreFolder folder{scratch.path() / "vexil-store"};
    std::string input; // on standard input
    bool isInputTerminal = false;
    std::optional<Terminal> terminal;         // that standard output is taken for
    std::optional<Terminal> messagesTerminal; // and standard error
    Date now{800'000'000};                    // 2026-05-09 06:13:20
    std::function<std::optional<Bytes>(ByteView)> toJpeg = [](ByteView) { return std::nullopt; };
    std::string editor = "false";

private:
    static int runIn(CommandContext& context, const std::vector<std::string>& arguments) {
        CommandLine commandLine("1.2.3");
        addStoreCommands(commandLine);
        std::vector<const char*> words{"vexil-store"};
        for (const std::string& argument : arguments)
            words.push_back(argument.c_str());
        const auto action =
            commandLine.parse(static_cast<int>(words.size()), words.data(), context.output, context.messages);
        return action ? CommandLine::finish((**action)(context), context.messages) : action.error();
    }
    int openForWriting(const char* name) {
        return ::open(fileNamed(name).c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    }
};

} // namespace vexil
