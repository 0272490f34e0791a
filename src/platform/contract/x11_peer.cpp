// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/x11_peer.h"

#include "platform/linux/x11_connect.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace vexil {

namespace {

template <class T> std::unique_ptr<T, void (*)(void*)> malloced(T* pointer) {
    return {pointer, &std::free};
}

} // namespace

X11Peer::X11Peer(const std::string& display)
    : connection_(connectToX(display.empty() ? std::getenv("DISPLAY") : display, nullptr)),
      window_(xcb_generate_id(connection_)) {
    EXPECT_EQ(xcb_connection_has_error(connection_), 0);
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    const auto root = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
    xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, root, -1, -1, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                      XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
}

X11Peer::~X11Peer() {
    xcb_disconnect(connection_);
}

xcb_atom_t X11Peer::atom(const std::string& name) {
    const auto reply = malloced(xcb_intern_atom_reply(
        connection_, xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.c_str()), nullptr));
    return reply ? reply->atom : XCB_NONE;
}

xcb_window_t X11Peer::clipboardOwner() {
    const auto reply = malloced(
        xcb_get_selection_owner_reply(connection_, xcb_get_selection_owner(connection_, atom("CLIPBOARD")), nullptr));
    return reply ? reply->owner : XCB_NONE;
}

bool X11Peer::isHeardByOthers() {
    const auto reply = malloced(
        xcb_get_window_attributes_reply(connection_, xcb_get_window_attributes(connection_, window_), nullptr));
    return reply && (reply->all_event_masks & XCB_EVENT_MASK_STRUCTURE_NOTIFY) != 0;
}

void X11Peer::flushAndSync() {
    const auto done = malloced(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
}

X11Peer::Event X11Peer::waitFor(std::uint8_t type) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    xcb_flush(connection_);
    while (std::chrono::steady_clock::now() < end && xcb_connection_has_error(connection_) == 0) {
        while (auto event = malloced(xcb_poll_for_event(connection_))) {
            if ((event->response_type & 0x7f) == type)
                return event;
        }
        pollfd readable{xcb_get_file_descriptor(connection_), POLLIN, 0};
        poll(&readable, 1, 100);
    }
    return malloced<xcb_generic_event_t>(nullptr);
}

void X11Peer::own() {
    xcb_set_selection_owner(connection_, window_, atom("CLIPBOARD"), XCB_CURRENT_TIME);
    EXPECT_EQ(clipboardOwner(), window_);
}

void X11Peer::setProperty(xcb_window_t window, xcb_atom_t property, xcb_atom_t type, std::uint8_t format,
                          ByteView bytes) {
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, property, type, format,
                        static_cast<std::uint32_t>(bytes.size() / (format / 8)), bytes.data());
}

void X11Peer::setAtoms(xcb_window_t window, xcb_atom_t property, const std::vector<xcb_atom_t>& atoms) {
    setProperty(window, property, XCB_ATOM_ATOM, 32,
                {reinterpret_cast<const std::uint8_t*>(atoms.data()), atoms.size() * sizeof(xcb_atom_t)});
}

void X11Peer::notify(const xcb_selection_request_event_t& request, bool isServed) {
    xcb_selection_notify_event_t notice{};
    notice.response_type = XCB_SELECTION_NOTIFY;
    notice.time = request.time;
    notice.requestor = request.requestor;
    notice.selection = request.selection;
    notice.target = request.target;
    notice.property = isServed ? request.property : XCB_NONE;
    char sent[32] = {};
    std::memcpy(sent, &notice, sizeof notice);
    xcb_send_event(connection_, 0, request.requestor, 0, sent);
    xcb_flush(connection_);
}

bool X11Peer::waitUntilTaken(const xcb_selection_request_event_t& request) {
    while (const Event event = waitFor(XCB_PROPERTY_NOTIFY)) {
        const auto& notice = reinterpret_cast<const xcb_property_notify_event_t&>(*event);
        if (notice.window == request.requestor && notice.atom == request.property &&
            notice.state == XCB_PROPERTY_DELETE)
            return true;
    }
    return false;
}

