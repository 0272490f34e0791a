// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/x11_selection_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vexil {

namespace {

constexpr std::size_t kMaxBytesPerRead = 4'194'304;

} // namespace

void X11SelectionReader::convert(xcb_atom_t target, std::size_t maxBytes, Completion completion) {
    waiting_.push_back({target, maxBytes, std::move(completion)});
    if (!transfer_)
        startNext();
}

void X11SelectionReader::startNext() {
    if (waiting_.empty())
        return;
    const X11Atoms& atoms = connection_.atoms();
    transfer_.emplace(Transfer{.question = std::move(waiting_.front()),
                               .property = atoms.incoming[nextProperty_],
                               .deadline = Clock::now() + kDeadline,
                               .lastMoment = std::nullopt});
    waiting_.pop_front();
    ++transferNumber_;
    xcb_convert_selection(connection_.raw(), connection_.window(), atoms.clipboard, transfer_->question.target,
                          transfer_->property, XCB_CURRENT_TIME);
}

void X11SelectionReader::ownerChanged() {
    if (transfer_ && !transfer_->lastMoment)
        transfer_->lastMoment = Clock::now() + kDeadline;
    fail(std::exchange(waiting_, {}), X11ReadFailure::refused);
}

void X11SelectionReader::onSelectionNotify(const xcb_selection_notify_event_t& event) {
    if (event.requestor != connection_.window() || event.selection != connection_.atoms().clipboard)
        return;
    const bool isAwaited = transfer_ && transfer_->stage == Stage::asked && event.target == transfer_->question.target;
    if (isAwaited && event.property == XCB_NONE)
        return finish(Failure{X11ReadFailure::refused});
    if (isAwaited && event.property == transfer_->property)
        return readProperty();
    // The answer to a question that was given up.
    const auto& ours = connection_.atoms().incoming;
    const bool isUnderWay = transfer_ && event.property == transfer_->property;
    if (!isUnderWay && std::find(ours.begin(), ours.end(), event.property) != ours.end())
        xcb_delete_property(connection_.raw(), connection_.window(), event.property);
}

void X11SelectionReader::onPropertyNotify(const xcb_property_notify_event_t& event) {
    if (transfer_ && transfer_->stage == Stage::awaitingPiece && event.window == connection_.window() &&
        event.atom == transfer_->property && event.state == XCB_PROPERTY_NEW_VALUE) {
        transfer_->pieceBytes = 0;
        readProperty();
    }
}

// The server deletes the property along with the read that reaches its end, which tells the owner to go on.
void X11SelectionReader::readProperty() {
    transfer_->stage = Stage::reading;
    // What is beyond the limit need not come to be refused: the reply says how much there is.
    const std::size_t bytes = std::min(kMaxBytesPerRead, transfer_->question.maxBytes + 1);
    const auto cookie = xcb_get_property(
        connection_.raw(), 1, connection_.window(), transfer_->property, XCB_GET_PROPERTY_TYPE_ANY,
        static_cast<std::uint32_t>(transfer_->pieceBytes / 4), static_cast<std::uint32_t>((bytes + 3) / 4));
    connection_.whenReplied<xcb_get_property_reply_t>(
        cookie.sequence, lifetime_.guard([this, number = transferNumber_](const xcb_get_property_reply_t* reply) {
            if (transfer_ && number == transferNumber_)
                onPropertyReply(reply);
        }));
}

void X11SelectionReader::onPropertyReply(const xcb_get_property_reply_t* reply) {
    Transfer& transfer = *transfer_;
    if (reply == nullptr)
        return abandon(X11ReadFailure::refused);
    if (reply->type == XCB_NONE) {
        if (!transfer.isIncremental)
            return abandon(X11ReadFailure::refused);
        transfer.stage = Stage::awaitingPiece; // somebody deleted the piece before we came to it
        return;
    }
    if (reply->type == connection_.atoms().incr && !transfer.isIncremental && transfer.pieceBytes == 0)
        return onIncrementalStart(*reply);
    if (!append(*reply))
        return;
    progress();
    if (reply->bytes_after > 0)
        return readProperty();
    if (transfer.isIncremental && transfer.pieceBytes > 0) {
        transfer.stage = Stage::awaitingPiece;
        return;
    }
    finish(std::move(transfer.received));
}

void X11SelectionReader::onIncrementalStart(const xcb_get_property_reply_t& reply) {
    std::uint32_t announced = 0; // a lower bound, which some owners leave at zero
    if (reply.format == 32 && reply.value_len >= 1)
        std::memcpy(&announced, xcb_get_property_value(&reply), sizeof announced);
    if (announced > transfer_->question.maxBytes)
        return abandon(X11ReadFailure::tooLarge);
    if (reply.bytes_after > 0)
        return abandon(X11ReadFailure::refused);
    transfer_->received.bytes.reserve(announced);
    transfer_->isIncremental = true;
    transfer_->stage = Stage::awaitingPiece;
    progress();
}

// Adds the bytes of one reply to what was received; false where that ended the transfer.
bool X11SelectionReader::append(const xcb_get_property_reply_t& reply) {
    Transfer& transfer = *transfer_;
    const auto length = static_cast<std::size_t>(xcb_get_property_value_length(&reply));
    X11Property& received = transfer.received;
    if (received.type == XCB_NONE) {
        received.type = reply.type;
        received.format = reply.format;
    } else if (length > 0 && (received.type != reply.type || received.format != reply.format)) {
        abandon(X11ReadFailure::refused);
        return false;
    }
    if (received.bytes.size() + length + reply.bytes_after > transfer.question.maxBytes) {
        abandon(X11ReadFailure::tooLarge);
        return false;
    }
    if (reply.bytes_after > 0 && !transfer.isIncremental)
        received.bytes.reserve(received.bytes.size() + length + reply.bytes_after);
    if (length > 0) {
        received.bytes.resize(received.bytes.size() + length);
        std::memcpy(received.bytes.data() + received.bytes.size() - length, xcb_get_property_value(&reply), length);
    }
    transfer.pieceBytes += length;
    return true;
}

void X11SelectionReader::progress() {
    transfer_->deadline = Clock::now() + kDeadline;
    if (transfer_->lastMoment)
        transfer_->deadline = std::min(transfer_->deadline, *transfer_->lastMoment);
}

std::optional<TimePoint> X11SelectionReader::deadline() const {
    return transfer_ ? std::optional(transfer_->deadline) : std::nullopt;
}

void X11SelectionReader::onDeadline(TimePoint now) {
    if (!transfer_ || now < transfer_->deadline)
        return;
    // Whoever asked the same owner would wait in vain, too. All that wait asked the present one.
    std::deque<Question> hopeless;
    if (!transfer_->lastMoment)
        hopeless.swap(waiting_);
    abandon(X11ReadFailure::silent);
    fail(std::move(hopeless), X11ReadFailure::silent);
}

void X11SelectionReader::fail(std::deque<Question> questions, X11ReadFailure failure) {
    for (Question& question : questions)
        question.completion(Failure{failure});
}

// The owner may yet answer, or go on sending: the next question uses another property.
void X11SelectionReader::abandon(X11ReadFailure failure) {
    xcb_delete_property(connection_.raw(), connection_.window(), transfer_->property);
    nextProperty_ = (nextProperty_ + 1) % connection_.atoms().incoming.size();
    finish(Failure{failure});
}

void X11SelectionReader::finish(Result<X11Property, X11ReadFailure> result) {
    Completion completion = std::move(transfer_->question.completion);
    transfer_.reset();
    completion(std::move(result));
    if (!transfer_)
        startNext();
}

} // namespace vexil
