// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/bytes.h"
#include "base/lifetime.h"
#include "base/unique_function.h"
#include "link/clipboard_link_connection.h"
#include "link/frame.h"
#include "platform/main_queue.h"
#include "platform/wall_clock.h"
#include "store/database/store_database.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace vexil {

// What the store does with the messages of a companion. Main queue only.
//
// The database is used right here, on the main queue. A copied text holds it for a millisecond or less; an image of 12
// MB and 25 megapixels for a third of a second, most of it for the thumbnail; another process that keeps the database
// locked, for as long as the busy timeout at each copy. A queue of its own for the database would spare nobody that
// wait: what the companion asks has to be answered in the order in which it was sent, after the copies before it. What
// it would need is a place for the images that wait, where now the link's own flow control slows the companion down.
// While the main queue waits the link stays up: its bytes are read on the network's queue, the heartbeats that come
// meanwhile are heard afterwards in their order, and nothing that the companion sends has a deadline that closes it.
// Readers do not wait for writers, so once a copy has failed the requests behind it are answered.
class StoreService {
public:
    using Message = ClipboardLinkConnection::Message;
    struct Answer {
        ClipboardLinkConnection::Reply reply;
        std::optional<Bytes> attachment = std::nullopt;
    };

    // How many rows of the history a snapshot holds, besides the pinned ones.
    static constexpr std::size_t kDefaultPanelRows = 2000;
    // What a snapshot has to stay below, however many rows are wanted, so that a frame of the link can carry it.
    static constexpr std::size_t kMaxSnapshotBytes = 15U << 20;
    static_assert(kMaxSnapshotBytes + (1U << 20) <= kMaxFrameLength, "room for the rest of the envelope");

    StoreService(MainQueue& mainQueue, const WallClock& clock, StoreDatabase& database,
                 std::size_t panelRows = kDefaultPanelRows);

    // In a turn after the store changed, once for all changes up to then, by whichever process.
    UniqueFunction<void()> onChange;
    // A sentence for the person: what was stored or left out, and what failed.
    UniqueFunction<void(const std::string&)> onNotice;
    UniqueFunction<void(const std::string&)> onFailure;

    [[nodiscard]] Answer answer(const Message& request);
    // Records "pasteboard.changed"; other events mean nothing to the store.
    void handleEvent(const Message& event);
    // Another process has changed the database.
    void databaseChanged();

private:
    Answer snapshot();
    Answer payload(const ClipboardEntryRef& ref);
    Answer edit(const ClipboardEditRequest& request);
    Answer answerChange(const Result<EntryChange, StoreError>& change);
    Answer fail(const StoreError& error);
    void record(const ClipboardPasteboardChange& change, const std::optional<Bytes>& image);
    void announceChange();
    void notice(const std::string& sentence);

    MainQueue& mainQueue_;
    const WallClock& clock_;
    StoreDatabase& database_;
    std::size_t panelRows_;
    std::int64_t knownRevision_ = 0;        // that the companion was, or is about to be, told of
    std::shared_ptr<const Bytes> snapshot_; // the last one, or null
    std::int64_t snapshotRevision_ = 0;
    bool isChangeAnnounced_ = false;
    Lifetime lifetime_;
};

} // namespace vexil
