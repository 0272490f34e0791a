// SPDX-License-Identifier: Apache-2.0
// Short notices from any program of the session to any other.
#pragma once

#include "base/unique_function.h"

#include <map>
#include <memory>
#include <string>

namespace vexil {

// Dropping it ends the observation.
class NotificationObservation {
public:
    virtual ~NotificationObservation() = default;
};

// Main queue only. Delivery is best effort: what is posted while there is no way to deliver is lost, silently, and
// observers hear again by themselves when there is one. A poster that observes hears its own notices.
class DistributedNotifications {
public:
    using UserInfo = std::map<std::string, std::string>;

    virtual ~DistributedNotifications() = default;

    // `name` is a dotted name of at least three elements, letters and digits only.
    virtual void post(const std::string& name, const UserInfo& userInfo) = 0;

    [[nodiscard]] virtual std::unique_ptr<NotificationObservation>
    observe(const std::string& name, UniqueFunction<void(const UserInfo&)> onNotice) = 0;
};

} // namespace vexil
