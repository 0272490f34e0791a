// SPDX-License-Identifier: Apache-2.0
// The store's program: the one place that names the real services.
#include "platform/linux/asio_loopback_tcp.h"
#include "platform/linux/dbus_notifications.h"
#include "platform/linux/glib_main_queue.h"
#include "platform/linux/pixbuf_image_codec.h"
#include "platform/linux/standard_descriptors.h"
#include "platform/linux/system_wall_clock.h"
#include "store/cli/command_line.h"
#include "store/cli/store_command_line.h"
#include "store/database/store_database.h"
#include "store/database/store_folder.h"
#include "store/store_server.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace vexil {
namespace {

constexpr double kJpegQuality = 0.85;

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

struct ServeOptions {
    bool isVerbose = false;
    std::optional<std::size_t> historyLimit;
    std::optional<std::size_t> panelRows;
};

CommandResult serve(const CommandContext& context, const ServeOptions& options) {
    const StoreFolder& folder = context.folder;
    // A reader of our output, or a peer, that goes away in mid-write is an error value of the write.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); // as is a file that may not grow any more
    if (const auto created = folder.create(); !created)
        return Failure{created.error()};
    const auto lock = StoreLock::take(folder);
    if (!lock)
        return Failure{lock.error()};
    auto database = StoreDatabase::open(folder.database(), StoreDatabase::Mode::createIfMissing);
    if (!database)
        return Failure{database.error()};
    if (options.historyLimit) {
        if (const auto set = database->entries().setHistoryLimit(*options.historyLimit); !set)
            return Failure{set.error()};
    }

    GlibMainQueue queue;
    const SystemWallClock clock;
    AsioLoopbackTcp network(queue);
    DBusNotifications notifications(queue, sessionBusAddress());
    StoreServer server(queue, clock, network, notifications, *database, VEXIL_VERSION,
                       options.panelRows.value_or(StoreService::kDefaultPanelRows));
    // There is no place left to say so where these cannot be written.
    server.onFailure = [&](const std::string& sentence) { CommandLine::finish(failure(sentence), context.messages); };
    if (options.isVerbose) {
        server.onNotice = [&](const std::string& sentence) {
            static_cast<void>(context.output.write(sentence + "\n"));
        };
        server.onNotice("serving " + folder.database().string());
    }
    server.start();
    queue.runUntilTerminated();
    server.stop();
    return Done{};
}

void addServeCommand(CommandLine& commandLine) {
    auto options = std::make_shared<ServeOptions>();
    commandLine.startSection("Service");
    CLI::App& command = commandLine.addCommand("serve", "Record what Vexil Shortcut reports, until interrupted",
                                               [options](CommandContext& context) { return serve(context, *options); });
    addFlag(command, "--verbose", options->isVerbose, "Print a line for each copy and change of the link");
    addOption(command, "--history-limit", "N", options->historyLimit, "Entries to keep, from now on (at first 1000)");
    addOption(command, "--panel-rows", "N", options->panelRows, "Entries to show in the panel (2000)");
    addRemarks(command, "Pinned and favorite entries are kept and shown besides, however many there are.\n"
                        "The limit of the history holds for commands such as add as well.");
}

std::string editor() {
    for (const char* name : {"VISUAL", "EDITOR"}) {
        if (std::string command = environment(name); !command.empty())
            return command;
    }
    return "vi";
}

std::filesystem::path temporaryFolder() {
    std::error_code none;
    std::filesystem::path folder = std::filesystem::temp_directory_path(none);
    return none ? "/tmp" : folder;
}

int run(int argc, char** argv) {
    const OutputStream output(STDOUT_FILENO, Terminal::of(STDOUT_FILENO));
    const OutputStream messages(STDERR_FILENO, Terminal::of(STDERR_FILENO));
    CommandLine commandLine(VEXIL_VERSION);
    addServeCommand(commandLine);
    addStoreCommands(commandLine);
    const auto action = commandLine.parse(argc, argv, output, messages);
    if (!action)
        return action.error();
    auto folder = StoreFolder::find(environment("XDG_DATA_HOME"), environment("HOME"));
    if (!folder)
        return CommandLine::finish(Failure{folder.error()}, messages);
    CommandContext context{
        .folder = std::move(folder).value(),
        .input = {STDIN_FILENO, ::isatty(STDIN_FILENO) == 1},
        .output = output,
        .messages = messages,
        .now = [] { return SystemWallClock().now(); },
        .pause = [](std::chrono::milliseconds time) { std::this_thread::sleep_for(time); },
        .toJpeg = [](ByteView image) { return PixbufImageCodec().toJpeg(image, kJpegQuality); },
        .editor = editor(),
        .temporaryFolder = temporaryFolder(),
    };
    return CommandLine::finish((**action)(context), messages);
}

} // namespace
} // namespace vexil

int main(int argc, char** argv) {
    vexil::occupyStandardDescriptors();
    ::umask(S_IRWXG | S_IRWXO);
    return vexil::run(argc, argv);
}
