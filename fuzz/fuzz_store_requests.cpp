// SPDX-License-Identifier: Apache-2.0
// What a companion may ask the store, and report to it. The input is a stream of frames. Whatever it says, each request
// gets an answer that fits into a frame and reads back, and the store stays in order.
#include "base/json.h"
#include "link/attachment_stage.h"
#include "link/clipboard_link_envelope.h"
#include "link/frame.h"
#include "link/frame_decoder.h"
#include "platform/memory/memory_main_queue.h"
#include "platform/memory/memory_wall_clock.h"
#include "store/database/archive_import.h"
#include "store/store_service.h"

#include "fuzz/fuzz_target.h"
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <variant>

namespace vexil {
namespace {

using fuzz::require;

// In memory where the system has such a folder: a fuzzer stores thousands of copies a second.
class Folder {
public:
    Folder() {
        std::error_code none;
        const std::filesystem::path memory("/dev/shm");
        const auto parent = ::access(memory.c_str(), W_OK) == 0 ? memory : std::filesystem::temp_directory_path(none);
        std::string pattern = (parent / "vexil-fuzz-XXXXXX").string();
        require(::mkdtemp(pattern.data()) != nullptr, "there is a folder for the store");
        path_ = pattern;
    }
    ~Folder() {
        std::error_code ignored; // what could not be removed stays in the system's temporary folder
        std::filesystem::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

class Target {
public:
    void run(ByteView stream) {
        // The ids that the seeds know are those of the first entries.
        const auto emptied = database_.entries().clear(ClipboardEntries::Clear::everything);
        require(emptied.hasValue(), "the store can be emptied");
        fill();
        StoreService service(queue_, clock_, database_, 50);
        FrameDecoder decoder;
        AttachmentStage stage(64U << 20);
        while (auto item = decoder.next(stream)) {
            if (auto* attachment = std::get_if<FrameDecoder::Attachment>(&*item)) {
                if (!stage.put(std::move(attachment->id), std::move(attachment->bytes)))
                    break;
            } else if (const auto* body = std::get_if<FrameDecoder::Envelope>(&*item)) {
                if (auto envelope = decodeEnvelope(body->body))
                    handle(service, std::move(*envelope), stage);
            } else {
                break;
            }
        }
        queue_.runUntilIdle();
        checkStore(service);
    }

private:
    // Entries whose ids are counted from 1, so that an input can name them.
    void fill() {
        for (int number = 1; number <= 4; ++number) {
            ArchivedEntry entry;
            entry.entry.id = *Uuid::parse("00000000-0000-4000-8000-00000000000" + std::to_string(number));
            entry.entry.text = "entry " + std::to_string(number);
            entry.entry.contentHash = hexOf(contentHash(ClipboardKind::text, bytesOf(*entry.entry.text)));
            entry.entry.isFavorite = number % 2 == 0;
            if (number == 3)
                entry.entry.pinnedAt = Date{1};
            const auto taken = database_.archive().write(
                [&, given = false]() mutable -> Result<std::optional<ArchivedItem>, StoreError> {
                    return std::exchange(given, true) ? std::nullopt : std::optional<ArchivedItem>(entry);
                });
            require(taken.hasValue(), "the first entries are taken");
        }
    }

    static void handle(StoreService& service, ClipboardLinkEnvelope envelope, AttachmentStage& stage) {
        auto attachment = stage.take(envelope.header.id);
        const StoreService::Message message{std::move(envelope.header), std::move(envelope.payload),
                                            std::move(attachment)};
        if (message.header.t == ClipboardLinkEnvelopeKind::event)
            service.handleEvent(message);
        if (message.header.t == ClipboardLinkEnvelopeKind::request)
            checkAnswer(message.header, service.answer(message));
    }

    static void checkAnswer(const ClipboardLinkHeader& request, const StoreService::Answer& answer) {
        ClipboardLinkHeader header{request.v, request.id, ClipboardLinkEnvelopeKind::response, request.m, std::nullopt};
        ClipboardLinkPayload payload;
        if (answer.reply)
            payload = *answer.reply;
        else
            header.e = answer.reply.error();
        require(!header.e || header.e->code != "failed", "the database is in order");
        Bytes json;
        appendEnvelope(json, header, payload);
        const auto readBack = decodeEnvelope(json);
        require(readBack && readBack->header == header, "an answer is an envelope");
        if (methodNamed(request.m) == ClipboardLinkMethod::storeSnapshot && answer.reply)
            require(std::holds_alternative<ClipboardStoreSnapshot>(readBack->payload), "a snapshot reads back");
        if (const auto* content = std::get_if<ClipboardEntryPayload>(&payload))
            require(content->hasAttachment == answer.attachment.has_value(), "an image comes with its bytes");
    }

    void checkStore(StoreService& service) {
        StoreService::Message request{{}, ClipboardLinkEmpty{}, std::nullopt};
        request.header.m = "store.snapshot";
        checkAnswer(request.header, service.answer(request));
        const auto counts = database_.lists().counts();
        const auto history = database_.lists().entries({});
        require(counts && history && history->size() == counts->history, "the counts are those of the lists");
    }

    Folder folder_;
    MemoryMainQueue queue_;
    MemoryWallClock clock_;
    StoreDatabase database_ =
        StoreDatabase::open(folder_.path() / "store.db", StoreDatabase::Mode::createIfMissing).value();
};

} // namespace
} // namespace vexil

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static vexil::Target target;
    target.run({data, size});
    return 0;
}
