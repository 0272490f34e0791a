// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/bytes.h"
#include "base/date.h"
#include "store/cli/terminal.h"
#include "store/database/scratch_folder_fixture.h"
#include "store/database/store_folder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
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

    CommandLineFixture();

    Outcome run(const std::vector<std::string>& arguments);
    // What a command that must succeed prints.
    std::string outputOf(const std::vector<std::string>& arguments);
    // The id of a new text.
    std::string add(const std::string& text);
    static Outcome failed(const std::string& sentence) { return {1, "", "vexil-store: " + sentence + "\n"}; }
    static Outcome refused(const std::string& sentence) { return {2, "", "vexil-store: " + sentence + "\n"}; }

    std::filesystem::path fileNamed(const char* name) { return scratch.path() / name; }
    std::string contentOf(const char* name);

    ScratchFolder scratch;
    StoreFolder folder{scratch.path() / "vexil-store"};
    std::string input; // on standard input
    bool isInputTerminal = false;
    std::optional<Terminal> terminal;         // that standard output is taken for
    std::optional<Terminal> messagesTerminal; // and standard error
    Date now{800'000'000};                    // 2026-05-09 06:13:20
    std::function<void(std::chrono::milliseconds)> pause = [](auto) { ADD_FAILURE() << "it waits"; };
    std::function<std::optional<Bytes>(ByteView)> toJpeg = [](ByteView) { return std::nullopt; };
    std::string editor = "false";
};

} // namespace vexil
