// SPDX-License-Identifier: Apache-2.0
// The methods of the link.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace vexil {

enum class ClipboardLinkMethod {
    hello,
    storeSnapshot,
    storeChanged,
    entryPayload,
    entryUse,
    entryPin,
    entryFavorite,
    entryEdit,
    entryEditText,
    entryDelete,
    pasteboardChanged,
    shortcutState,
    hostsSnapshot,
    hostsChanged,
    hostsApply,
    hostsState,
};

// In the order of the enumeration.
inline constexpr std::array<std::string_view, 16> kClipboardLinkMethodNames = {
    "hello",          "store.snapshot", "store.changed",  "entry.payload", "entry.use",          "entry.pin",
    "entry.favorite", "entry.edit",     "entry.editText", "entry.delete",  "pasteboard.changed", "shortcut.state",
    "hosts.snapshot", "hosts.changed",  "hosts.apply",    "hosts.state"};

[[nodiscard]] constexpr std::string_view nameOf(ClipboardLinkMethod method) {
    return kClipboardLinkMethodNames.at(static_cast<std::size_t>(method));
}

[[nodiscard]] constexpr std::optional<ClipboardLinkMethod> methodNamed(std::string_view name) {
    for (std::size_t i = 0; i < kClipboardLinkMethodNames.size(); ++i) {
        if (kClipboardLinkMethodNames[i] == name)
            return static_cast<ClipboardLinkMethod>(i);
    }
    return std::nullopt;
}

} // namespace vexil
