// SPDX-License-Identifier: Apache-2.0
// Between bytes and records. Besides the measures of ./bench, --growth prints what a snapshot of 100 to 100,000 rows
// costs per row, which should stay level.
#include "base/bytes.h"
#include "base/json.h"
#include "bench/harness.h"
#include "link/attachment_stage.h"
#include "link/clipboard_link_envelope.h"
#include "link/clipboard_records.h"
#include "link/frame.h"
#include "link/frame_decoder.h"

#include <simdjson.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <string_view>

namespace vexil {
namespace {

constexpr std::size_t kReadSize = 65'536;
constexpr std::size_t kAttachmentSize = 12'582'912;
constexpr std::size_t kRows = 10'000;

void require(bool condition, const char* what) {
    if (!condition)
        throw std::runtime_error(what);
}

Bytes randomBytes(std::mt19937& random, std::size_t size) {
    Bytes bytes(size);
    for (auto& byte : bytes)
        byte = static_cast<std::uint8_t>(random());
    return bytes;
}

// Every fourth row is an image with a thumbnail, every eighth preview is not ASCII, some rows have an alias or a
// category: about a kilobyte of JSON per row.
ClipboardRowSummary rowOf(std::mt19937& random, std::size_t index, const std::vector<ClipboardCategory>& categories) {
    static constexpr std::string_view kWords =
        "the quick brown fox said \"jump\" over C:\\dogs\n\tand if (a < b) return; ";
    static constexpr std::string_view kOtherWords = "Größe und Maß — 你好,世界 — привет 😀 ";
    const bool isImage = index % 4 == 0;
    const std::string_view words = index % 8 == 1 ? kOtherWords : kWords;
    ClipboardRowSummary row;
    row.id = Uuid::random();
    row.kind = isImage ? ClipboardKind::image : ClipboardKind::text;
    while (!isImage && row.preview.size() < 60 + index % 140)
        row.preview += words;
    if (isImage)
        row.preview = "Image 1280 × 800";
    row.lastCopiedAt = Date{780'000'000.0 + static_cast<double>(random()) / 1000.0};
    row.isPinned = index % 50 == 0;
    if (index % 5 == 0)
        row.categoryID = categories[index % categories.size()].id;
    if (index % 10 == 0)
        row.alias = "alias " + std::to_string(index);
    if (isImage)
        row.thumbnail = randomBytes(random, 1500 + random() % 1000);
    return row;
}

ClipboardStoreSnapshot snapshotOf(std::size_t rows) {
    std::mt19937 random(1);
    ClipboardStoreSnapshot snapshot;
    snapshot.revision = 4711;
    for (std::int64_t i = 0; i < 12; ++i)
        snapshot.categories.push_back({Uuid::random(), "Category " + std::to_string(i), "blue", i});
    for (std::size_t i = 0; i < rows; ++i) {
        auto row = rowOf(random, i, snapshot.categories);
        const bool isFavorite = i % 10 == 9;
        row.isFavorite = isFavorite;
        row.scope = isFavorite ? ClipboardScope::favorites : ClipboardScope::history;
        (isFavorite ? snapshot.favorites : snapshot.history).push_back(std::move(row));
    }
    return snapshot;
}

Bytes jsonOf(const ClipboardStoreSnapshot& snapshot) {
    Bytes json;
    json::append(json, snapshot);
    return json;
}

// Reads snapshots as the server does, which keeps the last one until the next one is there.
class SnapshotReader {
public:
    double milliseconds(ByteView json, const ClipboardStoreSnapshot& expected) {
        std::optional<Result<ClipboardStoreSnapshot, json::Error>> read;
        const double time = bench::millisecondsOf([&] { read.emplace(json::read<ClipboardStoreSnapshot>(json)); });
        require(read->hasValue() && read->value() == expected, "the snapshot does not read back");
        last_ = std::move(*read).value();
        return time;
    }

private:
    ClipboardStoreSnapshot last_;
};

double writeMilliseconds(const ClipboardStoreSnapshot& snapshot, std::size_t expectedSize) {
    Bytes json;
    const double time = bench::millisecondsOf([&] { json::append(json, snapshot); });
    require(json.size() == expectedSize, "the snapshot is written differently");
    return time;
}

// A stream as a peer sends it: an image, then the envelope that it belongs to.
Bytes attachmentStream(const Bytes& image) {
    const ClipboardLinkHeader header{1, Uuid::random().toString(), ClipboardLinkEnvelopeKind::event,
                                     "pasteboard.changed", std::nullopt};
    const auto prefix = attachmentHeader(header.id, image.size());
    require(prefix.has_value(), "the image does not fit into a frame");
    Bytes stream(prefix->begin(), prefix->end());
    stream.insert(stream.end(), image.begin(), image.end());
    Bytes envelope;
    appendEnvelope(envelope, header, ClipboardPasteboardChange{ClipboardKind::image, std::nullopt, true});
    const auto frame = frameHeader(FrameType::envelope, envelope.size());
    stream.insert(stream.end(), frame->begin(), frame->end());
    stream.insert(stream.end(), envelope.begin(), envelope.end());
    return stream;
}

// From the bytes of the stream, in reads of 64 KiB, to the attachment in the hands of whoever gets the envelope.
std::optional<Bytes> delivered(ByteView stream) {
    FrameDecoder decoder;
    AttachmentStage stage(64U << 20);
    std::optional<Bytes> attachment;
    while (!stream.empty()) {
        ByteView chunk = stream.first(std::min(kReadSize, stream.size()));
        stream = stream.subspan(chunk.size());
        while (auto item = decoder.next(chunk)) {
            if (auto* staged = std::get_if<FrameDecoder::Attachment>(&*item)) {
                require(stage.put(std::move(staged->id), std::move(staged->bytes)), "the stage is full");
            } else if (const auto* body = std::get_if<FrameDecoder::Envelope>(&*item)) {
                const auto envelope = decodeEnvelope(body->body);
                if (envelope && std::holds_alternative<ClipboardPasteboardChange>(envelope->payload))
                    attachment = stage.take(envelope->header.id);
            }
        }
    }
    return attachment;
}

// The reference copies the same bytes once, into memory as fresh as that of the delivered attachment.
bench::Trial linkDecode() {
    std::mt19937 random(1);
    const auto image = std::make_shared<const Bytes>(randomBytes(random, kAttachmentSize));
    const auto stream = std::make_shared<const Bytes>(attachmentStream(*image));
    return {[=] {
                std::optional<Bytes> attachment;
                const double time = bench::millisecondsOf([&] { attachment = delivered(*stream); });
                require(attachment == *image, "the attachment does not arrive");
                return time;
            },
            [=] {
                Bytes copy;
                return bench::millisecondsOf([&] {
                    copy.resize(stream->size());
                    std::memcpy(copy.data(), stream->data(), stream->size());
                    bench::keep(*copy.data());
                });
            }};
}

// The reference parses into simdjson's tree and no further. Both sides start without memory of their own, as a program
// does that reads a snapshot now and then and keeps nothing for the next; the padded copy that the tree's parser asks
// for is not charged to it.
bench::Trial snapshotRead() {
    const auto snapshot = std::make_shared<const ClipboardStoreSnapshot>(snapshotOf(kRows));
    const auto json = std::make_shared<const Bytes>(jsonOf(*snapshot));
    const auto padded = std::make_shared<const simdjson::padded_string>(textOf(*json));
    const auto reader = std::make_shared<SnapshotReader>();
    return {[=] { return reader->milliseconds(*json, *snapshot); },
            [=] {
                simdjson::dom::parser parser;
                return bench::millisecondsOf([&] {
                    const auto document = parser.parse(*padded);
                    require(document.error() == simdjson::SUCCESS, "the reference does not parse");
                });
            }};
}

bench::Trial snapshotWrite() {
    const auto snapshot = std::make_shared<const ClipboardStoreSnapshot>(snapshotOf(kRows));
    const auto json = std::make_shared<const Bytes>(jsonOf(*snapshot));
    const auto reader = std::make_shared<SnapshotReader>();
    return {[=] { return writeMilliseconds(*snapshot, json->size()); },
            [=] { return reader->milliseconds(*json, *snapshot); }};
}

template <class F> double medianOf(F&& milliseconds) {
    std::array<double, 7> times{};
    std::generate(times.begin(), times.end(), milliseconds);
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

int printGrowth() {
    std::puts("    rows        bytes   read us/row  write us/row");
    for (const std::size_t rows : {100U, 1'000U, 10'000U, 100'000U}) {
        const auto snapshot = snapshotOf(rows);
        const Bytes json = jsonOf(snapshot);
        SnapshotReader reader;
        const double read = medianOf([&] { return reader.milliseconds(json, snapshot); });
        const double write = medianOf([&] { return writeMilliseconds(snapshot, json.size()); });
        const double perRow = 1000.0 / static_cast<double>(rows);
        std::printf("%8zu %12zu %13.3f %13.3f\n", rows, json.size(), read * perRow, write * perRow);
    }
    return 0;
}

} // namespace
} // namespace vexil

int main(int argc, char** argv) {
    using namespace vexil;
    if (argc == 2 && std::string_view(argv[1]) == "--growth")
        return printGrowth();
    return bench::run(argc, argv,
                      {{"link.decode", "ms", linkDecode},
                       {"json.snapshot-read", "ms", snapshotRead},
                       {"json.snapshot-write", "ms", snapshotWrite}});
}
