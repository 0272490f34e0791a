// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/result.h"
#include "store/cli/command_result.h"
#include "store/cli/file_access.h"

#include <filesystem>
#include <string>
#include <utility>

namespace vexil {

// A file that takes the place of another one, or of none, once it is whole: it is written beside it, readable by its
// owner only, and renamed in the end. Gone with its owner where it did not come to that.
class ReplacedFile {
public:
    // Follows symbolic links. Fails where `file` is there and is no regular file.
    static Result<ReplacedFile, CommandError> create(const std::filesystem::path& file);
    ~ReplacedFile();
    ReplacedFile(const ReplacedFile&) = delete;
    ReplacedFile& operator=(const ReplacedFile&) = delete;
    ReplacedFile(ReplacedFile&& other) noexcept
        : file_(std::move(other.file_)),
          temporary_(std::exchange(other.temporary_, {})),
          descriptor_(std::move(other.descriptor_)) {}
    ReplacedFile& operator=(ReplacedFile&&) = delete;

    [[nodiscard]] int descriptor() const { return descriptor_.number(); }
    // Once everything is written.
    CommandResult finish();

private:
    ReplacedFile(std::filesystem::path file, std::string temporary, int descriptor)
        : file_(std::move(file)), temporary_(std::move(temporary)), descriptor_(descriptor) {}

    std::filesystem::path file_;
    std::string temporary_; // empty once it has its name
    Descriptor descriptor_;
};

} // namespace vexil
