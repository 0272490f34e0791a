// SPDX-License-Identifier: Apache-2.0
// Image files of every format that a clipboard may hold, as pixels.
#pragma once

#include "base/bytes.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <cstdint>
#include <memory>

namespace vexil {

struct UnrefObject {
    void operator()(void* object) const { g_object_unref(object); }
};
using PixbufPointer = std::unique_ptr<GdkPixbuf, UnrefObject>;

// The (first) image of a TIFF, JPEG, WebP, BMP or GIF, upright; null where it is none of these, cannot be read to
// its end, or `isTooLarge`, which is asked before pixels are allocated. From any thread; says nothing on standard
// error.
[[nodiscard]] PixbufPointer loadPixbuf(ByteView image, bool (*isTooLarge)(std::uint64_t width, std::uint64_t height));

// The name of the format, of those above; null where loadPixbuf would refuse the file unread, but for its size.
[[nodiscard]] const char* readableFormat(ByteView image);

} // namespace vexil
