// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/x11_selection_owner.h"

#include "base/text.h"
#include "platform/linux/x11_pasteboard_targets.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace vexil {

namespace {

// Timestamps are milliseconds that wrap around.
bool isBefore(xcb_timestamp_t left, xcb_timestamp_t right) {
    return static_cast<std::int32_t>(left - right) < 0;
}

} // namespace

void X11SelectionOwner::write(PasteboardContents contents, OnWritten completion) {
    writes_.push_back({.contents = std::make_shared<const PasteboardContents>(std::move(contents)),
                       .completion = std::move(completion),
                       .time = std::nullopt});
    if (writes_.size() == 1)
        startNextWrite();
}

// Appends nothing to a property of ours: the event that this causes carries the server's time.
void X11SelectionOwner::startNextWrite() {
    ++writeNumber_;
    xcb_change_property(connection_.raw(), XCB_PROP_MODE_APPEND, connection_.window(), connection_.atoms().stamp,
                        XCB_ATOM_STRING, 8, 0, nullptr);
}

void X11SelectionOwner::onPropertyNotify(const xcb_property_notify_event_t& event) {
    if (event.window != connection_.window()) {
        sender_.onPropertyNotify(event);
        return;
    }
    if (event.atom != connection_.atoms().stamp || writes_.empty() || writes_.front().time)
        return;
    writes_.front().time = event.time;
    const xcb_atom_t clipboard = connection_.atoms().clipboard;
    xcb_set_selection_owner(connection_.raw(), connection_.window(), clipboard, event.time);
    const auto cookie = xcb_get_selection_owner(connection_.raw(), clipboard);
    // The server tells of a new owner before it answers this, so a write that is still waiting was refused.
    connection_.whenReplied<xcb_get_selection_owner_reply_t>(
        cookie.sequence, lifetime_.guard([this, number = writeNumber_](const xcb_get_selection_owner_reply_t*) {
            if (!writes_.empty() && number == writeNumber_)
                finishWrite(std::nullopt);
        }));
}

bool X11SelectionOwner::onOwnerChange(const xcb_xfixes_selection_notify_event_t& event, std::int64_t changeCount) {
    const bool isOurs = event.owner == connection_.window();
    const bool isThisWrite =
        isOurs && !writes_.empty() && writes_.front().time && *writes_.front().time == event.selection_timestamp;
    if (!isOurs)
        contents_.reset();
    if (!isThisWrite)
        return false;
    contents_ = writes_.front().contents;
    ownedSince_ = event.selection_timestamp;
    finishWrite(changeCount);
    return true;
}

void X11SelectionOwner::finishWrite(std::optional<std::int64_t> changeCount) {
    OnWritten completion = std::move(writes_.front().completion);
    writes_.pop_front();
    ++writeNumber_;
    completion(changeCount);
    if (!writes_.empty())
        startNextWrite();
}

void X11SelectionOwner::onSelectionRequest(const xcb_selection_request_event_t& event) {
    if (!isServable(event))
        return answer(event, false);
    if (event.target == connection_.atoms().multiple)
        return serveMultiple(event);
    // Clients older than the convention name no property and expect the target's name.
    const xcb_atom_t property = event.property == XCB_NONE ? event.target : event.property;
    answer(event, serve(event.requestor, event.target, property));
}

bool X11SelectionOwner::isServable(const xcb_selection_request_event_t& event) const {
    const bool isOutOfTime = event.time != XCB_CURRENT_TIME && isBefore(event.time, ownedSince_);
    return contents_ && event.owner == connection_.window() && event.selection == connection_.atoms().clipboard &&
           event.requestor != connection_.window() && !isOutOfTime;
}

void X11SelectionOwner::serveMultiple(const xcb_selection_request_event_t& event) {
    if (event.property == XCB_NONE)
        return answer(event, false);
    const auto cookie = xcb_get_property(connection_.raw(), 0, event.requestor, event.property,
                                         XCB_GET_PROPERTY_TYPE_ANY, 0, 2 * kMaxPairs);
    connection_.whenReplied<xcb_get_property_reply_t>(
        cookie.sequence,
        lifetime_.guard([this, event](const xcb_get_property_reply_t* reply) { onPairs(event, reply); }));
}

