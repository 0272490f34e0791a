// SPDX-License-Identifier: Apache-2.0
// Two pasteboards on the X server that DISPLAY names.
#pragma once

#include "platform/contract/pasteboard_session.h"
#include "platform/contract/waiting_main_queue.h"
#include "platform/contract/x11_peer.h"
#include "platform/linux/x11_pasteboard.h"

#include <future>
#include <memory>
#include <optional>
#include <string>

namespace vexil {

class X11PasteboardSession final : public PasteboardSession {
public:
    X11PasteboardSession();
    ~X11PasteboardSession() override { endHang(); }

    X11Pasteboard& ours() override { return ours_; }
    X11Pasteboard& theirs() override { return theirs_; }
    void copyConcealedAndHang(const std::string& text) override;
    void endHang() override;
    bool runUntil(const std::function<bool()>& isSo) override { return queue_.runUntil(isSo); }
    [[nodiscard]] WaitingMainQueue& queue() { return queue_; }

private:
    WaitingMainQueue queue_;
    int connections_ = 0;
    X11Pasteboard ours_;
    X11Pasteboard theirs_;
    std::optional<std::promise<void>> hangEnd_;
    std::unique_ptr<ScriptedOwner> hanging_;
};

} // namespace vexil
