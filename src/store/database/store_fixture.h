// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/database/scratch_folder_fixture.h"
#include "store/database/store_database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace vexil {

// A store in a folder of its own, and a second connection to it.
class StoreFixture : public testing::Test {
protected:
    // A second later than the copy before.
    Uuid copy(std::string_view text) { return record(ClipboardKind::text, bytesOf(text)); }
    Uuid record(ClipboardKind kind, ByteView content) {
        const auto recorded = database.entries().record(kind, content, nextSecond());
        EXPECT_TRUE(recorded) << recorded.error().sentence;
        return recorded ? recorded->id : Uuid();
    }

    Date nextSecond() { return Date{++now}; }

    Uuid addCategory(std::string_view name, std::string_view color = "red") {
        EXPECT_EQ(database.categories().add(name, color).value(), CategoryChange::done);
        return database.categories().named(name).value()->id;
    }

    std::vector<std::string> previews(const EntryQuery& query) {
        std::vector<std::string> previews;
        const auto entries = database.lists().entries(query).value();
        for (const auto& entry : entries)
            previews.push_back(entry.row.preview);
        return previews;
    }
    std::vector<std::string> history() { return previews({}); }
    std::vector<std::string> favorites() { return previews({.scope = ClipboardScope::favorites}); }
    StoredEntry newestEntry() { return database.lists().entries({.limit = 1, .withThumbnails = true})->front(); }

    std::string textOfEntry(const Uuid& id) {
        const auto content = database.lists().content(id).value();
        return content ? std::string(textOf(content->data)) : "none";
    }
    std::int64_t revision() { return database.revision().value(); }

    ScratchFolder scratch;
    std::filesystem::path file = scratch.path() / "store.db";
    StoreDatabase database = StoreDatabase::open(file, StoreDatabase::Mode::createIfMissing).value();
    // What another program would see.
    SqliteConnection raw = SqliteConnection::open(file, SqliteConnection::Mode::existing).value();
    double now = 800'000'000;
};

} // namespace vexil
