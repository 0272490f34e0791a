// SPDX-License-Identifier: Apache-2.0
// A pasteboard of ours on an X server, and other programs that copy and paste beside it.
#pragma once

#include "platform/contract/child_process.h"
#include "platform/contract/x11_pasteboard_session.h"
#include "platform/contract/x11_peer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vexil {

class X11PasteboardFixture : public testing::Test {
protected:
    X11PasteboardFixture() {
        std::string name = testing::TempDir() + "x11_pasteboard_XXXXXX";
        folder_ = mkdtemp(name.data());
    }
    X11PasteboardFixture(const X11PasteboardFixture&) = delete;
    X11PasteboardFixture& operator=(const X11PasteboardFixture&) = delete;
    ~X11PasteboardFixture() override { std::filesystem::remove_all(folder_); }

    std::string file(const std::string& name) { return folder_ / name; }
    std::string fileWith(const std::string& content) {
        const std::string path = file("input");
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    static std::string contentOf(const std::string& path) {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    // Runs `copying` and waits until our pasteboard has noticed.
    template <class Copy> auto copied(Copy copying) {
        const std::int64_t before = ours().changeCount();
        auto copier = copying();
        EXPECT_TRUE(session.runUntil([this, before] { return ours().changeCount() != before; }));
        return copier;
    }
    std::unique_ptr<ScriptedOwner> copiedBy(ScriptedOwner::Script script) {
        return copied([&script] { return std::make_unique<ScriptedOwner>(std::move(script)); });
    }
    ChildProcess copiedByXclip(const std::string& content, std::vector<std::string> options = {}) {
        std::vector<std::string> command = {"xclip", "-quiet", "-i", "-selection", "clipboard"};
        command.insert(command.end(), options.begin(), options.end());
        return copied([&] { return ChildProcess(command, fileWith(content)); });
    }

    void write(PasteboardContents contents) { ASSERT_TRUE(session.write(ours(), std::move(contents)).has_value()); }
    void writeText(std::string text) { write({.text = std::move(text), .data = {}}); }
    void writePng(const std::string& bytes) {
        PasteboardContents contents;
        contents.data.push_back({.type = pasteboard_type::kPng, .bytes = copyOf(bytesOf(bytes))});
        write(std::move(contents));
    }

    X11Pasteboard& ours() { return session.ours(); }

    // Bytes that look random and are the same every time.
    static std::string noise(std::size_t size) {
        std::string bytes(size, '\0');
        std::uint32_t state = 7;
        for (char& byte : bytes) {
            state = state * 1'664'525 + 1'013'904'223;
            byte = static_cast<char>(state >> 24);
        }
        return bytes;
    }

    // The seconds that `action` takes.
    template <class Action> static double seconds(Action action) {
        const auto start = Clock::now();
        action();
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

    X11PasteboardSession session;

private:
    std::filesystem::path folder_;
};

} // namespace vexil
