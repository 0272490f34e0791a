// SPDX-License-Identifier: Apache-2.0
#include "link/clipboard_link_payload.h"

#include "base/json.h"

#include <cassert>
#include <type_traits>

namespace vexil {

namespace {

ClipboardLinkPayload blankReply(ClipboardLinkMethod method) {
    switch (method) {
    case ClipboardLinkMethod::hello:
        return ClipboardHelloAck{};
    case ClipboardLinkMethod::storeSnapshot:
        return ClipboardStoreSnapshot{};
    case ClipboardLinkMethod::entryPayload:
        return ClipboardEntryPayload{};
    case ClipboardLinkMethod::hostsSnapshot:
        return HostsSnapshot{};
    default:
        return std::monostate{};
    }
}

} // namespace

ClipboardLinkPayload blankPayload(ClipboardLinkMethod method, ClipboardLinkDirection direction) {
    if (direction == ClipboardLinkDirection::reply)
        return blankReply(method);
    switch (method) {
    case ClipboardLinkMethod::hello:
        return ClipboardHello{};
    case ClipboardLinkMethod::storeSnapshot:
    case ClipboardLinkMethod::hostsSnapshot:
        return ClipboardLinkEmpty{};
    case ClipboardLinkMethod::entryPayload:
    case ClipboardLinkMethod::entryUse:
    case ClipboardLinkMethod::entryDelete:
        return ClipboardEntryRef{};
    case ClipboardLinkMethod::entryPin:
        return ClipboardPinRequest{};
    case ClipboardLinkMethod::entryFavorite:
        return ClipboardFavoriteRequest{};
    case ClipboardLinkMethod::entryEdit:
    case ClipboardLinkMethod::entryEditText:
        return ClipboardEditRequest{};
    case ClipboardLinkMethod::pasteboardChanged:
        return ClipboardPasteboardChange{};
    case ClipboardLinkMethod::shortcutState:
        return ClipboardShortcutState{};
    case ClipboardLinkMethod::hostsApply:
        return HostsApplyCommand{};
    case ClipboardLinkMethod::hostsState:
        return HostsCompanionState{};
    case ClipboardLinkMethod::storeChanged:
    case ClipboardLinkMethod::hostsChanged:
        return std::monostate{};
    }
    return std::monostate{};
}

bool readPayload(json::Reader& in, ClipboardLinkPayload& payload) {
    return std::visit(
        [&](auto& record) {
            using Record = std::remove_cvref_t<decltype(record)>;
            if constexpr (std::is_same_v<Record, std::monostate> || std::is_same_v<Record, EncodedPayload>)
                return in.skip();
            else
                return readValue(in, record);
        },
        payload);
}

void writePayload(json::Writer& out, const ClipboardLinkPayload& payload) {
    std::visit(
        [&](const auto& record) {
            using Record = std::remove_cvref_t<decltype(record)>;
            if constexpr (std::is_same_v<Record, std::monostate>)
                assert(false && "an absent payload is left out");
            else if constexpr (std::is_same_v<Record, EncodedPayload>)
                out.encoded(*record.json);
            else
                writeValue(out, record);
        },
        payload);
}

std::size_t sizeHintOf(const ClipboardLinkPayload& payload) {
    return std::visit(
        [&](const auto& record) -> std::size_t {
            using Record = std::remove_cvref_t<decltype(record)>;
            if constexpr (std::is_same_v<Record, std::monostate>)
                return 0;
            else if constexpr (std::is_same_v<Record, EncodedPayload>)
                return record.json->size();
            else
                return json::sizeHint(record);
        },
        payload);
}

} // namespace vexil
