// SPDX-License-Identifier: Apache-2.0
// Writes a PNG row by row, for speed rather than size.
#pragma once

#include "base/bytes.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace vexil {

// One thread. After a method has returned false, or none, only destruction is left.
class PngWriter {
public:
    // The layout of the rows that come, 8 bits a channel.
    enum class Pixels { rgb, rgba };

    PngWriter();
    PngWriter(const PngWriter&) = delete;
    PngWriter& operator=(const PngWriter&) = delete;
    ~PngWriter();

    [[nodiscard]] bool start(std::uint32_t width, std::uint32_t height, Pixels pixels);
    [[nodiscard]] bool writeRows(const std::uint8_t* rows, std::size_t bytesPerRow, std::uint32_t count);
    // After the last row.
    [[nodiscard]] std::optional<Bytes> finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vexil
