// SPDX-License-Identifier: Apache-2.0
// How the byte stream of the link is cut: a big-endian 32-bit length, a type byte, a body. The length counts the type
// byte and the body. The body of an attachment starts with the 36 characters of its envelope's id.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace vexil {

inline constexpr std::size_t kMinFrameLength = 1;
inline constexpr std::size_t kMaxFrameLength = 16'777'216;
inline constexpr std::size_t kFrameHeaderSize = 5;
inline constexpr std::size_t kAttachmentIdSize = 36;

enum class FrameType : std::uint8_t { envelope = 1, attachment = 2 };

using FrameHeader = std::array<std::uint8_t, kFrameHeaderSize>;
// A frame header and the id: what goes in front of the bytes of an attachment.
using AttachmentHeader = std::array<std::uint8_t, kFrameHeaderSize + kAttachmentIdSize>;

// None where the frame would be longer than any peer may take.
[[nodiscard]] std::optional<FrameHeader> frameHeader(FrameType type, std::size_t bodySize);

// None for that reason too, and for an id that is not 36 bytes long.
[[nodiscard]] std::optional<AttachmentHeader> attachmentHeader(std::string_view id, std::size_t attachmentSize);

} // namespace vexil
