// SPDX-License-Identifier: Apache-2.0
// What a command takes on the command line. Each of these outlives the parsing, and is filled in by it. `help` is one
// line without a full stop. The library behind it is heavy to compile, and so is seen by command_line.cpp and
// command_arguments.cpp alone, and by whoever needs more of it than this.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace CLI { // NOLINT(readability-identifier-naming): the library has named it
class App;
}

namespace vexil {

// Words that stand by themselves, in this order. `name` is in capitals.
void addArgument(CLI::App& command, const std::string& name, std::string& value, const std::string& help);
void addArgument(CLI::App& command, const std::string& name, std::optional<std::string>& value,
                 const std::string& help); // may be missing
void addArgument(CLI::App& command, const std::string& name, std::size_t& value,
                 const std::string& help); // from 1

// Options with a value, which the help calls `valueName`. `name` begins with two hyphens.
void addOption(CLI::App& command, const std::string& name, const std::string& valueName, std::string& value,
               const std::string& help);
void addOption(CLI::App& command, const std::string& name, const std::string& valueName,
               std::optional<std::string>& value, const std::string& help);
void addOption(CLI::App& command, const std::string& name, const std::string& valueName,
               std::optional<std::size_t>& value,
               const std::string& help); // from 1

void addFlag(CLI::App& command, const std::string& name, bool& value, const std::string& help);

// Stands below the help of the command: examples, and what needs more words than a line.
void addRemarks(CLI::App& command, const std::string& text);

} // namespace vexil
