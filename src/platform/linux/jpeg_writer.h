// SPDX-License-Identifier: Apache-2.0
// Writes a baseline JPEG row by row.
#pragma once

#include "base/bytes.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace vexil {

// One thread. After a method has returned false, or none, only destruction is left.
class JpegWriter {
public:
    static constexpr std::uint32_t kMaxDimension = 65'500; // width and height each

    // The layout of the rows that come; the fourth byte of a pixel is ignored.
    enum class Pixels { rgb, rgbx };

    JpegWriter();
    JpegWriter(const JpegWriter&) = delete;
    JpegWriter& operator=(const JpegWriter&) = delete;
    ~JpegWriter();

    // `quality` from 1 to 100.
    [[nodiscard]] bool start(std::uint32_t width, std::uint32_t height, Pixels pixels, int quality);
    [[nodiscard]] bool writeRows(const std::uint8_t* rows, std::size_t bytesPerRow, std::uint32_t count);
    // After the last row.
    [[nodiscard]] std::optional<Bytes> finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vexil
