// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/unique_function.h"

#include <xcb/xcb.h>

#include <string>

namespace vexil {

// xcb_connect, safe to be called by several threads at once: the library that finds the server's authority file keeps
// the name in a buffer that all threads share. Every connection of this program is made here.
//
// Blocks until the server has answered. For a display of this machine `onSocket` is called before that wait, so that
// another thread can end it by shutting the socket down (through a copy: the connection closes its own). A server
// elsewhere, such as one behind a secure shell, has no such way out.
[[nodiscard]] xcb_connection_t* connectToX(const std::string& display, int* screen,
                                           UniqueFunction<void(int socket)> onSocket = {});

} // namespace vexil
