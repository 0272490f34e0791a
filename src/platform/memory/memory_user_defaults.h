// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/lifetime.h"
#include "platform/main_queue.h"
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
    explicit MemoryUserDefaults(MainQueue& mainQueue,
                                std::shared_ptr<MemoryDefaultsFile> file = std::make_shared<MemoryDefaultsFile>());

    [[nodiscard]] std::optional<bool> boolean(const std::string& key) const override;
    void setBoolean(const std::string& key, bool value,
                    UniqueFunction<void(bool isDurable)> completion = nullptr) override;

    [[nodiscard]] MemoryDefaultsFile& file() { return *file_; }

private:
    MainQueue& mainQueue_;
    std::shared_ptr<MemoryDefaultsFile> file_;
    std::map<std::string, bool> booleans_;
    Lifetime lifetime_;
};

} // namespace vexil
