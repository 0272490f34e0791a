// SPDX-License-Identifier: Apache-2.0
#include "base/utf8_points.h"

#include <unicode/utf8.h>

#include <cstdint>

namespace vexil::text {

std::optional<char32_t> nextPoint(std::string_view utf8, std::size_t& at) {
    if (at >= utf8.size())
        return std::nullopt;
    const char* const bytes = utf8.data();
    const std::size_t size = utf8.size();
    UChar32 point = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion" // the macro keeps the low bits of an int
    U8_NEXT_OR_FFFD(bytes, at, size, point);
#pragma GCC diagnostic pop
    return static_cast<char32_t>(point);
}

} // namespace vexil::text
