// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/x11_atoms.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vexil {

namespace {

std::vector<std::pair<std::string, xcb_atom_t*>> namedPlaces(X11Atoms& atoms) {
    std::vector<std::pair<std::string, xcb_atom_t*>> places = {
        {"CLIPBOARD", &atoms.clipboard},
        {"TARGETS", &atoms.targets},
        {"TIMESTAMP", &atoms.timestamp},
        {"MULTIPLE", &atoms.multiple},
        {"ATOM_PAIR", &atoms.atomPair},
        {"INCR", &atoms.incr},
        {"UTF8_STRING", &atoms.utf8String},
        {"text/plain;charset=utf-8", &atoms.textPlainUtf8},
        {"text/plain", &atoms.textPlain},
        {"image/png", &atoms.png},
        {"image/tiff", &atoms.tiff},
        {"image/jpeg", &atoms.jpeg},
        {"image/webp", &atoms.webp},
        {"image/bmp", &atoms.bmp},
        {"image/gif", &atoms.gif},
        {"org.nspasteboard.ConcealedType", &atoms.concealed},
        {"org.nspasteboard.TransientType", &atoms.transient},
        {"x-kde-passwordManagerHint", &atoms.kdePasswordHint},
        {"application/x-kde-onlyReplaceEmpty", &atoms.kdeOnlyReplaceEmpty},
        {"application/x-kde-syncselection", &atoms.kdeSyncSelection},
        {"VEXIL_STAMP", &atoms.stamp},
    };
    for (std::size_t i = 0; i < atoms.incoming.size(); ++i)
        places.emplace_back("VEXIL_INCOMING_" + std::to_string(i), &atoms.incoming[i]);
    return places;
}

} // namespace

std::optional<X11Atoms> internX11Atoms(xcb_connection_t* connection) {
    X11Atoms atoms{};
    const auto places = namedPlaces(atoms);
    std::vector<xcb_intern_atom_cookie_t> cookies;
    cookies.reserve(places.size());
    for (const auto& [name, place] : places)
        cookies.push_back(xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.data()));
    bool isComplete = true;
    for (std::size_t i = 0; i < places.size(); ++i) {
        const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
            xcb_intern_atom_reply(connection, cookies[i], nullptr), &std::free);
        isComplete = isComplete && reply != nullptr;
        if (reply)
            *places[i].second = reply->atom;
    }
    return isComplete ? std::optional(atoms) : std::nullopt;
}

} // namespace vexil
