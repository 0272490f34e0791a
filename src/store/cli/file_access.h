// SPDX-License-Identifier: Apache-2.0
// Files that a person names on the command line.
#pragma once

#include "base/bytes.h"
#include "base/result.h"
#include "store/cli/command_result.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <utility>

namespace vexil {

// Closed with its owner.
class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&&) = delete;

    [[nodiscard]] int number() const { return number_; }

private:
    int number_;
};

// "FILE cannot be read: No such file or directory", with the reason of errno.
[[nodiscard]] Failure<CommandError> fileFailure(const std::filesystem::path& file, const std::string& what);

Result<Descriptor, CommandError> openForReading(const std::filesystem::path& file);
Result<Bytes, CommandError> readFile(const std::filesystem::path& file, std::size_t limit);

} // namespace vexil
