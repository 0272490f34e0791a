// SPDX-License-Identifier: Apache-2.0
#include "link/frame.h"

#include <algorithm>

namespace vexil {

std::optional<FrameHeader> frameHeader(FrameType type, std::size_t bodySize) {
    if (bodySize > kMaxFrameLength - 1)
        return std::nullopt;
    const auto length = static_cast<std::uint32_t>(bodySize + 1);
    return FrameHeader{static_cast<std::uint8_t>(length >> 24), static_cast<std::uint8_t>(length >> 16),
                       static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length),
                       static_cast<std::uint8_t>(type)};
}

std::optional<AttachmentHeader> attachmentHeader(std::string_view id, std::size_t attachmentSize) {
    if (id.size() != kAttachmentIdSize || attachmentSize > kMaxFrameLength)
        return std::nullopt;
    const auto frame = frameHeader(FrameType::attachment, kAttachmentIdSize + attachmentSize);
    if (!frame)
        return std::nullopt;
    AttachmentHeader header{};
    std::copy(frame->begin(), frame->end(), header.begin());
    std::copy(id.begin(), id.end(), header.begin() + kFrameHeaderSize);
    return header;
}

} // namespace vexil