void X11Peer::request(const std::string& target, const std::string& property) {
    xcb_convert_selection(connection_, window_, atom("CLIPBOARD"), atom(target), atom(property), XCB_CURRENT_TIME);
    xcb_flush(connection_);
}

std::optional<X11Peer::Property> X11Peer::answerTo(const std::string& target) {
    request(target);
    const Event event = waitFor(XCB_SELECTION_NOTIFY);
    if (!event || reinterpret_cast<const xcb_selection_notify_event_t&>(*event).property == XCB_NONE)
        return std::nullopt;
    return takeProperty();
}

X11Peer::Property X11Peer::takeProperty(const std::string& property) {
    const auto reply = malloced(xcb_get_property_reply(
        connection_, xcb_get_property(connection_, 1, window_, atom(property), XCB_GET_PROPERTY_TYPE_ANY, 0, 1U << 28),
        nullptr));
    if (!reply)
        return {};
    const auto* bytes = static_cast<const std::uint8_t*>(xcb_get_property_value(reply.get()));
    return {reply->type, reply->format, Bytes(bytes, bytes + xcb_get_property_value_length(reply.get()))};
}

ScriptedOwner::ScriptedOwner(Script script, const std::string& display) : peer_(display), script_(std::move(script)) {
    peer_.own();
    thread_ = std::thread([this] { run(); });
}

ScriptedOwner::~ScriptedOwner() {
    shutdown(xcb_get_file_descriptor(peer_.raw()), SHUT_RDWR);
    thread_.join();
}

void ScriptedOwner::run() {
    // A test may end while its owner still writes.
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
    while (const auto event = malloced(xcb_wait_for_event(peer_.raw()))) {
        if ((event->response_type & 0x7f) != XCB_SELECTION_REQUEST)
            continue;
        const auto& request = reinterpret_cast<const xcb_selection_request_event_t&>(*event);
        const std::string target = nameOf(request.target);
        {
            const std::lock_guard lock(mutex_);
            asked_.push_back(target);
        }
        script_(peer_, request, target);
    }
}

std::string ScriptedOwner::nameOf(xcb_atom_t atom) {
    const auto reply = malloced(xcb_get_atom_name_reply(peer_.raw(), xcb_get_atom_name(peer_.raw(), atom), nullptr));
    if (!reply)
        return {};
    return {xcb_get_atom_name_name(reply.get()), static_cast<std::size_t>(xcb_get_atom_name_name_length(reply.get()))};
}

std::vector<std::string> ScriptedOwner::asked() {
    const std::lock_guard lock(mutex_);
    return asked_;
}

ScriptedOwner::Script honest(std::vector<std::pair<std::string, std::string>> contents) {
    return [contents = std::move(contents)](X11Peer& peer, const xcb_selection_request_event_t& request,
                                            const std::string& target) {
        if (target == "TARGETS") {
            std::vector<xcb_atom_t> targets = {peer.atom("TARGETS")};
            for (const auto& part : contents)
                targets.push_back(peer.atom(part.first));
            peer.setAtoms(request.requestor, request.property, targets);
            return peer.notify(request, true);
        }
        const auto part = std::find_if(contents.begin(), contents.end(),
                                       [&target](const auto& candidate) { return candidate.first == target; });
        if (part != contents.end())
            peer.setProperty(request.requestor, request.property, request.target, 8, bytesOf(part->second));
        peer.notify(request, part != contents.end());
    };
}

ScriptedOwner::Script inPieces(const std::string& target, std::uint32_t announced,
                               std::function<void(X11Peer&, const xcb_selection_request_event_t&)> pieces) {
    return [target, announced, pieces = std::move(pieces)](X11Peer& peer, const xcb_selection_request_event_t& request,
                                                           const std::string& asked) {
        if (asked == "TARGETS") {
            peer.setAtoms(request.requestor, request.property, {peer.atom(target)});
            return peer.notify(request, true);
        }
        const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_change_window_attributes(peer.raw(), request.requestor, XCB_CW_EVENT_MASK, &events);
        peer.setProperty(request.requestor, request.property, peer.atom("INCR"), 32,
                         {reinterpret_cast<const std::uint8_t*>(&announced), sizeof announced});
        peer.notify(request, true);
        pieces(peer, request);
    };
}

} // namespace vexil
