// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/user_defaults.h"

#include <map>
#include <memory>

namespace vexil {

// What would be on the disk: a second MemoryUserDefaults made from it is the next run of the program.
struct MemoryDefaultsFile {
    std::map<std::string, bool> booleans;
    bool isWritable = true;
};

class MemoryUserDefaults final : public UserDefaults {
public:
    explicit MemoryUserDefaults(std::shared_ptr<MemoryDefaultsFile> file = std::make_shared<MemoryDefaultsFile>());

    [[nodiscard]] std::optional<bool> boolean(const std::string& key) const override;
    bool setBoolean(const std::string& key, bool value) override;

    [[nodiscard]] MemoryDefaultsFile& file() { return *file_; }

private:
    std::shared_ptr<MemoryDefaultsFile> file_;
    std::map<std::string, bool> booleans_;
};

} // namespace vexil
