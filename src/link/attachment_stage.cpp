// SPDX-License-Identifier: Apache-2.0
#include "link/attachment_stage.h"

#include <utility>

namespace vexil {

namespace {

std::size_t costOf(std::string_view id, const Bytes& bytes) {
    return id.size() + bytes.capacity() + AttachmentStage::kCostPerAttachment;
}

} // namespace

bool AttachmentStage::put(std::string id, Bytes bytes) {
    const auto earlier = staged_.find(id);
    const std::size_t freed = earlier == staged_.end() ? 0 : costOf(id, earlier->second);
    const std::size_t added = costOf(id, bytes);
    if (cost_ - freed + added > limit_)
        return false;
    cost_ = cost_ - freed + added;
    staged_.insert_or_assign(std::move(id), std::move(bytes));
    return true;
}

std::optional<Bytes> AttachmentStage::take(std::string_view id) {
    const auto found = staged_.find(id);
    if (found == staged_.end())
        return std::nullopt;
    cost_ -= costOf(id, found->second);
    std::optional<Bytes> bytes(std::move(found->second));
    staged_.erase(found);
    return bytes;
}

} // namespace vexil
