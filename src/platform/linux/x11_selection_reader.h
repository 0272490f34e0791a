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

namespace vexil {

// What the owner put into the property that it was asked to fill.
struct X11Property {
    xcb_atom_t type = XCB_NONE;
    std::uint8_t format = 0; // bits of an element: 8, 16 or 32
    Bytes bytes;
};

enum class X11ReadFailure {
    refused,  // the owner has no such target, was replaced, or broke the rules of the transfer
    silent,   // the owner made no progress for kDeadline
    tooLarge, // more than the question allows
};

// On the connection's thread. Questions are asked one after the other, in order; completions may ask again.
class X11SelectionReader {
public:
    using Completion = UniqueFunction<void(Result<X11Property, X11ReadFailure>)>;

    static constexpr Duration kDeadline = std::chrono::seconds(2);

    explicit X11SelectionReader(X11Connection& connection) : connection_(connection) {}

    // An answer of more than `maxBytes` is abandoned as soon as that is known, and the rest not received.
    void convert(xcb_atom_t target, std::size_t maxBytes, Completion completion);

    // The clipboard has a new owner. A transfer under way goes on, but has to end within kDeadline, so that an owner
    // that trickles its bytes cannot hold up those who come after it. Questions that wait are refused: they were meant
    // for the old owner, and would pile up under a program that takes the clipboard again and again and never answers.
    void ownerChanged();

    void onSelectionNotify(const xcb_selection_notify_event_t& event);
    void onPropertyNotify(const xcb_property_notify_event_t& event);

    // When onDeadline() wants to be called; none while nothing is under way.
    [[nodiscard]] std::optional<TimePoint> deadline() const;
    void onDeadline(TimePoint now);

private:
    struct Question {
        xcb_atom_t target;
        std::size_t maxBytes;
        Completion completion;
    };
    enum class Stage { asked, reading, awaitingPiece };
    struct Transfer {
        Question question;
        xcb_atom_t property;
        TimePoint deadline;
        std::optional<TimePoint> lastMoment; // set once the owner has been replaced: no deadline is later
        Stage stage = Stage::asked;
        bool isIncremental = false;
        std::size_t pieceBytes = 0; // of the property that is being read
        X11Property received = {};  // of the first piece's type and format; the others have to agree
    };

    void startNext();
    void readProperty();
    void onPropertyReply(const xcb_get_property_reply_t* reply);
    void onIncrementalStart(const xcb_get_property_reply_t& reply);
    bool append(const xcb_get_property_reply_t& reply);
    void progress();
    static void fail(std::deque<Question> questions, X11ReadFailure failure);
    void abandon(X11ReadFailure failure);
    void finish(Result<X11Property, X11ReadFailure> result);

    X11Connection& connection_;
    std::deque<Question> waiting_;
    std::optional<Transfer> transfer_;
    std::uint64_t transferNumber_ = 0;
    std::size_t nextProperty_ = 0;
    Lifetime lifetime_;
};

} // namespace vexil
