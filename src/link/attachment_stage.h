// SPDX-License-Identifier: Apache-2.0
// Where attachments wait for their envelope.
#pragma once

#include "base/bytes.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace vexil {

// Holds at most `limit` bytes, counting ids and a fixed cost per attachment, so that neither large attachments nor many
// small ones can fill memory.
class AttachmentStage {
public:
    static constexpr std::size_t kCostPerAttachment = 128;

    explicit AttachmentStage(std::size_t limit) : limit_(limit) {}

    // Replaces what waits under the same id. False, and nothing is staged or replaced, where the limit would be passed.
    [[nodiscard]] bool put(std::string id, Bytes bytes);

    // Hands out what waits under `id`.
    [[nodiscard]] std::optional<Bytes> take(std::string_view id);

    [[nodiscard]] std::size_t count() const { return staged_.size(); }
    [[nodiscard]] std::size_t cost() const { return cost_; }

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };

    std::size_t limit_;
    std::size_t cost_ = 0;
    std::unordered_map<std::string, Bytes, Hash, std::equal_to<>> staged_;
};

} // namespace vexil
