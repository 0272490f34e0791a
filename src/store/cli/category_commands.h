// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vexil {

class CommandLine;

// category list, add, rename, color, move and delete.
void addCategoryCommands(CommandLine& commandLine);

} // namespace vexil
