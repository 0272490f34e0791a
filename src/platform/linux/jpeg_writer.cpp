// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/jpeg_writer.h"

#include <jpeglib.h>

#include <csetjmp>
#include <cstdio> // jpeglib.h does not include what it needs
#include <cstdlib>
#include <cstring>

namespace vexil {

namespace {

// The library ends a failed call by a jump to `escape`, which each of the calling functions sets for itself. A jump
// skips destructors, so none of them has an object with one.
struct Errors {
    jpeg_error_mgr manager;
    std::jmp_buf escape;
};

[[noreturn]] void jumpOut(j_common_ptr compressor) {
    std::longjmp(reinterpret_cast<Errors*>(compressor->err)->escape, 1);
}

void saySilently(j_common_ptr) {}

} // namespace

struct JpegWriter::State {
    jpeg_compress_struct compressor{};
    Errors errors{};
    unsigned char* output = nullptr; // from malloc
    unsigned long outputSize = 0;

    State() = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() {
        jpeg_destroy_compress(&compressor);
        const std::unique_ptr<unsigned char, void (*)(void*)> freed(output, &std::free);
    }
};

JpegWriter::JpegWriter() : state_(std::make_unique<State>()) {
    static_assert(offsetof(Errors, manager) == 0);
    jpeg_compress_struct& compressor = state_->compressor;
    compressor.err = jpeg_std_error(&state_->errors.manager);
    compressor.err->error_exit = jumpOut;
    compressor.err->output_message = saySilently;
}

JpegWriter::~JpegWriter() = default;

bool JpegWriter::start(std::uint32_t width, std::uint32_t height, Pixels pixels, int quality) {
    jpeg_compress_struct& compressor = state_->compressor;
    if (setjmp(state_->errors.escape) != 0)
        return false;
    jpeg_create_compress(&compressor);
    jpeg_mem_dest(&compressor, &state_->output, &state_->outputSize);
    compressor.image_width = width;
    compressor.image_height = height;
    compressor.input_components = pixels == Pixels::rgb ? 3 : 4;
    compressor.in_color_space = pixels == Pixels::rgb ? JCS_RGB : JCS_EXT_RGBX;
    jpeg_set_defaults(&compressor);
    jpeg_set_quality(&compressor, quality, TRUE);
    jpeg_start_compress(&compressor, TRUE);
    return true;
}

bool JpegWriter::writeRows(const std::uint8_t* rows, std::size_t bytesPerRow, std::uint32_t count) {
    if (setjmp(state_->errors.escape) != 0)
        return false;
    for (std::uint32_t i = 0; i < count; ++i) {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the library only reads rows; it is older than const
        auto* row = const_cast<JSAMPROW>(rows + i * bytesPerRow);
        jpeg_write_scanlines(&state_->compressor, &row, 1);
    }
    return true;
}

std::optional<Bytes> JpegWriter::finish() {
    if (setjmp(state_->errors.escape) != 0)
        return std::nullopt;
    jpeg_finish_compress(&state_->compressor);
    return copyOf({state_->output, state_->outputSize});
}

} // namespace vexil
