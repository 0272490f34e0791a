// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/x11_pasteboard_session.h"

#include "platform/contract/x11_peer.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace vexil {

namespace {

// The server ends the ownership of a client that has just gone in its own time, which would count as a change. To be
// made before the pasteboards connect.
const char* displayWithoutOwner() {
    X11Peer peer;
    while (peer.clipboardOwner() != XCB_NONE)
        peer.flushAndSync();
    return std::getenv("DISPLAY");
}

} // namespace

X11PasteboardSession::X11PasteboardSession()
    : ours_(queue_, displayWithoutOwner(), [this](bool isConnected) { connections_ += isConnected ? 1 : 0; }),
      theirs_(queue_, std::getenv("DISPLAY"), [this](bool isConnected) { connections_ += isConnected ? 1 : 0; }) {
    EXPECT_TRUE(runUntil([this] { return connections_ == 2; }));
}

void X11PasteboardSession::copyConcealedAndHang(const std::string& text) {
    hangEnd_.emplace();
    hanging_ = std::make_unique<ScriptedOwner>(
        [hangEnd = hangEnd_->get_future().share(),
         answer = honest({{"UTF8_STRING", text}, {pasteboard_type::kConcealed, ""}})](
            X11Peer& peer, const xcb_selection_request_event_t& request, const std::string& target) {
            hangEnd.wait();
            answer(peer, request, target);
        });
}

void X11PasteboardSession::endHang() {
    if (hangEnd_)
        hangEnd_->set_value();
    hangEnd_.reset();
}

std::vector<PasteboardSessionFactory> pasteboardSessionFactories() {
    return {{"X11", []() -> std::unique_ptr<PasteboardSession> { return std::make_unique<X11PasteboardSession>(); }}};
}

} // namespace vexil
