// SPDX-License-Identifier: Apache-2.0
// The atoms of the clipboard's protocol and content.
#pragma once

#include <xcb/xcb.h>

#include <array>
#include <optional>

namespace vexil {

struct X11Atoms {
    xcb_atom_t clipboard, targets, timestamp, multiple, atomPair, incr;
    xcb_atom_t utf8String, textPlainUtf8, textPlain;
    xcb_atom_t png, tiff, jpeg, webp, bmp, gif;
    xcb_atom_t concealed, transient, kdePasswordHint, kdeOnlyReplaceEmpty, kdeSyncSelection;
    // Properties of our own window: one to draw timestamps from, and those that owners put content into. There are
    // several so that an answer that comes after its deadline is not taken for the answer to a later question.
    xcb_atom_t stamp;
    std::array<xcb_atom_t, 8> incoming;
};

// Blocks for one round trip. None where the connection fails.
[[nodiscard]] std::optional<X11Atoms> internX11Atoms(xcb_connection_t* connection);

} // namespace vexil
