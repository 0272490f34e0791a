// SPDX-License-Identifier: Apache-2.0
#include "base/constant_time.h"

#include <sodium.h>

namespace vexil {

bool equalInConstantTime(std::string_view a, std::string_view b) {
    return a.size() == b.size() && sodium_memcmp(a.data(), b.data(), a.size()) == 0;
}

} // namespace vexil
