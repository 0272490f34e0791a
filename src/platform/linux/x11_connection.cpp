// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/x11_connection.h"

#include "platform/linux/x11_connect.h"

#include <xcb/xcbext.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <cstdlib>

namespace vexil {

namespace {

// Small enough that one request does not keep the thread from everything else.
constexpr std::size_t kPropertyCap = 1'048'576;
// Of a ChangeProperty request, with room to spare.
constexpr std::size_t kRequestHeader = 64;

template <class T> using Malloced = std::unique_ptr<T, decltype(&std::free)>;

template <class T> Malloced<T> malloced(T* pointer) {
    return {pointer, &std::free};
}

xcb_screen_t* screenOf(xcb_connection_t* connection, int number) {
    auto iterator = xcb_setup_roots_iterator(xcb_get_setup(connection));
    while (number-- > 0 && iterator.rem > 0)
        xcb_screen_next(&iterator);
    return iterator.rem > 0 ? iterator.data : nullptr;
}

} // namespace

std::unique_ptr<X11Connection> X11Connection::open(const std::string& display, UniqueFunction<void(int)> onSocket) {
    int screen = 0;
    std::unique_ptr<X11Connection> connection(new X11Connection(connectToX(display, &screen, std::move(onSocket))));
    if (xcb_connection_has_error(connection->connection_) != 0 || !connection->prepare(screen))
        return nullptr;
    return connection;
}

X11Connection::~X11Connection() {
    xcb_disconnect(connection_);
}

bool X11Connection::prepare(int screenNumber) {
    const xcb_screen_t* screen = screenOf(connection_, screenNumber);
    const auto* xfixes = xcb_get_extension_data(connection_, &xcb_xfixes_id);
    if (screen == nullptr || xfixes == nullptr || xfixes->present == 0)
        return false;
    firstXFixesEvent_ = xfixes->first_event;
    // The server refuses all other requests of the extension before this one.
    const auto version =
        malloced(xcb_xfixes_query_version_reply(connection_, xcb_xfixes_query_version(connection_, 1, 0), nullptr));
    const auto atoms = internX11Atoms(connection_);
    if (!version || !atoms)
        return false;
    atoms_ = *atoms;

    window_ = xcb_generate_id(connection_);
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, screen->root, -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
    xcb_xfixes_select_selection_input(connection_, window_, atoms_.clipboard,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    const auto owner = malloced(
        xcb_get_selection_owner_reply(connection_, xcb_get_selection_owner(connection_, atoms_.clipboard), nullptr));
    if (!owner)
        return false;
    ownerAtOpening_ = owner->owner;
    maxPropertyBytes_ =
        std::min(kPropertyCap, std::size_t{4} * xcb_get_maximum_request_length(connection_) - kRequestHeader);
    return true;
}

bool X11Connection::isOwnerChange(const xcb_generic_event_t& event) const {
    return (event.response_type & 0x7f) == firstXFixesEvent_ + XCB_XFIXES_SELECTION_NOTIFY;
}

bool X11Connection::dispatch(EventHandler& onEvent) {
    // Sending may read what arrives meanwhile into memory, where poll() would not see it.
    std::size_t eventsLeft = kEventsPerDispatch;
    do {
        while (dispatchArrived(onEvent, eventsLeft)) {
        }
        xcb_flush(connection_);
    } while (dispatchArrived(onEvent, eventsLeft));
    isBacklogged_ = eventsLeft == 0;
    return xcb_connection_has_error(connection_) == 0;
}

bool X11Connection::dispatchArrived(EventHandler& onEvent, std::size_t& eventsLeft) {
    bool hasAny = false;
    for (; eventsLeft > 0; --eventsLeft) {
        const auto event = malloced(xcb_poll_for_event(connection_));
        if (!event)
            return deliverReplies(std::nullopt) || hasAny;
        hasAny = true;
        deliverReplies(event->full_sequence);
        onEvent(*event);
    }
    return false; // replies may have come after events that are left
}

// An event carries the number of the last request that the server had handled by then, so the replies to that request
// and to earlier ones came before it.
bool X11Connection::deliverReplies(std::optional<std::uint32_t> upTo) {
    bool hasAny = false;
    while (!awaited_.empty()) {
        const unsigned sequence = awaited_.front().sequence;
        if (upTo && static_cast<std::int32_t>(sequence - *upTo) > 0)
            break;
        void* reply = nullptr;
        xcb_generic_error_t* error = nullptr;
        if (xcb_poll_for_reply(connection_, sequence, &reply, &error) == 0)
            break;
        const auto ownedReply = malloced(reply);
        const auto ownedError = malloced(error);
        auto handler = std::move(awaited_.front().handler);
        awaited_.pop_front();
        hasAny = true;
        handler(ownedReply.get());
    }
    return hasAny;
}

} // namespace vexil
