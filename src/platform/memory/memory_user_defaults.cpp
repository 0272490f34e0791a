// SPDX-License-Identifier: Apache-2.0
#include "platform/memory/memory_user_defaults.h"

#include <utility>

namespace vexil {

MemoryUserDefaults::MemoryUserDefaults(std::shared_ptr<MemoryDefaultsFile> file)
    : file_(std::move(file)), booleans_(file_->booleans) {}

std::optional<bool> MemoryUserDefaults::boolean(const std::string& key) const {
    const auto found = booleans_.find(key);
    return found == booleans_.end() ? std::nullopt : std::optional(found->second);
}

bool MemoryUserDefaults::setBoolean(const std::string& key, bool value) {
    booleans_[key] = value;
    if (!file_->isWritable)
        return false;
    file_->booleans = booleans_;
    return true;
}

} // namespace vexil
