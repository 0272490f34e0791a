// SPDX-License-Identifier: Apache-2.0
// Notices what the person copies and hands it to the link.
#pragma once

#include "base/bytes.h"
#include "base/lifetime.h"
#include "platform/image_codec.h"
#include "platform/main_queue.h"
#include "platform/pasteboard.h"
#include "platform/serial_queue.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vexil {

class ClipboardLinkServer;

// Main queue only; measuring texts and converting images happens on the processing queue, in the order in which the
// changes were seen. Whatever cannot be read is skipped silently: another program's clipboard is not ours to judge.
//
// Reading takes several steps, since content lives in another program. Each step looks whether the pasteboard has
// changed since the poll: content that came later was never checked for a mark that forbids recording it, so it is
// left to its own poll.
class ClipboardWatcher {
public:
    static constexpr Duration kPollInterval = std::chrono::milliseconds(750);
    static constexpr std::size_t kMaxTextCharacters = 4096;
    static constexpr double kJpegQuality = 0.85;
    // While so much waits to be measured or converted, polls wait too: what is copied meanwhile is one change more.
    static constexpr std::size_t kMaxUnprocessedBytes = 64U << 20;

    // All that is given outlives the watcher, and the last task of `processingQueue` in the codec's case. What is on
    // the pasteboard now is never reported.
    ClipboardWatcher(MainQueue& mainQueue, Pasteboard& pasteboard, SerialQueue& processingQueue, ImageCodec& codec,
                     ClipboardLinkServer& server);

    // Starts polling; a second call does nothing.
    void start();

    // The change count of the program's own last write: exactly that change is skipped, once.
    void selfWrittenChangeCount(std::int64_t count) { selfWrittenChangeCount_ = count; }

private:
    void schedulePoll();
    void poll();
    void readTypes(std::int64_t change);
    void readText(std::int64_t change);
    void readImage(std::int64_t change, std::size_t preference);
    void processText(std::string text);
    void processImage(Bytes image);
    // Runs `work` on the processing queue and hands what it returns to `publish`, here.
    template <class Work, class Publish> void process(std::size_t size, Work work, Publish publish);
    // Guards a step of reading: it does nothing once the pasteboard has gone on.
    template <class F> auto ifStillAt(std::int64_t change, F step);

    MainQueue& mainQueue_;
    Pasteboard& pasteboard_;
    SerialQueue& processingQueue_;
    ImageCodec& codec_;
    ClipboardLinkServer& server_;
    Timer timer_;
    bool isStarted_ = false;
    std::int64_t lastChangeCount_;
    std::optional<std::int64_t> selfWrittenChangeCount_;
    std::size_t unprocessedBytes_ = 0;
    Lifetime lifetime_;
};

} // namespace vexil
