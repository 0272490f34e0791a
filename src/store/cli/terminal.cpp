// SPDX-License-Identifier: Apache-2.0
#include "store/cli/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace vexil {

namespace {

bool wantsColors() {
    const char* refused = std::getenv("NO_COLOR");
    const char* kind = std::getenv("TERM");
    return (refused == nullptr || *refused == '\0') && kind != nullptr && std::string_view(kind) != "dumb";
}

} // namespace

std::optional<Terminal> Terminal::of(int descriptor) {
    if (::isatty(descriptor) != 1)
        return std::nullopt;
    winsize size{};
    const bool hasSize = ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return Terminal{hasSize ? size.ws_col : kUsualColumns, wantsColors()};
}

} // namespace vexil
