// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/glib_ptr.h"
#include "platform/user_defaults.h"

#include <filesystem>
#include <string>

namespace vexil {

// Settings in the group [defaults] of a key file. Read once, when made: what cannot be read counts as absent, and is
// left alone until the next write, which replaces the file. A write goes to a new file that takes the old one's place
// when it is safe on the disk; other groups, keys and comments are kept. The folder is made on demand, for the owner
// alone.
class KeyFileUserDefaults final : public UserDefaults {
public:
    explicit KeyFileUserDefaults(std::filesystem::path file);

    [[nodiscard]] std::optional<bool> boolean(const std::string& key) const override;
    bool setBoolean(const std::string& key, bool value) override;

private:
    const std::filesystem::path file_;
    GlibPtr<GKeyFile> keys_;
};

} // namespace vexil
