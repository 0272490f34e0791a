// SPDX-License-Identifier: Apache-2.0
// Cuts a byte stream into frames, however the stream itself is cut.
#pragma once

#include "base/bytes.h"
#include "link/frame.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace vexil {

// Feed it every chunk that arrives:
//
//     while (auto item = decoder.next(chunk)) ...
//
// Every byte of a body is copied once, into the buffer in which it is handed out. A length is believed only so far as
// its bytes arrive: address space is set aside for it, memory is not touched. Frames of unknown type, attachments too
// short for an id and those whose id is not UTF-8 are dropped without being buffered.
class FrameDecoder {
public:
    struct Envelope {
        Bytes body; // may be anything, empty included
        bool operator==(const Envelope&) const = default;
    };
    struct Attachment {
        std::string id; // 36 bytes of UTF-8
        Bytes bytes;
        bool operator==(const Attachment&) const = default;
    };
    // A length out of range: where the next frame starts is unknown, so the stream is lost.
    struct Violation {
        bool operator==(const Violation&) const = default;
    };
    using Item = std::variant<Envelope, Attachment, Violation>;

    // Takes bytes off the front of `chunk` up to the end of the next frame that is not dropped. None once the chunk is
    // used up. After a violation, which is handed out once, always none, and nothing is taken any more.
    [[nodiscard]] std::optional<Item> next(ByteView& chunk);

private:
    enum class State { header, id, envelope, attachment, skipped, lost };

    [[nodiscard]] bool fillPrefix(ByteView& chunk, std::size_t size);
    [[nodiscard]] bool beginFrame();
    void beginAttachment();
    void takeBody(ByteView& chunk);
    [[nodiscard]] std::optional<Item> endFrame();

    State state_ = State::header;
    std::array<std::uint8_t, kAttachmentIdSize> prefix_{}; // the header, then the id
    std::size_t prefixSize_ = 0;
    std::size_t remaining_ = 0; // bytes of the body still to come, or to skip
    std::string id_;
    Bytes body_;
};

} // namespace vexil
