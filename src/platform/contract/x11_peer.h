// SPDX-License-Identifier: Apache-2.0
// Another client of the X server, as well- or ill-behaved as a test wants it.
#pragma once

#include "base/bytes.h"

#include <xcb/xcb.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace vexil {

// Blocks, on purpose: one thread at a time. Asserts that the display answers.
class X11Peer {
public:
    using Event = std::unique_ptr<xcb_generic_event_t, void (*)(void*)>;

    struct Property {
        xcb_atom_t type = XCB_NONE;
        std::uint8_t format = 0;
        Bytes bytes;
    };

    explicit X11Peer(const std::string& display = "");
    X11Peer(const X11Peer&) = delete;
    X11Peer& operator=(const X11Peer&) = delete;
    ~X11Peer();

    [[nodiscard]] xcb_connection_t* raw() const { return connection_; }
    [[nodiscard]] xcb_window_t window() const { return window_; }
    [[nodiscard]] xcb_atom_t atom(const std::string& name);
    [[nodiscard]] xcb_window_t clipboardOwner();
    // Whether another client waits for the end of our window.
    [[nodiscard]] bool isHeardByOthers();
    void flushAndSync();
    // The next event of the kind; null where none comes within 5 s.
    [[nodiscard]] Event waitFor(std::uint8_t type);

    // As an owner.
    void own();
    void setProperty(xcb_window_t window, xcb_atom_t property, xcb_atom_t type, std::uint8_t format, ByteView bytes);
    void setAtoms(xcb_window_t window, xcb_atom_t property, const std::vector<xcb_atom_t>& atoms);
    void notify(const xcb_selection_request_event_t& request, bool isServed);
    // Until the requestor has taken what is in the property; false where it does not within 5 s.
    bool waitUntilTaken(const xcb_selection_request_event_t& request);

    // As a requestor: what the owner leaves in our property, up to the announcement of a transfer in pieces.
    void request(const std::string& target, const std::string& property = "PEER");
    [[nodiscard]] std::optional<Property> answerTo(const std::string& target);
    [[nodiscard]] Property takeProperty(const std::string& property = "PEER");

private:
    xcb_connection_t* connection_;
    xcb_window_t window_;
};

// Owns CLIPBOARD and answers requests on a thread of its own, as its script says.
class ScriptedOwner {
public:
    // Gets each request, by the name of its target. What it does not answer stays unanswered.
    using Script = std::function<void(X11Peer&, const xcb_selection_request_event_t&, const std::string& target)>;

    explicit ScriptedOwner(Script script, const std::string& display = "");
    ScriptedOwner(const ScriptedOwner&) = delete;
    ScriptedOwner& operator=(const ScriptedOwner&) = delete;
    ~ScriptedOwner();

    // The targets that were asked for. Call after the requests of interest have been answered.
    [[nodiscard]] std::vector<std::string> asked();

private:
    void run();
    [[nodiscard]] std::string nameOf(xcb_atom_t atom);

    X11Peer peer_;
    Script script_;
    std::mutex mutex_; // guards asked_
    std::vector<std::string> asked_;
    std::thread thread_;
};

// A script of an owner that has the targets, each with bytes, and keeps the rules.
ScriptedOwner::Script honest(std::vector<std::pair<std::string, std::string>> contents);

// A script of an owner that lists one target, announces `announced` bytes of it, and has `pieces` write them.
ScriptedOwner::Script inPieces(const std::string& target, std::uint32_t announced,
                               std::function<void(X11Peer&, const xcb_selection_request_event_t&)> pieces);

} // namespace vexil
