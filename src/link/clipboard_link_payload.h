// SPDX-License-Identifier: Apache-2.0
// What an envelope says, beyond who says it to whom.
#pragma once

#include "base/bytes.h"
#include "link/clipboard_link_method.h"
#include "link/clipboard_records.h"
#include "link/hosts_records.h"

#include <cstddef>
#include <memory>
#include <variant>

namespace vexil {

// A payload that somebody else has written already, and may send more than once: on its way into the frame it is copied
// once. Never what is read from the link.
struct EncodedPayload {
    std::shared_ptr<const Bytes> json; // one value in valid JSON; not null

    bool operator==(const EncodedPayload&) const = default; // the same bytes in memory
};

using ClipboardLinkPayload =
    std::variant<std::monostate, ClipboardLinkEmpty, ClipboardHello, ClipboardHelloAck, ClipboardStoreSnapshot,
                 ClipboardEntryRef, ClipboardEntryPayload, ClipboardPinRequest, ClipboardFavoriteRequest,
                 ClipboardEditRequest, ClipboardPasteboardChange, ClipboardShortcutState, HostsSnapshot,
                 HostsApplyCommand, HostsCompanionState, EncodedPayload>;

// What a message holds: a request and an event of a method hold the same.
enum class ClipboardLinkDirection { forward, reply };

// An empty record of the type that `method` calls for; std::monostate where it calls for none.
[[nodiscard]] ClipboardLinkPayload blankPayload(ClipboardLinkMethod method, ClipboardLinkDirection direction);

// Reads the next value into the record that `payload` holds; std::monostate skips it.
[[nodiscard]] bool readPayload(json::Reader& in, ClipboardLinkPayload& payload);

// `payload` is not std::monostate, which has no JSON.
void writePayload(json::Writer& out, const ClipboardLinkPayload& payload);
[[nodiscard]] std::size_t sizeHintOf(const ClipboardLinkPayload& payload);

} // namespace vexil
