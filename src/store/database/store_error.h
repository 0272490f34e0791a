// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace vexil {

// Why the store could not do what it was asked, for a person to read.
struct StoreError {
    std::string sentence; // English, without a closing full stop; names the file and, where there is one, the remedy

    bool operator==(const StoreError&) const = default;
};

} // namespace vexil
