// SPDX-License-Identifier: Apache-2.0
#include "store/hosts_attempt.h"

#include <utility>

namespace vexil {

std::optional<HostsOutcome::Kind> HostsAttempt::heard(const HostsCompanionState& state) {
    if (state.isApplying) {
        hasBegun_ = true;
        wasApplying_ = true;
        return std::nullopt;
    }
    if (std::exchange(isBehindAnother_, false)) {
        hasBegun_ = false;
        return std::nullopt;
    }
    if (!hasBegun_ && !isReached(state))
        return std::nullopt;
    return state.lastError ? HostsOutcome::Kind::failed : HostsOutcome::Kind::done;
}

HostsOutcome::Kind HostsAttempt::atEndOfPatience() const {
    return wasApplying_ ? HostsOutcome::Kind::notFinished : HostsOutcome::Kind::nothingHeard;
}

// A companion that has the profiles already, or finds nothing to do, may say no more than this.
bool HostsAttempt::isReached(const HostsCompanionState& state) const {
    const bool isAsWanted = request_.removeAll ? state.appliedProfileCount == 0 : state.isInSync;
    return isAsWanted && !state.lastError;
}

} // namespace vexil
