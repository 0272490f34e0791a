// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/lifetime.h"
#include "base/unique_function.h"
#include "platform/main_queue.h"
#include "store/database/store_database.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace vexil {

// Notices what other processes change in the database, within kInterval. To look costs a few microseconds and no access
// to the disk: SQLite compares a number in memory that the processes share. Main queue only.
class StoreWatch {
public:
    static constexpr Duration kInterval = std::chrono::seconds(1);

    // Both outlive the watch.
    StoreWatch(MainQueue& mainQueue, StoreDatabase& database);

    // Something was changed, by whatever of the program's commands. Set before start().
    UniqueFunction<void()> onChange;
    // A sentence for the person, once for a run of failures.
    UniqueFunction<void(const std::string&)> onFailure;

    // What was changed before is not reported.
    void start();

private:
    void wait();
    void look();
    [[nodiscard]] std::optional<std::int64_t> read();

    MainQueue& mainQueue_;
    StoreDatabase& database_;
    std::optional<std::int64_t> seen_;
    bool isFailing_ = false;
    Timer timer_;
    Lifetime lifetime_;
};

} // namespace vexil
