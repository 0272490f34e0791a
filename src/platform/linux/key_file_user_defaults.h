// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/lifetime.h"
#include "platform/linux/glib_ptr.h"
#include "platform/linux/thread_serial_queue.h"
#include "platform/main_queue.h"
#include "platform/user_defaults.h"

#include <filesystem>
#include <string>

namespace vexil {

// Settings in the group [defaults] of a key file. Read once, when made: what cannot be read counts as absent, and is
// left alone until the next write, which replaces the file. A write goes to a new file that takes the old one's place
// when it is safe on the disk, on a thread that the first write starts: a slow disk holds nobody up. Other groups, keys
// and comments are kept. The folder is made on demand, for the owner alone.
class KeyFileUserDefaults final : public UserDefaults {
public:
    // The queue outlives the defaults.
    KeyFileUserDefaults(MainQueue& mainQueue, std::filesystem::path file);
    KeyFileUserDefaults(const KeyFileUserDefaults&) = delete;
    KeyFileUserDefaults& operator=(const KeyFileUserDefaults&) = delete;
    ~KeyFileUserDefaults() override;

    [[nodiscard]] std::optional<bool> boolean(const std::string& key) const override;
    void setBoolean(const std::string& key, bool value,
                    UniqueFunction<void(bool isDurable)> completion = nullptr) override;

private:
    MainQueue& mainQueue_;
    const std::filesystem::path file_;
    GlibPtr<GKeyFile> keys_;
    bool hasWritten_ = false;
    ThreadSerialQueue writing_{"defaults"};
    Lifetime lifetime_;
};

} // namespace vexil