// The pairs that could not be served go back with None in place of their property.
void X11SelectionOwner::onPairs(const xcb_selection_request_event_t& event, const xcb_get_property_reply_t* reply) {
    if (reply == nullptr || reply->format != 32 || reply->bytes_after > 0 || !isServable(event))
        return answer(event, false);
    std::vector<xcb_atom_t> pairs(std::size_t{2} * (reply->value_len / 2));
    if (!pairs.empty())
        std::memcpy(pairs.data(), xcb_get_property_value(reply), pairs.size() * sizeof(xcb_atom_t));
    for (std::size_t i = 0; i < pairs.size(); i += 2) {
        const bool isNested = pairs[i] == connection_.atoms().multiple || pairs[i + 1] == event.property;
        if (pairs[i + 1] == XCB_NONE || isNested || !serve(event.requestor, pairs[i], pairs[i + 1]))
            pairs[i + 1] = XCB_NONE;
    }
    xcb_change_property(connection_.raw(), XCB_PROP_MODE_REPLACE, event.requestor, event.property,
                        connection_.atoms().atomPair, 32, static_cast<std::uint32_t>(pairs.size()), pairs.data());
    answer(event, true);
}

bool X11SelectionOwner::serve(xcb_window_t requestor, xcb_atom_t target, xcb_atom_t property) {
    const X11Atoms& atoms = connection_.atoms();
    if (target == atoms.targets) {
        const auto list = targets();
        xcb_change_property(connection_.raw(), XCB_PROP_MODE_REPLACE, requestor, property, XCB_ATOM_ATOM, 32,
                            static_cast<std::uint32_t>(list.size()), list.data());
        return true;
    }
    if (target == atoms.timestamp) {
        xcb_change_property(connection_.raw(), XCB_PROP_MODE_REPLACE, requestor, property, XCB_ATOM_INTEGER, 32, 1,
                            &ownedSince_);
        return true;
    }
    std::optional<X11Payload> payload = payloadOf(target);
    return payload && sender_.send(requestor, property, std::move(*payload));
}

std::optional<X11Payload> X11SelectionOwner::payloadOf(xcb_atom_t target) const {
    if (target == XCB_NONE)
        return std::nullopt;
    const X11Atoms& atoms = connection_.atoms();
    const auto textTargets = x11_targets::ofText(atoms);
    if (std::find(textTargets.begin(), textTargets.end(), target) != textTargets.end()) {
        if (!contents_->text)
            return std::nullopt;
        if (target != XCB_ATOM_STRING)
            return X11Payload{contents_, bytesOf(*contents_->text), target};
        auto latin1 = text::toLatin1(*contents_->text);
        if (!latin1)
            return std::nullopt;
        const auto kept = std::make_shared<const std::string>(std::move(*latin1));
        return X11Payload{kept, bytesOf(*kept), target};
    }
    for (const auto& part : contents_->data) {
        if (targetOf(part.type) == target)
            return X11Payload{contents_, part.bytes, target};
    }
    if (contents_->promise && targetOf(contents_->promise->type) == target) {
        const auto& made = contents_->promise->bytes->madeFrom(contents_->data.front().bytes);
        if (made)
            return X11Payload{contents_, *made, target};
    }
    return std::nullopt;
}

// The one target under which we offer a type other than text.
xcb_atom_t X11SelectionOwner::targetOf(const std::string& type) const {
    const auto names = x11_targets::ofData(type, connection_.atoms());
    return names.empty() ? xcb_atom_t{XCB_NONE} : names.front();
}

std::vector<xcb_atom_t> X11SelectionOwner::targets() const {
    const X11Atoms& atoms = connection_.atoms();
    std::vector<xcb_atom_t> offered = {atoms.targets, atoms.timestamp, atoms.multiple};
    const std::vector<xcb_atom_t> ofText = x11_targets::ofText(atoms);
    std::copy_if(ofText.begin(), ofText.end(), std::back_inserter(offered),
                 [this](xcb_atom_t target) { return payloadOf(target).has_value(); });
    const auto offer = [this, &offered](const std::string& type) {
        if (const xcb_atom_t target = targetOf(type); target != XCB_NONE)
            offered.push_back(target);
    };
    for (const auto& part : contents_->data)
        offer(part.type);
    if (contents_->promise)
        offer(contents_->promise->type); // whether it can be kept shows when it is asked for
    return offered;
}

void X11SelectionOwner::answer(const xcb_selection_request_event_t& event, bool isServed) {
    xcb_selection_notify_event_t notice{};
    notice.response_type = XCB_SELECTION_NOTIFY;
    notice.time = event.time;
    notice.requestor = event.requestor;
    notice.selection = event.selection;
    notice.target = event.target;
    notice.property = XCB_NONE;
    if (isServed)
        notice.property = event.property == XCB_NONE ? event.target : event.property;
    // The server sends 32 bytes, more than the event has.
    char sent[32] = {};
    static_assert(sizeof notice <= sizeof sent);
    std::memcpy(sent, &notice, sizeof notice);
    xcb_send_event(connection_.raw(), 0, event.requestor, XCB_EVENT_MASK_NO_EVENT, sent);
}

} // namespace vexil
