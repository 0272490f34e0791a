// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/x11_selection_sender.h"

#include <algorithm>
#include <utility>

namespace vexil {

bool X11SelectionSender::send(xcb_window_t requestor, xcb_atom_t property, X11Payload payload) {
    drop([&](const Transfer& old) { return old.requestor == requestor && old.property == property; });
    if (payload.bytes.size() <= connection_.maxPropertyBytes()) {
        setProperty(requestor, property, payload.type, payload.bytes);
        return true;
    }
    if (transfers_.size() >= kMaxTransfers)
        return false;
    // Before the announcement, so that its deletion is not missed.
    listenTo(requestor, XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY);
    const auto announced = static_cast<std::uint32_t>(payload.bytes.size());
    xcb_change_property(connection_.raw(), XCB_PROP_MODE_REPLACE, requestor, property, connection_.atoms().incr, 32, 1,
                        &announced);
    transfers_.push_back({.requestor = requestor,
                          .property = property,
                          .payload = std::move(payload),
                          .deadline = Clock::now() + kDeadline});
    return true;
}

void X11SelectionSender::onPropertyNotify(const xcb_property_notify_event_t& event) {
    if (event.state != XCB_PROPERTY_DELETE)
        return;
    const auto transfer = std::find_if(transfers_.begin(), transfers_.end(), [&event](const Transfer& candidate) {
        return candidate.requestor == event.window && candidate.property == event.atom;
    });
    if (transfer == transfers_.end())
        return;
    if (!transfer->isEnding)
        return sendPiece(*transfer);
    drop([&event](const Transfer& done) { return done.requestor == event.window && done.property == event.atom; });
}

void X11SelectionSender::onDestroyNotify(const xcb_destroy_notify_event_t& event) {
    drop([&event](const Transfer& transfer) { return transfer.requestor == event.window; });
}

std::optional<TimePoint> X11SelectionSender::deadline() const {
    const auto first = std::min_element(transfers_.begin(), transfers_.end(), [](const auto& left, const auto& right) {
        return left.deadline < right.deadline;
    });
    return first == transfers_.end() ? std::nullopt : std::optional(first->deadline);
}

void X11SelectionSender::onDeadline(TimePoint now) {
    drop([now](const Transfer& transfer) { return transfer.deadline <= now; });
}

void X11SelectionSender::setProperty(xcb_window_t window, xcb_atom_t property, xcb_atom_t type, ByteView bytes) {
    xcb_change_property(connection_.raw(), XCB_PROP_MODE_REPLACE, window, property, type, 8,
                        static_cast<std::uint32_t>(bytes.size()), bytes.data());
}

// An empty piece ends the transfer.
void X11SelectionSender::sendPiece(Transfer& transfer) {
    const std::size_t length = std::min(transfer.payload.bytes.size() - transfer.sent, connection_.maxPropertyBytes());
    setProperty(transfer.requestor, transfer.property, transfer.payload.type,
                transfer.payload.bytes.subspan(transfer.sent, length));
    transfer.sent += length;
    transfer.isEnding = length == 0;
    transfer.deadline = Clock::now() + kDeadline;
}

template <class Predicate> void X11SelectionSender::drop(Predicate isOver) {
    std::vector<xcb_window_t> left;
    std::erase_if(transfers_, [&](const Transfer& transfer) {
        const bool isDropped = isOver(transfer);
        if (isDropped)
            left.push_back(transfer.requestor);
        return isDropped;
    });
    for (const xcb_window_t requestor : left) {
        if (!isServing(requestor))
            listenTo(requestor, XCB_EVENT_MASK_NO_EVENT);
    }
}

bool X11SelectionSender::isServing(xcb_window_t requestor) const {
    return std::any_of(transfers_.begin(), transfers_.end(),
                       [requestor](const Transfer& transfer) { return transfer.requestor == requestor; });
}

// Where the window is gone the server answers with an error, which nobody waits for.
void X11SelectionSender::listenTo(xcb_window_t requestor, std::uint32_t events) {
    xcb_change_window_attributes(connection_.raw(), requestor, XCB_CW_EVENT_MASK, &events);
}

} // namespace vexil
