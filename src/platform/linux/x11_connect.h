// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <xcb/xcb.h>

#include <string>

namespace vexil {

// xcb_connect, safe to be called by several threads at once: the library that finds the server's authority file keeps
// the name in a buffer that all threads share. Every connection of this program is made here.
[[nodiscard]] xcb_connection_t* connectToX(const std::string& display, int* screen);

} // namespace vexil
