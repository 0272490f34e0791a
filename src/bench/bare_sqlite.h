// SPDX-License-Identifier: Apache-2.0
// SQLite without the store around it: what measures of the store are held against.
#pragma once

#include "base/bytes.h"

#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <string>

namespace vexil::bench {

// A folder that is gone with its owner.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

// Throws std::runtime_error where SQLite fails.
class BareSqlite {
public:
    // With the settings that the store has: a write-ahead log, synchronous=FULL.
    explicit BareSqlite(const std::filesystem::path& file);

    void execute(const std::string& sql);
    void prepare(const std::string& sql);
    // Runs the prepared statement from its beginning to its end; how many rows it had.
    int stepToEnd();
    // The same, with its first parameter.
    void runWith(ByteView bytes);

private:
    struct Close {
        void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
    };
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };

    static void check(int code);

    std::unique_ptr<sqlite3, Close> database_;
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

} // namespace vexil::bench
