// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/png_writer.h"

#include <png.h>

#include <csetjmp>
#include <utility>

namespace vexil {

// As in the reader: a failed call of the library jumps, so that no function that calls it has an object with a
// destructor.
struct PngWriter::State {
    png_structp writer = nullptr;
    png_infop info = nullptr;
    Bytes file;

    State() = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { png_destroy_write_struct(&writer, &info); }

    static void append(png_structp writer, png_bytep bytes, std::size_t length) {
        auto* state = static_cast<State*>(png_get_io_ptr(writer));
        state->file.insert(state->file.end(), bytes, bytes + length);
    }
};

namespace {

[[noreturn]] void jumpOut(png_structp writer, png_const_charp) {
    png_longjmp(writer, 1);
}

void saySilently(png_structp, png_const_charp) {}
void keepBuffered(png_structp) {}

} // namespace

PngWriter::PngWriter() : state_(std::make_unique<State>()) {
    state_->writer = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, jumpOut, saySilently);
    if (state_->writer != nullptr)
        state_->info = png_create_info_struct(state_->writer);
}

PngWriter::~PngWriter() = default;

bool PngWriter::start(std::uint32_t width, std::uint32_t height, Pixels pixels) {
    constexpr int kFastest = 1;
    if (state_->info == nullptr || setjmp(png_jmpbuf(state_->writer)) != 0)
        return false;
    png_set_write_fn(state_->writer, state_.get(), State::append, keepBuffered);
    png_set_user_limits(state_->writer, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_compression_level(state_->writer, kFastest);
    // Trying all filters on every row, as is the default, takes longer than the compression.
    png_set_filter(state_->writer, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
    png_set_IHDR(state_->writer, state_->info, width, height, 8,
                 pixels == Pixels::rgb ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(state_->writer, state_->info);
    return true;
}

bool PngWriter::writeRows(const std::uint8_t* rows, std::size_t bytesPerRow, std::uint32_t count) {
    if (setjmp(png_jmpbuf(state_->writer)) != 0)
        return false;
    for (std::uint32_t i = 0; i < count; ++i)
        png_write_row(state_->writer, rows + i * bytesPerRow);
    return true;
}

std::optional<Bytes> PngWriter::finish() {
    if (setjmp(png_jmpbuf(state_->writer)) != 0)
        return std::nullopt;
    png_write_end(state_->writer, nullptr);
    return std::move(state_->file);
}

} // namespace vexil
