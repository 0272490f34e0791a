// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/system_secure_random.h"

#include <sys/random.h>

#include <cerrno>
#include <cstddef>

namespace vexil {

bool SystemSecureRandom::fill(std::span<std::uint8_t> out) {
    while (!out.empty()) {
        const ssize_t got = getrandom(out.data(), out.size(), GRND_NONBLOCK);
        if (got > 0)
            out = out.subspan(static_cast<std::size_t>(got));
        else if (got == 0 || errno != EINTR)
            return false;
    }
    return true;
}

} // namespace vexil
