// SPDX-License-Identifier: Apache-2.0
// The pasteboard as the CLIPBOARD selection of an X server.
#pragma once

#include "base/lifetime.h"
#include "platform/linux/x11_clipboard_thread.h"
#include "platform/main_queue.h"
#include "platform/pasteboard.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <set>
#include <string>

namespace vexil {

// The change count is the number of new owners since the start, those that came by the end of the old one included. It
// shows a write of ours from the turn of its completion on, not earlier, so that nobody takes that write for another
// program's. An owner that was silent for 2 s is not asked again before the next change. An image of more than
// 256 MiB reads as none, and so does text of more than 16 MiB, which would not fit into a frame of the link.
//
// Without a display nothing is ever there. A display that does not answer, or ends, is tried again every 2 s; nothing
// is written to standard error.
class X11Pasteboard final : public Pasteboard {
public:
    // On the main queue: what came of the first attempt to connect, and each change from then on.
    using OnConnection = UniqueFunction<void(bool isConnected)>;

    // `display` as in the environment variable DISPLAY; empty: there is none, and onConnection never comes.
    X11Pasteboard(MainQueue& mainQueue, const std::string& display, OnConnection onConnection = {});
    X11Pasteboard(const X11Pasteboard&) = delete;
    X11Pasteboard& operator=(const X11Pasteboard&) = delete;
    ~X11Pasteboard() override;

    [[nodiscard]] bool hasDisplay() const { return thread_ != nullptr; }

    [[nodiscard]] std::int64_t changeCount() const override { return changeCount_.load(std::memory_order_acquire); }
    void types(UniqueFunction<void(std::optional<std::vector<std::string>>)> completion) override;
    void string(UniqueFunction<void(std::optional<std::string>)> completion) override;
    void data(const std::string& type, UniqueFunction<void(std::optional<Bytes>)> completion) override;
    void write(PasteboardContents contents, UniqueFunction<void(std::optional<std::int64_t>)> completion) override;

private:
    template <class T, class Question> void ask(UniqueFunction<void(std::optional<T>)> completion, Question question);
    void raiseChangeCount(std::int64_t count);

    MainQueue& mainQueue_;
    OnConnection onConnection_;
    std::atomic<std::int64_t> changeCount_ = 0;
    std::set<std::shared_ptr<void>> outstanding_; // completions that have not been called
    std::unique_ptr<X11ClipboardThread> thread_;  // null where there is no display
    Lifetime lifetime_;
};

} // namespace vexil
