// SPDX-License-Identifier: Apache-2.0
// The command line of vexil-store, to which each group of commands adds its own:
//
//     void addWeatherCommands(CommandLine& commandLine) {
//         auto options = std::make_shared<WeatherOptions>();
//         CLI::App& command = commandLine.addCommand(
//             "weather", "Print the weather", [options](CommandContext& context) { return weather(context, *options);
//             });
//         addArgument(command, "PLACE", options->place, "Where");
//     }
#pragma once

#include "base/result.h"
#include "store/cli/command_arguments.h"
#include "store/cli/command_context.h"
#include "store/cli/command_result.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace vexil {

class CommandLine {
public:
    // What a command does, once all of the command line was understood.
    using Action = std::function<CommandResult(CommandContext&)>;

    explicit CommandLine(const std::string& version);
    ~CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    // Adds a command, whose arguments (command_arguments.h) the caller adds to what is returned.
    // `description` is one line without a full stop.
    CLI::App& addCommand(const std::string& name, const std::string& description, Action action);
    // A command that does nothing without one of those below it.
    CLI::App& addGroup(const std::string& name, const std::string& description);
    CLI::App& addCommand(CLI::App& group, const std::string& name, const std::string& description, Action action);

    // The following commands stand below `heading` in the overview.
    void startSection(std::string heading) { section_ = std::move(heading); }

    // The action that is asked for; or the status to end with, after help, version or what was wrong was printed. An
    // action is valid as long as the command line.
    [[nodiscard]] Result<const Action*, int> parse(int argc, const char* const* argv, const OutputStream& output,
                                                   const OutputStream& messages);

    // Prints why a command failed, if it did, and returns the status to end with.
    static int finish(const CommandResult& result, const OutputStream& messages);

private:
    std::unique_ptr<CLI::App> app_;
    std::string section_ = "Commands";
    std::map<const CLI::App*, Action> actions_;
};

} // namespace vexil
