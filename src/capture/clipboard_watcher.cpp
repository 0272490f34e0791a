// SPDX-License-Identifier: Apache-2.0
#include "capture/clipboard_watcher.h"

#include "base/text.h"
#include "link/clipboard_link_server.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vexil {

namespace {

constexpr std::array kImagePreference{pasteboard_type::kPng, pasteboard_type::kTiff, pasteboard_type::kAnyImage};

bool forbidsRecording(const std::string& type) {
    return type == pasteboard_type::kConcealed || type == pasteboard_type::kTransient;
}

} // namespace

ClipboardWatcher::ClipboardWatcher(MainQueue& mainQueue, Pasteboard& pasteboard, SerialQueue& processingQueue,
                                   ImageCodec& codec, ClipboardLinkServer& server)
    : mainQueue_(mainQueue),
      pasteboard_(pasteboard),
      processingQueue_(processingQueue),
      codec_(codec),
      server_(server),
      lastChangeCount_(pasteboard.changeCount()) {}

void ClipboardWatcher::start() {
    if (!std::exchange(isStarted_, true))
        schedulePoll();
}

void ClipboardWatcher::schedulePoll() {
    timer_ = mainQueue_.after(kPollInterval, lifetime_.guard([this] {
        schedulePoll();
        poll();
    }));
}

void ClipboardWatcher::poll() {
    const auto change = pasteboard_.changeCount();
    if (change == lastChangeCount_ || unprocessedBytes_ > kMaxUnprocessedBytes)
        return;
    lastChangeCount_ = change;
    if (selfWrittenChangeCount_ == change) {
        selfWrittenChangeCount_.reset();
        return;
    }
    if (server_.isConnected())
        readTypes(change);
}

template <class F> auto ClipboardWatcher::ifStillAt(std::int64_t change, F step) {
    return lifetime_.guard([this, change, step = std::move(step)](auto content) mutable {
        if (pasteboard_.changeCount() == change)
            step(std::move(content));
    });
}

void ClipboardWatcher::readTypes(std::int64_t change) {
    pasteboard_.types(ifStillAt(change, [this, change](const std::optional<std::vector<std::string>>& types) {
        if (!types || std::none_of(types->begin(), types->end(), forbidsRecording))
            readText(change);
    }));
}

void ClipboardWatcher::readText(std::int64_t change) {
    pasteboard_.string(ifStillAt(change, [this, change](std::optional<std::string> text) {
        if (text && !text->empty())
            processText(std::move(*text));
        else
            readImage(change, 0);
    }));
}

void ClipboardWatcher::readImage(std::int64_t change, std::size_t preference) {
    if (preference == kImagePreference.size())
        return; // files, rich text without a plain form: nothing that is reported
    auto received = [this, change, preference](std::optional<Bytes> image) {
        if (image)
            processImage(std::move(*image));
        else
            readImage(change, preference + 1);
    };
    pasteboard_.data(kImagePreference.at(preference), ifStillAt(change, std::move(received)));
}

template <class Work, class Publish> void ClipboardWatcher::process(std::size_t size, Work work, Publish publish) {
    unprocessedBytes_ += size;
    auto finish = lifetime_.guard([this, size, publish = std::move(publish)](auto result) mutable {
        unprocessedBytes_ -= size;
        publish(std::move(result));
    });
    processingQueue_.post([&queue = mainQueue_, work = std::move(work), finish = std::move(finish)]() mutable {
        queue.post([finish = std::move(finish), result = work()]() mutable { finish(std::move(result)); });
    });
}

void ClipboardWatcher::processText(std::string text) {
    const std::size_t size = text.size();
    auto measure = [text = std::move(text)]() mutable -> std::optional<std::string> {
        if (text::hasMoreCharactersThan(text, kMaxTextCharacters))
            return std::nullopt;
        return std::move(text);
    };
    process(size, std::move(measure), [this](std::optional<std::string> measured) {
        if (measured)
            server_.publishPasteboardChange(ClipboardKind::text, std::move(measured), std::nullopt);
    });
}

void ClipboardWatcher::processImage(Bytes image) {
    const std::size_t size = image.size();
    auto convert = [&codec = codec_, image = std::move(image)] { return codec.toJpeg(image, kJpegQuality); };
    process(size, std::move(convert), [this](std::optional<Bytes> jpeg) {
        server_.publishPasteboardChange(ClipboardKind::image, std::nullopt, std::move(jpeg));
    });
}

} // namespace vexil
