// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/x11_pasteboard_targets.h"

#include "platform/pasteboard.h"

#include <algorithm>
#include <utility>

namespace vexil::x11_targets {

std::vector<Row> table(const X11Atoms& atoms) {
    return {
        {pasteboard_type::kString, ofText(atoms)},
        {pasteboard_type::kPng, {atoms.png}},
        {pasteboard_type::kTiff, {atoms.tiff}},
        {pasteboard_type::kJpeg, {atoms.jpeg}},
        {pasteboard_type::kAnyImage, {atoms.jpeg, atoms.webp, atoms.bmp, atoms.gif}},
        {pasteboard_type::kConcealed, {atoms.concealed}},
        {pasteboard_type::kTransient, {atoms.transient, atoms.kdeOnlyReplaceEmpty, atoms.kdeSyncSelection}},
    };
}

std::vector<xcb_atom_t> ofText(const X11Atoms& atoms) {
    return {atoms.utf8String, atoms.textPlainUtf8, atoms.textPlain, XCB_ATOM_STRING};
}

std::vector<xcb_atom_t> ofData(const std::string& type, const X11Atoms& atoms) {
    if (type == pasteboard_type::kString)
        return {};
    for (Row& row : table(atoms)) {
        if (row.type == type)
            return std::move(row.targets);
    }
    return {};
}

} // namespace vexil::x11_targets
