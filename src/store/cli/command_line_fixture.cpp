// SPDX-License-Identifier: Apache-2.0
#include "store/cli/command_line_fixture.h"

#include "store/cli/command_line.h"
#include "store/cli/store_command_line.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>

namespace vexil {

namespace {

int openForWriting(const std::filesystem::path& file) {
    return ::open(file.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
}

int runIn(CommandContext& context, const std::vector<std::string>& arguments) {
    CommandLine commandLine("1.2.3");
    addStoreCommands(commandLine);
    std::vector<const char*> words{"vexil-store"};
    for (const std::string& argument : arguments)
        words.push_back(argument.c_str());
    const auto action =
        commandLine.parse(static_cast<int>(words.size()), words.data(), context.output, context.messages);
    return action ? CommandLine::finish((**action)(context), context.messages) : action.error();
}

} // namespace

CommandLineFixture::CommandLineFixture() {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
}

CommandLineFixture::Outcome CommandLineFixture::run(const std::vector<std::string>& arguments) {
    std::ofstream(fileNamed("input"), std::ios::binary) << input;
    const int in = ::open(fileNamed("input").c_str(), O_RDONLY | O_CLOEXEC);
    const int out = openForWriting(fileNamed("output"));
    const int err = openForWriting(fileNamed("messages"));
    CommandContext context{
        .folder = folder,
        .input = {in, isInputTerminal},
        .output = {out, terminal},
        .messages = {err, messagesTerminal},
        .now = [this] { return now; },
        .pause = [this](std::chrono::milliseconds time) { pause(time); },
        .toJpeg = [this](ByteView image) { return toJpeg(image); },
        .editor = editor,
        .temporaryFolder = scratch.path(),
    };
    const int status = runIn(context, arguments);
    for (const int descriptor : {in, out, err})
        ::close(descriptor);
    return {status, contentOf("output"), contentOf("messages")};
}

std::string CommandLineFixture::outputOf(const std::vector<std::string>& arguments) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.messages;
    return outcome.output;
}

std::string CommandLineFixture::add(const std::string& text) {
    const std::string id = outputOf({"add", text});
    return id.substr(0, id.find('\n'));
}

std::string CommandLineFixture::contentOf(const char* name) {
    std::ifstream stream(fileNamed(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace vexil
