// SPDX-License-Identifier: Apache-2.0
// Where the store lives on disk, and who may serve it.
#pragma once

#include "base/result.h"
#include "store/database/store_error.h"

#include <filesystem>
#include <string_view>
#include <utility>

namespace vexil {

class StoreFolder {
public:
    // `dataHome` is the value of XDG_DATA_HOME, which counts when it is an absolute path; else `home`, the person's
    // home directory, decides.
    static Result<StoreFolder, StoreError> find(std::string_view dataHome, std::string_view home);

    explicit StoreFolder(std::filesystem::path path) : path_(std::move(path)) {}

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    [[nodiscard]] std::filesystem::path database() const { return path_ / "store.db"; }

    // Makes the folder, and what is missing above it, readable by its owner only.
    [[nodiscard]] Result<Done, StoreError> create() const;

private:
    std::filesystem::path path_;
};

// Held by the one process that serves a store; the system lets go of it when the process ends, however it ends.
class StoreLock {
public:
    // Fails where another process serves the store of `folder`, which must exist.
    static Result<StoreLock, StoreError> take(const StoreFolder& folder);
    // Whether a process holds it. Looking does not get into the way of one that is about to.
    static bool isHeld(const StoreFolder& folder);

    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;
    StoreLock(StoreLock&& other) noexcept;
    StoreLock& operator=(StoreLock&&) = delete;
    ~StoreLock();

private:
    explicit StoreLock(int descriptor) : descriptor_(descriptor) {}

    int descriptor_;
};

} // namespace vexil
