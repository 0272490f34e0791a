// SPDX-License-Identifier: Apache-2.0
// Which selection targets stand for which pasteboard type.
#pragma once

#include "platform/linux/x11_atoms.h"

#include <string>
#include <vector>

namespace vexil::x11_targets {

// The type is on the clipboard where any of the targets is; they are in order of preference. The password hint of KDE
// is missing here, since it means what its content says.
struct Row {
    const char* type;
    std::vector<xcb_atom_t> targets;
};
[[nodiscard]] std::vector<Row> table(const X11Atoms& atoms);

[[nodiscard]] std::vector<xcb_atom_t> ofText(const X11Atoms& atoms);

// Of a type other than text; empty where there is no such type.
[[nodiscard]] std::vector<xcb_atom_t> ofData(const std::string& type, const X11Atoms& atoms);

} // namespace vexil::x11_targets
