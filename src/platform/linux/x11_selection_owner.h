// SPDX-License-Identifier: Apache-2.0
// Takes the clipboard and serves its content to other programs.
#pragma once

#include "base/lifetime.h"
#include "platform/linux/x11_selection_sender.h"
#include "platform/pasteboard.h"

#include <xcb/xfixes.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vexil {

// On the connection's thread. Writes are made one after the other, each with a timestamp of the server's.
class X11SelectionOwner {
public:
    // The change count of the write, or none where the clipboard could not be taken.
    using OnWritten = UniqueFunction<void(std::optional<std::int64_t>)>;

    static constexpr std::uint32_t kMaxPairs = 256; // of one MULTIPLE request

    explicit X11SelectionOwner(X11Connection& connection) : connection_(connection), sender_(connection) {}

    void write(PasteboardContents contents, OnWritten completion);

    // What we have on the clipboard; null while another program owns it.
    [[nodiscard]] const PasteboardContents* contents() const { return contents_.get(); }
    [[nodiscard]] X11SelectionSender& sender() { return sender_; }
    [[nodiscard]] const X11SelectionSender& sender() const { return sender_; }

    // Every change of the owner, and the change count that it gets. True where it is a write of ours, whose completion
    // has then been called.
    bool onOwnerChange(const xcb_xfixes_selection_notify_event_t& event, std::int64_t changeCount);
    void onPropertyNotify(const xcb_property_notify_event_t& event);
    void onSelectionRequest(const xcb_selection_request_event_t& event);

private:
    struct Write {
        std::shared_ptr<const PasteboardContents> contents;
        OnWritten completion;
        std::optional<xcb_timestamp_t> time; // set once the server was asked for the clipboard
    };

    void startNextWrite();
    void finishWrite(std::optional<std::int64_t> changeCount);
    [[nodiscard]] bool isServable(const xcb_selection_request_event_t& event) const;
    void serveMultiple(const xcb_selection_request_event_t& event);
    void onPairs(const xcb_selection_request_event_t& event, const xcb_get_property_reply_t* reply);
    [[nodiscard]] bool serve(xcb_window_t requestor, xcb_atom_t target, xcb_atom_t property);
    [[nodiscard]] std::optional<X11Payload> payloadOf(xcb_atom_t target) const;
    [[nodiscard]] xcb_atom_t targetOf(const std::string& type) const;
    [[nodiscard]] std::vector<xcb_atom_t> targets() const;
    void answer(const xcb_selection_request_event_t& event, bool isServed);

    X11Connection& connection_;
    X11SelectionSender sender_;
    std::deque<Write> writes_;
    std::uint64_t writeNumber_ = 0;
    std::shared_ptr<const PasteboardContents> contents_;
    xcb_timestamp_t ownedSince_ = 0;
    Lifetime lifetime_;
};

} // namespace vexil
