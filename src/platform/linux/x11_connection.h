// SPDX-License-Identifier: Apache-2.0
// A connection to the X server that never waits for an answer.
#pragma once

#include "base/unique_function.h"
#include "platform/linux/x11_atoms.h"

#include <xcb/xcb.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace vexil {

// One thread only. Errors that the server reports are answers like any other: they reach the reply's handler as null,
// or nobody.
class X11Connection {
public:
    using EventHandler = UniqueFunction<void(const xcb_generic_event_t&)>;

    // Connects, makes one unmapped window of our own and asks to hear of every new owner of CLIPBOARD. Blocks for a
    // few round trips; `onSocket` as in connectToX(). Null where there is no such display, or it has no XFixes.
    static std::unique_ptr<X11Connection> open(const std::string& display, UniqueFunction<void(int)> onSocket = {});
    X11Connection(const X11Connection&) = delete;
    X11Connection& operator=(const X11Connection&) = delete;
    ~X11Connection();

    [[nodiscard]] xcb_connection_t* raw() const { return connection_; }
    [[nodiscard]] int descriptor() const { return xcb_get_file_descriptor(connection_); }
    // Hears of its own properties.
    [[nodiscard]] xcb_window_t window() const { return window_; }
    [[nodiscard]] const X11Atoms& atoms() const { return atoms_; }
    // Who owned CLIPBOARD when the connection was made.
    [[nodiscard]] xcb_window_t ownerAtOpening() const { return ownerAtOpening_; }
    // The largest property that we set in one request.
    [[nodiscard]] std::size_t maxPropertyBytes() const { return maxPropertyBytes_; }
    // True for the event that tells of a new owner; xcb_xfixes_selection_notify_event_t then.
    [[nodiscard]] bool isOwnerChange(const xcb_generic_event_t& event) const;

    // Calls `handler` from dispatch() with the reply to the request, or with null where it failed.
    template <class Reply> void whenReplied(unsigned sequence, UniqueFunction<void(const Reply*)> handler) {
        awaited_.push_back({sequence, [handler = std::move(handler)](const void* reply) mutable {
                                handler(static_cast<const Reply*>(reply));
                            }});
    }

    static constexpr std::size_t kEventsPerDispatch = 1000;

    // Hands on the events and replies that have arrived, in the order in which the server sent them, and sends what
    // waits to be sent. Stops at kEventsPerDispatch, so that a flood of events leaves time for all else. False where
    // the connection has failed.
    bool dispatch(EventHandler& onEvent);
    // Whether the last dispatch stopped before it was through; poll() may then not see what is left.
    [[nodiscard]] bool isBacklogged() const { return isBacklogged_; }

private:
    struct Awaited {
        unsigned sequence;
        UniqueFunction<void(const void*)> handler;
    };

    explicit X11Connection(xcb_connection_t* connection) : connection_(connection) {}
    bool prepare(int screen);
    bool deliverReplies(std::optional<std::uint32_t> upTo);
    bool dispatchArrived(EventHandler& onEvent, std::size_t& eventsLeft);

    xcb_connection_t* connection_;
    xcb_window_t window_ = XCB_NONE;
    xcb_window_t ownerAtOpening_ = XCB_NONE;
    X11Atoms atoms_{};
    std::uint8_t firstXFixesEvent_ = 0;
    std::size_t maxPropertyBytes_ = 0;
    bool isBacklogged_ = false;
    std::deque<Awaited> awaited_; // in the order of the requests
};

} // namespace vexil
