// SPDX-License-Identifier: Apache-2.0
// Reads a PNG row by row.
#pragma once

#include "base/bytes.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace vexil {

// One thread. Every kind of PNG comes as 8-bit RGB or RGBA. After a method has returned false only destruction is left.
class PngRows {
public:
    explicit PngRows(ByteView image); // outlives the rows
    PngRows(const PngRows&) = delete;
    PngRows& operator=(const PngRows&) = delete;
    ~PngRows();

    // Reads up to the first row; nothing of the image's size is allocated. False where this is no PNG.
    [[nodiscard]] bool open();
    [[nodiscard]] std::uint32_t width() const;
    [[nodiscard]] std::uint32_t height() const;

    // Before the first row; false where the rows cannot be prepared. An interlaced image is read here as a whole, since
    // none of its rows is complete before the last pass.
    [[nodiscard]] bool startRows();
    [[nodiscard]] bool hasAlpha() const;
    [[nodiscard]] std::size_t bytesPerRow() const;
    [[nodiscard]] bool readRows(std::uint8_t* rows, std::uint32_t count);
    // After the last row: false where the rest of the file is cut off or damaged.
    [[nodiscard]] bool finish();

private:
    [[nodiscard]] bool prepareRows();
    [[nodiscard]] bool readPasses();

    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vexil
