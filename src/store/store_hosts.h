// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/lifetime.h"
#include "base/unique_function.h"
#include "link/clipboard_link_connection.h"
#include "link/clipboard_link_method.h"
#include "platform/main_queue.h"
#include "platform/wall_clock.h"
#include "store/database/store_database.h"
#include "store/hosts_attempt.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace vexil {

// The hosts profiles before the companion: hands them out, tells it when they changed, has it apply what another
// process asks for in the database, and writes down there what it says of itself. Main queue only.
class StoreHosts {
public:
    using Message = ClipboardLinkConnection::Message;

    // A companion that was told of a change asks for the profiles and reports its state. That report is not to be taken
    // for the outcome of an apply, so an apply waits for it, but no longer than this.
    static constexpr std::chrono::seconds kSettlingTime{2};
    // A companion that has not said for so long what came of an apply is not waited for.
    static constexpr std::chrono::minutes kMaxPatience{60};

    // Everything that is given outlives this.
    StoreHosts(MainQueue& mainQueue, const WallClock& clock, StoreDatabase& database);

    // Sends an event to the companion.
    UniqueFunction<void(ClipboardLinkMethod, ClipboardLinkPayload)> onSend;
    // A sentence for the person.
    UniqueFunction<void(const std::string&)> onNotice;
    UniqueFunction<void(const std::string&)> onFailure;

    // Clears what a process that served before left behind.
    void start();
    // This process is about to end.
    void stop();

    void linked(std::optional<bool> isHotKeyActive);
    void unlinked();
    // Answers "hosts.snapshot".
    [[nodiscard]] ClipboardLinkConnection::Reply snapshot();
    // Takes note of "hosts.state" and "shortcut.state"; other events mean nothing here.
    void handleEvent(const Message& event);
    // Another process changed the database.
    void databaseChanged();

private:
    void heard(const HostsCompanionState& state);
    void announceChange();
    void settle();
    void takeRequests();
    void serveRequests();
    void begin(const HostsRequest& request);
    void end(HostsOutcome::Kind kind);
    void tell(const HostsRequest& request, HostsOutcome::Kind kind);
    void noteLater();
    void note();
    void check(const Result<Done, StoreError>& result);
    void fail(const StoreError& error);

    MainQueue& mainQueue_;
    const WallClock& clock_;
    StoreDatabase& database_;
    CompanionStatus status_;
    bool isCompanionApplying_ = false;
    bool isNoteDue_ = false;
    std::int64_t knownRevision_ = 0; // of the profiles
    bool isChangeOwed_ = false;      // to the companion, once the attempt has ended
    bool isSettling_ = false;
    Timer settlingLimit_;
    std::deque<HostsRequest> waiting_;
    std::optional<HostsAttempt> attempt_;
    Timer patienceLimit_;
    Lifetime lifetime_;
};

} // namespace vexil
