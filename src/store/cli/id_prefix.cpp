// SPDX-License-Identifier: Apache-2.0
#include "store/cli/id_prefix.h"

#include "base/uuid.h"

namespace vexil {

std::optional<std::string> canonicalBeginning(std::string_view typed) {
    std::string canonical;
    for (const char c : typed) {
        if (c == '-')
            continue;
        if (std::string_view("0123456789abcdefABCDEF").find(c) == std::string_view::npos)
            return std::nullopt;
        const std::size_t length = canonical.size();
        if (length == 8 || length == 13 || length == 18 || length == 23)
            canonical.push_back('-');
        canonical.push_back(c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c);
    }
    if (canonical.empty() || canonical.size() > Uuid::kTextLength)
        return std::nullopt;
    return canonical;
}

} // namespace vexil
