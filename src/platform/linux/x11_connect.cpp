// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/x11_connect.h"

#include <mutex>

namespace vexil {

xcb_connection_t* connectToX(const std::string& display, int* screen) {
    // As process-wide as the buffer that it guards.
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    return xcb_connect(display.c_str(), screen);
}

} // namespace vexil
