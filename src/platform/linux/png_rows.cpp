// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/png_rows.h"

#include <png.h>

#include <csetjmp>
#include <cstdlib>
#include <cstring>

namespace vexil {

// As with the JPEG writer: a failed call of the library jumps, so that no function that calls it has an object with a
// destructor.
struct PngRows::State {
    png_structp reader = nullptr;
    png_infop info = nullptr;
    const std::uint8_t* next = nullptr;
    std::size_t left = 0;
    std::size_t bytesPerRow = 0;
    bool hasAlpha = false;
    int passes = 1;
    std::unique_ptr<std::uint8_t, decltype(&std::free)> whole{nullptr, &std::free}; // of an interlaced image
    std::size_t nextRow = 0;

    State() = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { png_destroy_read_struct(&reader, &info, nullptr); }

    static void read(png_structp reader, png_bytep to, std::size_t length) {
        auto* state = static_cast<State*>(png_get_io_ptr(reader));
        if (length > state->left)
            png_error(reader, "cut off");
        std::memcpy(to, state->next, length);
        state->next += length;
        state->left -= length;
    }
};

namespace {

[[noreturn]] void jumpOut(png_structp reader, png_const_charp) {
    png_longjmp(reader, 1);
}

void saySilently(png_structp, png_const_charp) {}

} // namespace

PngRows::PngRows(ByteView image) : state_(std::make_unique<State>()) {
    state_->next = image.data();
    state_->left = image.size();
    state_->reader = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, jumpOut, saySilently);
    if (state_->reader != nullptr)
        state_->info = png_create_info_struct(state_->reader);
}

PngRows::~PngRows() = default;

bool PngRows::open() {
    if (state_->info == nullptr || setjmp(png_jmpbuf(state_->reader)) != 0)
        return false;
    png_set_read_fn(state_->reader, state_.get(), State::read);
    // Comments, profiles and suggested palettes would be inflated and kept, a thousand of them, before the size is
    // known. What the pixels need is not among these.
    png_set_keep_unknown_chunks(state_->reader, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
    png_set_user_limits(state_->reader, PNG_UINT_31_MAX, PNG_UINT_31_MAX); // the caller looks at the size
    png_read_info(state_->reader, state_->info);
    return true;
}

std::uint32_t PngRows::width() const {
    return png_get_image_width(state_->reader, state_->info);
}

std::uint32_t PngRows::height() const {
    return png_get_image_height(state_->reader, state_->info);
}

bool PngRows::startRows() {
    if (!prepareRows())
        return false;
    if (state_->passes == 1)
        return true;
    // Rows that a pass leaves out have to be there from the pass before. Asked for as zeros, the memory becomes
    // resident only row by row, so that a header without rows costs none.
    // NOLINTNEXTLINE(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory): a container would write the zeros
    state_->whole.reset(static_cast<std::uint8_t*>(std::calloc(height(), state_->bytesPerRow)));
    return state_->whole != nullptr && readPasses();
}

bool PngRows::prepareRows() {
    if (setjmp(png_jmpbuf(state_->reader)) != 0)
        return false;
    png_set_expand(state_->reader); // palettes, few bits, and transparency by colour
    png_set_scale_16(state_->reader);
    png_set_gray_to_rgb(state_->reader);
    state_->passes = png_set_interlace_handling(state_->reader);
    png_read_update_info(state_->reader, state_->info);
    state_->bytesPerRow = png_get_rowbytes(state_->reader, state_->info);
    state_->hasAlpha = png_get_channels(state_->reader, state_->info) == 4;
    return true;
}

bool PngRows::readPasses() {
    if (setjmp(png_jmpbuf(state_->reader)) != 0)
        return false;
    for (int pass = 0; pass < state_->passes; ++pass) {
        for (std::size_t row = 0; row < height(); ++row)
            png_read_row(state_->reader, state_->whole.get() + row * state_->bytesPerRow, nullptr);
    }
    return true;
}

bool PngRows::hasAlpha() const {
    return state_->hasAlpha;
}

std::size_t PngRows::bytesPerRow() const {
    return state_->bytesPerRow;
}

bool PngRows::readRows(std::uint8_t* rows, std::uint32_t count) {
    if (state_->whole != nullptr) {
        std::memcpy(rows, state_->whole.get() + state_->nextRow * state_->bytesPerRow, count * state_->bytesPerRow);
        state_->nextRow += count;
        return true;
    }
    if (setjmp(png_jmpbuf(state_->reader)) != 0)
        return false;
    for (std::uint32_t i = 0; i < count; ++i)
        png_read_row(state_->reader, rows + i * state_->bytesPerRow, nullptr);
    return true;
}

bool PngRows::finish() {
    if (setjmp(png_jmpbuf(state_->reader)) != 0)
        return false;
    png_read_end(state_->reader, nullptr);
    return true;
}

} // namespace vexil
