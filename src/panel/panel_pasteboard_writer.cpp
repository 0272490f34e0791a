// SPDX-License-Identifier: Apache-2.0
#include "panel/panel_pasteboard_writer.h"

#include "capture/clipboard_watcher.h"

#include <memory>
#include <string>
#include <utility>

namespace vexil {

namespace {

// The image as it came, along with the PNG that many programs want; nothing where it is none. One of a format that no
// pasteboard type stands for can only be offered as PNG.
PasteboardContents contentsOf(ImageCodec& codec, Bytes image) {
    PasteboardContents contents;
    const auto type = codec.typeOf(image);
    if (type == pasteboard_type::kAnyImage) {
        if (auto png = codec.toPng(image))
            contents.data.push_back({.type = pasteboard_type::kPng, .bytes = std::move(*png)});
    } else if (type) {
        contents.data.push_back({.type = *type, .bytes = std::move(image)});
        auto makePng = [&codec](ByteView source) { return codec.toPng(source); };
        if (type != pasteboard_type::kPng)
            contents.promise = {.type = pasteboard_type::kPng,
                                .bytes = std::make_shared<PromisedBytes>(std::move(makePng))};
    }
    return contents;
}

} // namespace

void PanelPasteboardWriter::write(ClipboardEntryPayload payload, std::optional<Bytes> image, Task completion) {
    ++latestWrite_;
    if (payload.kind == ClipboardKind::text)
        put({.text = std::move(payload.text).value_or(std::string()), .data = {}}, std::move(completion));
    else if (image)
        examine(std::move(*image), std::move(completion));
    else
        put({}, std::move(completion));
}

// An image of megabytes takes a while to be looked through.
void PanelPasteboardWriter::examine(Bytes image, Task completion) {
    auto finish = lifetime_.guard(
        [this, number = latestWrite_, completion = std::move(completion)](PasteboardContents contents) mutable {
            if (number == latestWrite_)
                put(std::move(contents), std::move(completion));
            else
                completion();
        });
    services_.worker.post([&codec = services_.imageCodec, &queue = services_.mainQueue, image = std::move(image),
                           finish = std::move(finish)]() mutable {
        queue.post([finish = std::move(finish), contents = contentsOf(codec, std::move(image))]() mutable {
            finish(std::move(contents));
        });
    });
}

void PanelPasteboardWriter::put(PasteboardContents contents, Task completion) {
    auto written = [this, completion = std::move(completion)](std::optional<std::int64_t> count) mutable {
        if (count)
            watcher_.selfWrittenChangeCount(*count);
        completion();
    };
    services_.pasteboard.write(std::move(contents), lifetime_.guard(std::move(written)));
}

} // namespace vexil
