// SPDX-License-Identifier: Apache-2.0
#include "platform/memory/memory_secure_random.h"

#include <algorithm>

namespace vexil {

bool MemorySecureRandom::fill(std::span<std::uint8_t> out) {
    const std::lock_guard lock(mutex_);
    if (fails_) {
        std::fill(out.begin(), out.end(), std::uint8_t{0xAA});
        return false;
    }
    std::generate(out.begin(), out.end(), [this] { return static_cast<std::uint8_t>(engine_() >> 56U); });
    return true;
}

void MemorySecureRandom::setFails(bool fails) {
    const std::lock_guard lock(mutex_);
    fails_ = fails;
}

} // namespace vexil
