// SPDX-License-Identifier: Apache-2.0
#include "bench/bare_sqlite.h"

#include <cstdlib>
#include <stdexcept>

namespace vexil::bench {

ScratchFolder::ScratchFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vexil-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("no temporary folder can be made");
    path_ = pattern;
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored; // what could not be removed stays in the system's temporary folder
    std::filesystem::remove_all(path_, ignored);
}

BareSqlite::BareSqlite(const std::filesystem::path& file) {
    sqlite3* database = nullptr;
    const int code = sqlite3_open(file.c_str(), &database);
    database_.reset(database);
    check(code);
    execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA secure_delete = ON");
}

void BareSqlite::execute(const std::string& sql) {
    check(sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr));
}

void BareSqlite::prepare(const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v2(database_.get(), sql.c_str(), -1, &statement, nullptr);
    statement_.reset(statement);
    check(code);
}

int BareSqlite::stepToEnd() {
    int rows = 0;
    int code = SQLITE_ROW;
    while ((code = sqlite3_step(statement_.get())) == SQLITE_ROW)
        ++rows;
    check(code == SQLITE_DONE ? SQLITE_OK : code);
    check(sqlite3_reset(statement_.get()));
    return rows;
}

void BareSqlite::runWith(ByteView bytes) {
    check(sqlite3_bind_blob64(statement_.get(), 1, bytes.data(), bytes.size(), SQLITE_STATIC));
    stepToEnd();
}

void BareSqlite::check(int code) {
    if (code != SQLITE_OK)
        throw std::runtime_error(std::string("SQLite: ") + sqlite3_errstr(code));
}

} // namespace vexil::bench
