// SPDX-License-Identifier: Apache-2.0
// A stream of frames as a peer may send it. The first four bytes say how it is cut into reads; how it is cut must not
// change what comes out, and what comes out is what a plain reading of the whole stream finds.
#include "base/text.h"
#include "link/attachment_stage.h"
#include "link/clipboard_link_envelope.h"
#include "link/frame.h"
#include "link/frame_decoder.h"

#include "fuzz/fuzz_target.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace vexil {
namespace {

using fuzz::require;
using Item = FrameDecoder::Item;

// Frames with everything at hand: no state, no chunks.
std::vector<Item> plainlyDecoded(ByteView stream) {
    std::vector<Item> items;
    while (stream.size() >= kFrameHeaderSize) {
        const std::size_t length = std::size_t{stream[0]} << 24 | std::size_t{stream[1]} << 16 |
                                   std::size_t{stream[2]} << 8 | std::size_t{stream[3]};
        if (length < kMinFrameLength || length > kMaxFrameLength) {
            items.emplace_back(FrameDecoder::Violation{});
            break;
        }
        if (stream.size() < length + 4)
            break;
        const std::uint8_t type = stream[4];
        const ByteView body = stream.subspan(kFrameHeaderSize, length - 1);
        stream = stream.subspan(length + 4);
        if (type == 1)
            items.emplace_back(FrameDecoder::Envelope{copyOf(body)});
        if (type != 2 || body.size() < kAttachmentIdSize)
            continue;
        const std::string id(textOf(body.first(kAttachmentIdSize)));
        if (text::isValidUtf8(id))
            items.emplace_back(FrameDecoder::Attachment{id, copyOf(body.subspan(kAttachmentIdSize))});
    }
    return items;
}

// Reads of 1 to 64 bytes, or now and then of up to 64 KiB, by a generator that `seed` starts.
std::vector<Item> decodedInChunks(ByteView stream, std::uint32_t seed) {
    FrameDecoder decoder;
    std::vector<Item> items;
    while (!stream.empty()) {
        seed = seed * 1'664'525 + 1'013'904'223;
        const std::size_t wanted = 1 + (seed >> 16) % ((seed & 0x8000'0000) != 0 ? 65'536 : 64);
        ByteView chunk = stream.first(std::min(wanted, stream.size()));
        stream = stream.subspan(chunk.size());
        while (auto item = decoder.next(chunk))
            items.push_back(std::move(*item));
    }
    return items;
}

void checkEnvelope(ByteView body, AttachmentStage& stage, std::map<std::string, Bytes, std::less<>>& waiting) {
    const auto envelope = decodeEnvelope(body);
    if (!envelope)
        return;
    Bytes again;
    appendEnvelope(again, envelope->header, envelope->payload);
    require(decodeEnvelope(again) == envelope, "an envelope comes back as it was written");

    const auto expected = waiting.find(envelope->header.id);
    const auto attachment = stage.take(envelope->header.id);
    require(attachment.has_value() == (expected != waiting.end()), "an attachment waits for its envelope");
    if (attachment) {
        require(*attachment == expected->second, "the later of two attachments counts");
        waiting.erase(expected);
    }
}

void checkMeaning(const std::vector<Item>& items) {
    AttachmentStage stage(64U << 20);
    std::map<std::string, Bytes, std::less<>> waiting;
    for (const auto& item : items) {
        if (const auto* envelope = std::get_if<FrameDecoder::Envelope>(&item)) {
            checkEnvelope(envelope->body, stage, waiting);
        } else if (const auto* attachment = std::get_if<FrameDecoder::Attachment>(&item)) {
            if (stage.put(attachment->id, attachment->bytes))
                waiting[attachment->id] = attachment->bytes;
        }
    }
    require(stage.count() == waiting.size(), "nothing else waits");
}

} // namespace
} // namespace vexil

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vexil;
    if (size < 4)
        return 0;
    const std::uint32_t seed = std::uint32_t{data[0]} << 24 | std::uint32_t{data[1]} << 16 |
                               std::uint32_t{data[2]} << 8 | std::uint32_t{data[3]};
    const ByteView stream(data + 4, size - 4);
    const auto items = decodedInChunks(stream, seed);
    fuzz::require(items == plainlyDecoded(stream), "cutting the stream changes nothing");
    checkMeaning(items);
    return 0;
}
