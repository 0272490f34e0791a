// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace vexil {

// A folder of a test's own, gone with it.
class ScratchFolder {
public:
    ScratchFolder() {
        std::string pattern = testing::TempDir() + "vexil-store-XXXXXX";
        const char* made = ::mkdtemp(pattern.data());
        EXPECT_NE(made, nullptr);
        path_ = pattern;
    }
    ~ScratchFolder() {
        std::error_code ignored; // what could not be removed stays in the system's temporary folder
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace vexil
