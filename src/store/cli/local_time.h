// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/date.h"

#include <string>

namespace vexil {

// To the minute, for a person to read; "unknown time" where no calendar has it.
[[nodiscard]] std::string localTime(Date date);

} // namespace vexil
