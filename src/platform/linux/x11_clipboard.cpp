// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/x11_clipboard.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace vexil {

namespace {

// Events come with their own layout behind a common head.
template <class Event> const Event& as(const xcb_generic_event_t& event) {
    return reinterpret_cast<const Event&>(event);
}

std::vector<std::string> typesOf(const PasteboardContents& contents) {
    std::vector<std::string> types;
    const auto add = [&types](const char* type) {
        if (std::find(types.begin(), types.end(), type) == types.end())
            types.emplace_back(type);
    };
    if (contents.text)
        add(pasteboard_type::kString);
    for (const auto& part : contents.data) {
        add(part.type.c_str());
        if (part.type == pasteboard_type::kJpeg)
            add(pasteboard_type::kAnyImage);
    }
    if (contents.promise)
        add(contents.promise->type.c_str());
    return types;
}

std::optional<Bytes> dataOf(const PasteboardContents& contents, const std::string& type) {
    const auto part = std::find_if(contents.data.begin(), contents.data.end(), [&type](const auto& candidate) {
        return candidate.type == type ||
               (type == pasteboard_type::kAnyImage && candidate.type == pasteboard_type::kJpeg);
    });
    if (part != contents.data.end())
        return part->bytes;
    if (contents.promise && contents.promise->type == type)
        return contents.promise->bytes->madeFrom(contents.data.front().bytes);
    return std::nullopt;
}

} // namespace

X11Clipboard::X11Clipboard(std::unique_ptr<X11Connection> connection, std::int64_t changeCount,
                           OnForeignChange onForeignChange)
    : connection_(std::move(connection)),
      changeCount_(changeCount),
      onForeignChange_(std::move(onForeignChange)),
      reader_(*connection_),
      content_(reader_, connection_->atoms(), hadOwnerAtOpening()),
      owner_(*connection_) {
    eventHandler_ = lifetime_.guard([this](const xcb_generic_event_t& event) { onEvent(event); });
}

// What we own is answered at once: asking ourselves through the server would copy it twice.
void X11Clipboard::types(X11ClipboardContent::OnTypes completion) {
    if (const PasteboardContents* ours = owner_.contents())
        return completion(typesOf(*ours));
    content_.types(std::move(completion));
}

void X11Clipboard::string(X11ClipboardContent::OnString completion) {
    if (const PasteboardContents* ours = owner_.contents())
        return completion(ours->text);
    content_.string(std::move(completion));
}

void X11Clipboard::data(const std::string& type, X11ClipboardContent::OnData completion) {
    if (const PasteboardContents* ours = owner_.contents())
        return completion(dataOf(*ours, type));
    content_.data(type, std::move(completion));
}

void X11Clipboard::write(PasteboardContents contents, X11SelectionOwner::OnWritten completion) {
    owner_.write(std::move(contents), std::move(completion));
}

// Twice, since the deadlines lead to requests, which dispatching sends.
bool X11Clipboard::process() {
    if (!connection_->dispatch(eventHandler_))
        return false;
    const TimePoint now = Clock::now();
    reader_.onDeadline(now);
    owner_.sender().onDeadline(now);
    return connection_->dispatch(eventHandler_);
}

std::optional<TimePoint> X11Clipboard::deadline() const {
    if (connection_->isBacklogged())
        return TimePoint(); // which is long past
    const auto reading = reader_.deadline();
    const auto sending = owner_.sender().deadline();
    return reading && sending ? std::min(reading, sending) : reading ? reading : sending;
}

void X11Clipboard::onEvent(const xcb_generic_event_t& event) {
    if (connection_->isOwnerChange(event))
        return onOwnerChange(as<xcb_xfixes_selection_notify_event_t>(event));
    switch (event.response_type & 0x7f) {
    case XCB_SELECTION_NOTIFY:
        return reader_.onSelectionNotify(as<xcb_selection_notify_event_t>(event));
    case XCB_SELECTION_REQUEST:
        return owner_.onSelectionRequest(as<xcb_selection_request_event_t>(event));
    case XCB_PROPERTY_NOTIFY:
        reader_.onPropertyNotify(as<xcb_property_notify_event_t>(event));
        return owner_.onPropertyNotify(as<xcb_property_notify_event_t>(event));
    case XCB_DESTROY_NOTIFY:
        return owner_.sender().onDestroyNotify(as<xcb_destroy_notify_event_t>(event));
    default:
        return; // an error that nobody waits for, or an event of no meaning here
    }
}

void X11Clipboard::onOwnerChange(const xcb_xfixes_selection_notify_event_t& event) {
    if (event.selection != connection_->atoms().clipboard)
        return;
    ++changeCount_;
    if (!owner_.onOwnerChange(event, changeCount_))
        onForeignChange_(changeCount_);
    // Last, so that whoever is told that the change overtook a read finds the count raised already.
    content_.ownerChanged(event.owner != XCB_NONE);
}

} // namespace vexil
