// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

namespace vexil {

// The person's persisted settings. Main queue only.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    // None where the key was never set, holds no bool, or the settings cannot be read.
    [[nodiscard]] virtual std::optional<bool> boolean(const std::string& key) const = 0;

    // Durable when it returns true. False leaves the file as it was; the value then holds for this run.
    virtual bool setBoolean(const std::string& key, bool value) = 0;
};

} // namespace vexil
