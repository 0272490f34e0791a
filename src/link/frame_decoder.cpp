// SPDX-License-Identifier: Apache-2.0
#include "link/frame_decoder.h"

#include "base/text.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vexil {

std::optional<FrameDecoder::Item> FrameDecoder::next(ByteView& chunk) {
    while (state_ != State::lost) {
        switch (state_) {
        case State::header:
            if (!fillPrefix(chunk, kFrameHeaderSize))
                return std::nullopt;
            if (!beginFrame())
                return Violation{};
            break;
        case State::id:
            if (!fillPrefix(chunk, kAttachmentIdSize))
                return std::nullopt;
            beginAttachment();
            break;
        default:
            takeBody(chunk);
            if (remaining_ > 0)
                return std::nullopt;
            if (auto item = endFrame())
                return item;
        }
    }
    return std::nullopt;
}

// True once `size` bytes are together; starts anew on the next call.
bool FrameDecoder::fillPrefix(ByteView& chunk, std::size_t size) {
    const std::size_t count = std::min(size - prefixSize_, chunk.size());
    std::copy_n(chunk.begin(), count, prefix_.begin() + static_cast<std::ptrdiff_t>(prefixSize_));
    chunk = chunk.subspan(count);
    prefixSize_ += count;
    if (prefixSize_ < size)
        return false;
    prefixSize_ = 0;
    return true;
}

bool FrameDecoder::beginFrame() {
    const std::uint32_t length = std::uint32_t{prefix_[0]} << 24 | std::uint32_t{prefix_[1]} << 16 |
                                 std::uint32_t{prefix_[2]} << 8 | std::uint32_t{prefix_[3]};
    if (length < kMinFrameLength || length > kMaxFrameLength) {
        state_ = State::lost;
        return false;
    }
    remaining_ = length - 1;
    state_ = State::skipped;
    if (prefix_[4] == static_cast<std::uint8_t>(FrameType::envelope)) {
        state_ = State::envelope;
        body_.reserve(remaining_);
    } else if (prefix_[4] == static_cast<std::uint8_t>(FrameType::attachment) && remaining_ >= kAttachmentIdSize) {
        state_ = State::id;
    }
    return true;
}

void FrameDecoder::beginAttachment() {
    remaining_ -= kAttachmentIdSize;
    id_ = textOf(prefix_);
    state_ = text::isValidUtf8(id_) ? State::attachment : State::skipped;
    if (state_ == State::attachment)
        body_.reserve(remaining_);
}

void FrameDecoder::takeBody(ByteView& chunk) {
    const std::size_t count = std::min(remaining_, chunk.size());
    if (state_ != State::skipped && count > 0) {
        const std::size_t used = body_.size();
        body_.resize(used + count);
        std::memcpy(body_.data() + used, chunk.data(), count);
    }
    chunk = chunk.subspan(count);
    remaining_ -= count;
}

std::optional<FrameDecoder::Item> FrameDecoder::endFrame() {
    switch (std::exchange(state_, State::header)) {
    case State::envelope:
        return Envelope{std::exchange(body_, {})};
    case State::attachment:
        return Attachment{std::move(id_), std::exchange(body_, {})};
    default:
        return std::nullopt;
    }
}

} // namespace vexil
