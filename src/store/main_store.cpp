// SPDX-License-Identifier: Apache-2.0
// The store's program: the one place that names the real services.
#include "platform/linux/asio_loopback_tcp.h"
#include "platform/linux/dbus_notifications.h"
#include "platform/linux/glib_main_queue.h"
#include "platform/linux/standard_descriptors.h"
#include "platform/linux/system_wall_clock.h"
#include "store/cli/store_commands.h"
#include "store/database/store_database.h"
#include "store/database/store_folder.h"
#include "store/store_server.h"

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>

namespace vexil {
namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;

int report(const std::string& sentence) {
    std::cerr << "vexil-store: " << sentence << '\n';
    return kFailed;
}

int exitStatus(const Result<Done, StoreError>& result) {
    return result ? EXIT_SUCCESS : report(result.error().sentence);
}

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

int serve(const StoreFolder& folder, bool isVerbose) {
    // A reader of our output, or a peer, that goes away in mid-write is an error value of the write.
    std::signal(SIGPIPE, SIG_IGN);
    if (const auto created = folder.create(); !created)
        return report(created.error().sentence);
    const auto lock = StoreLock::take(folder);
    if (!lock)
        return report(lock.error().sentence);
    auto database = StoreDatabase::open(folder.database(), StoreDatabase::Mode::createIfMissing);
    if (!database)
        return report(database.error().sentence);

    GlibMainQueue queue;
    const SystemWallClock clock;
    AsioLoopbackTcp network(queue);
    DBusNotifications notifications(queue, sessionBusAddress());
    StoreServer server(queue, clock, network, notifications, *database, VEXIL_VERSION);
    server.onFailure = [](const std::string& sentence) { report(sentence); };
    if (isVerbose) {
        server.onNotice = [](const std::string& sentence) { std::cout << sentence << std::endl; };
        server.onNotice("serving " + folder.database().string());
    }
    server.start();
    queue.runUntilTerminated();
    return EXIT_SUCCESS;
}

int run(int argc, char** argv) {
    CLI::App app("Keeps the clipboard history of Vexil Shortcut.", "vexil-store");
    app.set_version_flag("--version", "vexil-store " VEXIL_VERSION);
    app.require_subcommand(1);

    bool isVerbose = false;
    CLI::App* serving = app.add_subcommand("serve", "Record what Vexil Shortcut reports, until interrupted");
    serving->add_flag("--verbose", isVerbose, "Print a line for each copy, and whenever the link comes or goes");

    bool asJson = false;
    CLI::App* list = app.add_subcommand("list", "Print the history: pinned entries first, then the latest copy first");
    list->add_flag("--json", asJson, "Print an array of objects instead of a table");

    std::string id;
    CLI::App* show = app.add_subcommand("show", "Print the text or the image of one entry");
    show->add_option("ID", id, "The id of the entry, or enough of its beginning")->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == EXIT_SUCCESS)
            return app.exit(error); // help and version
        report(std::string(error.what()) + "; see vexil-store --help");
        return kUsage;
    }

    const auto folder = StoreFolder::find(environment("XDG_DATA_HOME"), environment("HOME"));
    if (!folder)
        return report(folder.error().sentence);
    if (serving->parsed())
        return serve(*folder, isVerbose);
    if (list->parsed())
        return exitStatus(listHistory(*folder, asJson ? ListFormat::json : ListFormat::table, STDOUT_FILENO));
    return exitStatus(showEntry(*folder, id, STDOUT_FILENO));
}

} // namespace
} // namespace vexil

int main(int argc, char** argv) {
    vexil::occupyStandardDescriptors();
    ::umask(S_IRWXG | S_IRWXO);
    return vexil::run(argc, argv);
}
