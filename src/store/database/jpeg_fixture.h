// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/bytes.h"
#include "store/database/jpeg_image.h"

#include <jpeglib.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace vexil {

// A JPEG of the given size whose left half is dark and whose right half is bright, with some noise where asked for.
inline Bytes makeJpeg(PixelSize size, bool isProgressive = false, bool isNoisy = false) {
    jpeg_error_mgr errors{};
    jpeg_compress_struct codec{};
    codec.err = jpeg_std_error(&errors);
    jpeg_create_compress(&codec);
    unsigned char* out = nullptr;
    unsigned long outSize = 0;
    jpeg_mem_dest(&codec, &out, &outSize);
    codec.image_width = size.width;
    codec.image_height = size.height;
    codec.input_components = 3;
    codec.in_color_space = JCS_RGB;
    jpeg_set_defaults(&codec);
    if (isProgressive)
        jpeg_simple_progression(&codec);
    jpeg_start_compress(&codec, TRUE);
    std::vector<std::uint8_t> row(std::size_t{size.width} * 3);
    std::uint32_t noise = 1;
    while (codec.next_scanline < codec.image_height) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            noise = noise * 1'664'525 + 1'013'904'223;
            const std::uint32_t base = i / 3 * 2 < size.width ? 40 : 200;
            row[i] = static_cast<std::uint8_t>(isNoisy ? noise >> 24 : base);
        }
        JSAMPROW rows[] = {row.data()};
        jpeg_write_scanlines(&codec, rows, 1);
    }
    jpeg_finish_compress(&codec);
    Bytes jpeg = copyOf({out, outSize});
    jpeg_destroy_compress(&codec);
    std::free(out); // NOLINT(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory): libjpeg allocated it
    return jpeg;
}

} // namespace vexil
