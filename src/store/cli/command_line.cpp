// SPDX-License-Identifier: Apache-2.0
#include "store/cli/command_line.h"

#include "base/text_columns.h"

#include <CLI/CLI.hpp>

#include <cstdlib>
#include <utility>
#include <vector>

namespace vexil {

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr std::size_t kHelpColumn = 26;

// The command that was named, or the program itself.
const CLI::App* deepest(const CLI::App* command) {
    while (!command->get_subcommands().empty())
        command = command->get_subcommands().back();
    return command;
}

std::string fullName(const CLI::App* command) {
    const CLI::App* parent = command->get_parent();
    return parent == nullptr ? command->get_name() : fullName(parent) + " " + command->get_name();
}

class HelpFormatter final : public CLI::Formatter {
public:
    HelpFormatter() {
        column_width(kHelpColumn);
        label("Positionals", "Arguments");
        label("SUBCOMMAND", "COMMAND");
    }
    std::string make_option_name(const CLI::Option* option, bool isArgument) const override {
        std::string name = Formatter::make_option_name(option, isArgument);
        if (const auto comma = name.find(','); comma != std::string::npos)
            name.insert(comma + 1, " ");
        return name;
    }
};

CLI::App& configure(CLI::App& command) {
    command.formatter(std::make_shared<HelpFormatter>());
    command.set_help_flag("-h,--help", "Print this and end");
    return command;
}

std::string withoutBlankEnd(std::string help) {
    help.erase(help.find_last_not_of('\n') + 1);
    return help + "\n";
}

std::string sentenceOf(const CLI::ParseError& error, const CLI::App* command) {
    // A word that is no command is reported as the lack of one.
    const std::vector<std::string> unknown = command->remaining();
    const bool wantsCommand = !command->get_subcommands([](const CLI::App*) { return true; }).empty();
    std::string reason = error.what();
    if (wantsCommand)
        reason = unknown.empty() ? "a command is missing" : "there is no command \"" + unknown.front() + "\"";
    return reason + "; see " + fullName(command) + " --help";
}

void print(const OutputStream& messages, const std::string& sentence) {
    // There is no place left to say so where this cannot be written.
    static_cast<void>(messages.write("vexil-store: " + text::withVisibleControls(sentence) + "\n"));
}

} // namespace

CommandLine::CommandLine(const std::string& version)
    : app_(std::make_unique<CLI::App>("Keeps the clipboard history of Vexil Shortcut.", "vexil-store")) {
    configure(*app_).set_version_flag("--version", "vexil-store " + version, "Print the version and end");
    app_->require_subcommand(1);
}

CommandLine::~CommandLine() = default;

CLI::App& CommandLine::addCommand(CLI::App& group, const std::string& name, const std::string& description,
                                  Action action) {
    CLI::App& command = configure(*group.add_subcommand(name, description));
    command.group("Commands");
    actions_.emplace(&command, std::move(action));
    return command;
}

CLI::App& CommandLine::addCommand(const std::string& name, const std::string& description, Action action) {
    CLI::App& command = addCommand(*app_, name, description, std::move(action));
    command.group(section_);
    return command;
}

CLI::App& CommandLine::addGroup(const std::string& name, const std::string& description) {
    CLI::App& group = configure(*app_->add_subcommand(name, description));
    group.group(section_);
    group.require_subcommand(1);
    return group;
}

Result<const CommandLine::Action*, int> CommandLine::parse(int argc, const char* const* argv,
                                                           const OutputStream& output, const OutputStream& messages) {
    try {
        app_->parse(argc, argv);
        return &actions_.at(deepest(app_.get()));
    } catch (const CLI::CallForHelp&) {
        return Failure{finish(commandResult(output.write(withoutBlankEnd(app_->help()))), messages)};
    } catch (const CLI::CallForVersion& version) {
        return Failure{finish(commandResult(output.write(version.what() + std::string("\n"))), messages)};
    } catch (const CLI::ParseError& error) {
        print(messages, sentenceOf(error, deepest(app_.get())));
        return Failure{kUsage};
    }
}

int CommandLine::finish(const CommandResult& result, const OutputStream& messages) {
    if (result)
        return EXIT_SUCCESS;
    print(messages, result.error().sentence);
    return result.error().kind == CommandError::Kind::usage ? kUsage : kFailed;
}

} // namespace vexil
