// SPDX-License-Identifier: Apache-2.0
#include "store/cli/command_arguments.h"

#include <CLI/CLI.hpp>

namespace vexil {

namespace {

// What the library would say of the type of a value helps nobody.
constexpr const char* kNoType = " ";

} // namespace

void addArgument(CLI::App& command, const std::string& name, std::string& value, const std::string& help) {
    command.add_option(name, value, help)->required()->option_text(kNoType);
}

void addArgument(CLI::App& command, const std::string& name, std::optional<std::string>& value,
                 const std::string& help) {
    command
        .add_option_function<std::string>(
            name, [&value](const std::string& given) { value = given; }, help)
        ->option_text(kNoType);
}

void addArgument(CLI::App& command, const std::string& name, std::size_t& value, const std::string& help) {
    command.add_option(name, value, help)->required()->option_text(kNoType)->check(CLI::PositiveNumber);
}

void addOption(CLI::App& command, const std::string& name, const std::string& valueName, std::string& value,
               const std::string& help) {
    command.add_option(name, value, help)->option_text(valueName);
}

void addOption(CLI::App& command, const std::string& name, const std::string& valueName,
               std::optional<std::string>& value, const std::string& help) {
    command
        .add_option_function<std::string>(
            name, [&value](const std::string& given) { value = given; }, help)
        ->option_text(valueName);
}

void addOption(CLI::App& command, const std::string& name, const std::string& valueName,
               std::optional<std::size_t>& value, const std::string& help) {
    command
        .add_option_function<std::size_t>(
            name, [&value](const std::size_t& given) { value = given; }, help)
        ->option_text(valueName)
        ->check(CLI::PositiveNumber);
}

void addFlag(CLI::App& command, const std::string& name, bool& value, const std::string& help) {
    command.add_flag(name, value, help);
}

void addRemarks(CLI::App& command, const std::string& text) {
    command.footer(text);
}

} // namespace vexil
