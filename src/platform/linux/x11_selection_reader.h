// SPDX-License-Identifier: Apache-2.0
// Asks the owner of the clipboard for its content, one target at a time.
#pragma once

#include "base/bytes.h"
#include "base/lifetime.h"
#include "base/result.h"
#include "platform/linux/x11_connection.h"
#include "platform/main_queue.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace vexil {

// What the owner put into the property that it was asked to fill.
struct X11Property {
    xcb_atom_t type = XCB_NONE;
    std::uint8_t format = 0; // bits of an element: 8, 16 or 32
    Bytes bytes;
};

enum class X11ReadFailure {
    refused,  // the owner has no such target, ended, or broke the rules of the transfer
    silent,   // the owner made no progress for kDeadline
    tooLarge, // more than kMaxBytes
};

// On the connection's thread. Questions are asked one after the other, in order; completions may ask again.
class X11SelectionReader {
public:
    using Completion = UniqueFunction<void(Result<X11Property, X11ReadFailure>)>;

    static constexpr Duration kDeadline = std::chrono::seconds(2);
    static constexpr std::size_t kMaxBytes = std::size_t{256} * 1024 * 1024;

    explicit X11SelectionReader(X11Connection& connection) : connection_(connection) {}

    void convert(xcb_atom_t target, Completion completion);

    // The clipboard has a new owner. A transfer under way goes on, but has to end within kDeadline, so that an owner
    // that trickles its bytes cannot hold up those who come after it.
    void ownerChanged();

    void onSelectionNotify(const xcb_selection_notify_event_t& event);
    void onPropertyNotify(const xcb_property_notify_event_t& event);

    // When onDeadline() wants to be called; none while nothing is under way.
    [[nodiscard]] std::optional<TimePoint> deadline() const;
    void onDeadline(TimePoint now);

private:
    struct Question {
        xcb_atom_t target;
        std::uint64_t owner; // counts the owners that we have seen
        Completion completion;
    };
    enum class Stage { asked, reading, awaitingPiece };
    struct Transfer {
        Question question;
        xcb_atom_t property;
        TimePoint deadline;
        std::optional<TimePoint> lastMoment; // where set, progress does not move the deadline beyond it
        Stage stage = Stage::asked;
        bool isIncremental = false;
        std::size_t pieceBytes = 0; // of the property that is being read
        xcb_atom_t type = XCB_NONE; // of the first piece; the others have to agree
        std::uint8_t format = 0;
        std::vector<std::string> parts = {};
        std::size_t receivedBytes = 0;
    };

    void startNext();
    void readProperty();
    void onPropertyReply(const xcb_get_property_reply_t* reply);
    void onIncrementalStart(const xcb_get_property_reply_t& reply);
    bool append(const xcb_get_property_reply_t& reply);
    void progress();
    void abandon(X11ReadFailure failure);
    void finish(Result<X11Property, X11ReadFailure> result);

    X11Connection& connection_;
    std::deque<Question> waiting_;
    std::optional<Transfer> transfer_;
    std::uint64_t transferNumber_ = 0;
    std::uint64_t owner_ = 0;
    std::size_t nextProperty_ = 0;
    Lifetime lifetime_;
};

} // namespace vexil
