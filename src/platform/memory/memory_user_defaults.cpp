// SPDX-License-Identifier: Apache-2.0
#include "platform/memory/memory_user_defaults.h"

#include <utility>

namespace vexil {

MemoryUserDefaults::MemoryUserDefaults(MainQueue& mainQueue, std::shared_ptr<MemoryDefaultsFile> file)
    : mainQueue_(mainQueue), file_(std::move(file)), booleans_(file_->booleans) {}

std::optional<bool> MemoryUserDefaults::boolean(const std::string& key) const {
    const auto found = booleans_.find(key);
    return found == booleans_.end() ? std::nullopt : std::optional(found->second);
}

void MemoryUserDefaults::setBoolean(const std::string& key, bool value,
                                    UniqueFunction<void(bool isDurable)> completion) {
    booleans_[key] = value;
    if (file_->isWritable)
        file_->booleans = booleans_;
    if (completion)
        mainQueue_.post(lifetime_.guard(
            [completion = std::move(completion), isDurable = file_->isWritable]() mutable { completion(isDurable); }));
}

} // namespace vexil
