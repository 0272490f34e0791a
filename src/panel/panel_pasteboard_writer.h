// SPDX-License-Identifier: Apache-2.0
// Puts what was picked on the pasteboard.
#pragma once

#include "base/bytes.h"
#include "base/lifetime.h"
#include "base/unique_function.h"
#include "link/clipboard_records.h"
#include "panel/panel_services.h"

#include <cstdint>
#include <optional>

namespace vexil {

class ClipboardWatcher;

// Main queue only. Nobody waits for pixels: an image goes onto the pasteboard as it came, and the PNG that many
// programs want is made when the first of them asks for it.
class PanelPasteboardWriter {
public:
    // The watcher outlives the writer.
    PanelPasteboardWriter(const PanelServices& services, ClipboardWatcher& watcher)
        : services_(services), watcher_(watcher) {}

    // Replaces what is there with the text, an absent one being empty, or with the image. An image that is missing or
    // cannot be read clears the pasteboard. The watcher is told of the change, so that it is not reported as a copy.
    // Where an image is followed by another write before it has been looked at, it is the later one that stays.
    // `completion` runs in every case.
    void write(ClipboardEntryPayload payload, std::optional<Bytes> image, Task completion);

private:
    void examine(Bytes image, Task completion);
    void put(PasteboardContents contents, Task completion);

    const PanelServices services_;
    ClipboardWatcher& watcher_;
    std::uint64_t latestWrite_ = 0;
    Lifetime lifetime_;
};

} // namespace vexil
