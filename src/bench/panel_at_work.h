// SPDX-License-Identifier: Apache-2.0
// A panel's model that is sent snapshots over a link, for being measured.
#pragma once

#include "capture/clipboard_watcher.h"
#include "link/clipboard_link_server.h"
#include "link/test_main_application.h"
#include "panel/clipboard_panel_model.h"
#include "platform/memory/memory_image_codec.h"
#include "platform/memory/memory_loopback_tcp.h"
#include "platform/memory/memory_main_queue.h"
#include "platform/memory/memory_pasteboard.h"
#include "platform/memory/memory_secure_random.h"
#include "platform/memory/memory_user_defaults.h"

#include <memory>
#include <utility>

namespace vexil::bench {

// A main queue that notes how long its longest turn took.
class TimedMainQueue final : public MainQueue {
public:
    explicit TimedMainQueue(MainQueue& queue) : queue_(queue) {}

    [[nodiscard]] TimePoint now() const override { return queue_.now(); }
    void post(Task task) override { queue_.post(timed(std::move(task))); }
    [[nodiscard]] Timer after(Duration delay, Task task) override {
        return queue_.after(delay, timed(std::move(task)));
    }

    // Milliseconds of the longest since the last call.
    double takeLongestTurn() { return std::exchange(longest_, 0.0); }

private:
    [[nodiscard]] Task timed(Task task);

    MainQueue& queue_;
    double longest_ = 0;
};

// All on one thread: what the worker does is done in afterwards(), and not within a turn of the main queue.
class PanelAtWork {
public:
    PanelAtWork();

    // Sends the model a snapshot with this history. Returns the milliseconds that the main queue is held up by it,
    // without reading the snapshot, which the link thread does; the worker has not begun then.
    double receive(std::vector<ClipboardRowSummary> history);
    // Lets the worker, and what it hands back, run. Returns the milliseconds of it all.
    double afterwards();

    [[nodiscard]] ClipboardPanelModel& model() { return *model_; }
    [[nodiscard]] TimedMainQueue& modelQueue() { return modelQueue_; }

private:
    MemoryMainQueue queue_;
    TimedMainQueue modelQueue_{queue_};
    MemoryLoopbackTcp network_{queue_};
    MemorySecureRandom random_;
    MemoryImageCodec codec_;
    MemoryPasteboard pasteboard_{queue_};
    MemorySerialQueue worker_{queue_};
    MemoryUserDefaults defaults_{queue_};
    ClipboardLinkServer server_{queue_, network_, random_};
    ClipboardWatcher watcher_{queue_, pasteboard_, worker_, codec_, server_};
    std::unique_ptr<ClipboardPanelModel> model_;
    std::unique_ptr<TestMainApplication> main_;
    UniqueFunction<void()> reload_;
    double reloadTime_ = 0;
};

} // namespace vexil::bench
