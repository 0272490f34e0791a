// SPDX-License-Identifier: Apache-2.0
// Hands content to programs that ask for it, in pieces where it is large.
#pragma once

#include "base/bytes.h"
#include "platform/linux/x11_connection.h"
#include "platform/main_queue.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

namespace vexil {

// Bytes along with what keeps them alive, so that a transfer outlives the ownership of what it sends.
struct X11Payload {
    std::shared_ptr<const void> owner;
    ByteView bytes;
    xcb_atom_t type = XCB_NONE;
};

// On the connection's thread. A requestor that closes its window, or takes no piece for kDeadline, is dropped.
class X11SelectionSender {
public:
    static constexpr Duration kDeadline = std::chrono::seconds(2);
    static constexpr std::size_t kMaxTransfers = 64; // in pieces, at one time

    explicit X11SelectionSender(X11Connection& connection) : connection_(connection) {}

    // Puts the payload, or the announcement that it comes in pieces, into the requestor's property. False where too
    // much is under way. The requestor is another program's window.
    [[nodiscard]] bool send(xcb_window_t requestor, xcb_atom_t property, X11Payload payload);

    void onPropertyNotify(const xcb_property_notify_event_t& event);
    void onDestroyNotify(const xcb_destroy_notify_event_t& event);

    // When onDeadline() wants to be called; none while nothing is under way.
    [[nodiscard]] std::optional<TimePoint> deadline() const;
    void onDeadline(TimePoint now);

private:
    struct Transfer {
        xcb_window_t requestor = XCB_NONE;
        xcb_atom_t property = XCB_NONE;
        X11Payload payload;
        std::size_t sent = 0;
        bool isEnding = false; // the empty piece is out
        TimePoint deadline;
    };

    void setProperty(xcb_window_t window, xcb_atom_t property, xcb_atom_t type, ByteView bytes);
    void sendPiece(Transfer& transfer);
    template <class Predicate> void drop(Predicate isOver);
    [[nodiscard]] bool isServing(xcb_window_t requestor) const;
    void listenTo(xcb_window_t requestor, std::uint32_t events);

    X11Connection& connection_;
    std::vector<Transfer> transfers_;
};

} // namespace vexil
