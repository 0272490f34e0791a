// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/secure_random.h"

namespace vexil {

// The kernel's generator. Fails, and does not wait, where the kernel has not gathered its first entropy yet.
class SystemSecureRandom final : public SecureRandom {
public:
    [[nodiscard]] bool fill(std::span<std::uint8_t> out) override;
};

} // namespace vexil
