// SPDX-License-Identifier: Apache-2.0
// The clipboard of one X server for as long as the connection lasts.
#pragma once

#include "platform/linux/x11_clipboard_content.h"
#include "platform/linux/x11_connection.h"
#include "platform/linux/x11_selection_owner.h"
#include "platform/linux/x11_selection_reader.h"

#include <memory>
#include <optional>
#include <string>

namespace vexil {

// On one thread. Completions that the connection did not live to call are destroyed uncalled.
class X11Clipboard {
public:
    // Gets the new change count when another program has changed the clipboard.
    using OnForeignChange = UniqueFunction<void(std::int64_t)>;

    // Change counts go on from `changeCount`.
    X11Clipboard(std::unique_ptr<X11Connection> connection, std::int64_t changeCount, OnForeignChange onForeignChange);

    [[nodiscard]] int descriptor() const { return connection_->descriptor(); }
    [[nodiscard]] std::int64_t changeCount() const { return changeCount_; }
    [[nodiscard]] bool hadOwnerAtOpening() const { return connection_->ownerAtOpening() != XCB_NONE; }

    void types(X11ClipboardContent::OnTypes completion);
    void string(X11ClipboardContent::OnString completion);
    void data(const std::string& type, X11ClipboardContent::OnData completion);
    void write(PasteboardContents contents, X11SelectionOwner::OnWritten completion);

    // Does what can be done without waiting, up to a bound; false where the connection has failed.
    bool process();
    // When to call process() even if nothing arrives; none while nothing is under way or left over.
    [[nodiscard]] std::optional<TimePoint> deadline() const;

private:
    void onEvent(const xcb_generic_event_t& event);
    void onOwnerChange(const xcb_xfixes_selection_notify_event_t& event);

    std::unique_ptr<X11Connection> connection_;
    std::int64_t changeCount_;
    OnForeignChange onForeignChange_;
    X11SelectionReader reader_;
    X11ClipboardContent content_;
    X11SelectionOwner owner_;
    X11Connection::EventHandler eventHandler_;
    Lifetime lifetime_;
};

} // namespace vexil
