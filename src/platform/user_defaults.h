// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/unique_function.h"

#include <optional>
#include <string>

namespace vexil {

// The person's persisted settings. Main queue only.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    // None where the key was never set, holds no bool, or the settings cannot be read.
    [[nodiscard]] virtual std::optional<bool> boolean(const std::string& key) const = 0;

    // boolean() answers the value from now on. Making it durable does not hold up the caller: `completion`, in a turn
    // to come, is told whether it is. Where not, the file is as it was, and the value holds for this run. Values are
    // made durable in the order in which they were set, and the end of the object waits for those that are under way.
    virtual void setBoolean(const std::string& key, bool value,
                            UniqueFunction<void(bool isDurable)> completion = nullptr) = 0;
};

} // namespace vexil
