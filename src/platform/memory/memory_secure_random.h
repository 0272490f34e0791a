// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/secure_random.h"

#include <mutex>
#include <random>

namespace vexil {

// The same bytes in every run from the same seed. Never the same bytes twice in a run.
class MemorySecureRandom final : public SecureRandom {
public:
    explicit MemorySecureRandom(std::uint64_t seed = 1) : engine_(seed) {}

    [[nodiscard]] bool fill(std::span<std::uint8_t> out) override;

    // While it fails, fill() leaves garbage behind, as it may.
    void setFails(bool fails);

private:
    std::mutex mutex_; // guards everything below
    std::mt19937_64 engine_;
    bool fails_ = false;
};

} // namespace vexil
