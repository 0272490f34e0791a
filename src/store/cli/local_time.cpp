// SPDX-License-Identifier: Apache-2.0
#include "store/cli/local_time.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <ctime>

namespace vexil {

std::string localTime(Date date) {
    constexpr double kYear9999 = 253'402'214'400; // after which a column would not be wide enough
    const double exact = std::floor(date.unixSeconds());
    const bool isInCalendar = exact >= 0 && exact < kYear9999; // and no NaN
    const auto seconds = isInCalendar ? static_cast<std::time_t>(exact) : 0;
    std::tm local{};
    std::array<char, 32> text{};
    if (!isInCalendar || ::localtime_r(&seconds, &local) == nullptr)
        return "unknown time";
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &local);
    return {text.data(), length};
}

} // namespace vexil
