// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "link/hosts_records.h"
#include "store/database/hosts_requests.h"

#include <optional>

namespace vexil {

// Tells from what a companion says when it is done with one "hosts.apply", to which there is no reply: the companion
// asks for the profiles, may report that it is applying, and reports its state when it is done. It also reports its
// state on other occasions.
class HostsAttempt {
public:
    // `isBehindAnother`: the companion was applying something else when it was asked, and finishes that first.
    HostsAttempt(const HostsRequest& request, bool isBehindAnother)
        : request_(request), isBehindAnother_(isBehindAnother) {}

    [[nodiscard]] const HostsRequest& request() const { return request_; }

    // The companion has been given the profiles.
    void profilesGiven() { hasBegun_ = true; }
    // The outcome, once this state is the end of the attempt.
    [[nodiscard]] std::optional<HostsOutcome::Kind> heard(const HostsCompanionState& state);
    // The outcome where there will be no more.
    [[nodiscard]] HostsOutcome::Kind atEndOfPatience() const;

private:
    [[nodiscard]] bool isReached(const HostsCompanionState& state) const;

    HostsRequest request_;
    bool isBehindAnother_;
    bool hasBegun_ = false; // the next state that is no longer "applying" is the outcome
    bool wasApplying_ = false;
};

} // namespace vexil
