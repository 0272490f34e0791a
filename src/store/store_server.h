// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/lifetime.h"
#include "base/unique_function.h"
#include "platform/distributed_notifications.h"
#include "platform/loopback_tcp.h"
#include "platform/main_queue.h"
#include "platform/wall_clock.h"
#include "store/companion_link.h"
#include "store/database/store_database.h"
#include "store/store_hosts.h"
#include "store/store_service.h"
#include "store/store_watch.h"

#include <cstddef>
#include <string>

namespace vexil {

// Serves one database to one companion after the other. Main queue only.
class StoreServer {
public:
    // Everything that is given outlives the server. `build` is what the companion is told of our version.
    StoreServer(MainQueue& mainQueue, const WallClock& clock, LoopbackTcp& network,
                DistributedNotifications& notifications, StoreDatabase& database, std::string build,
                std::size_t panelRows = StoreService::kDefaultPanelRows);

    // Sentences for the person: what goes on, and what went wrong. Set before start().
    UniqueFunction<void(const std::string&)> onNotice;
    UniqueFunction<void(const std::string&)> onFailure;

    void start();
    // Before the process ends: takes back what the database says of the companion.
    void stop();

private:
    [[nodiscard]] StoreService::Answer answer(const CompanionLink::Message& request);
    void notice(const std::string& sentence);
    void fail(const std::string& sentence);
    void helloFailed(const HelloFailure& failure);

    StoreService service_;
    StoreHosts hosts_;
    StoreWatch watch_;
    CompanionLink link_;
    std::string lastHelloFailure_; // the sentence that was said, until a hello is accepted
    Lifetime lifetime_;
};

} // namespace vexil
