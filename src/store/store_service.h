// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/bytes.h"
#include "base/lifetime.h"
#include "base/unique_function.h"
#include "link/clipboard_link_connection.h"
#include "platform/main_queue.h"
#include "platform/wall_clock.h"
#include "store/database/store_database.h"

#include <cstddef>
#include <optional>
#include <string>

namespace vexil {

// What the store does with the messages of a companion. Main queue only.
//
// The database is used right here, on the main queue. A copied text holds it for a few milliseconds; an image of 12 MB
// and 25 megapixels for about half a second, more than half of it for the thumbnail; another process that keeps the
// database locked, for as long as the busy timeout. All of that is well below what the companion waits for an answer. A
// companion that copies faster than the disk writes is slowed down by the link's own flow control, where a queue in
// between would have to hold its images.
class StoreService {
public:
    using Message = ClipboardLinkConnection::Message;
    struct Answer {
        ClipboardLinkConnection::Reply reply;
        std::optional<Bytes> attachment = std::nullopt;
    };

    // A snapshot holds the first rows of each list, and stays well below what a frame can carry.
    static constexpr std::size_t kMaxSnapshotRows = 2000;
    static constexpr std::size_t kMaxSnapshotBytes = 12U << 20;
    static constexpr std::size_t kMaxAliasBytes = 4096;

    StoreService(MainQueue& mainQueue, const WallClock& clock, StoreDatabase& database);

    // In a turn after the store changed, once for all changes up to then.
    UniqueFunction<void()> onChange;
    // A sentence for the person: what was stored or left out, and what failed.
    UniqueFunction<void(const std::string&)> onNotice;
    UniqueFunction<void(const std::string&)> onFailure;

    [[nodiscard]] Answer answer(const Message& request);
    // Records "pasteboard.changed"; other events mean nothing to the store.
    void handleEvent(const Message& event);

private:
    Answer snapshot();
    Answer payload(const ClipboardEntryRef& ref);
    Answer edit(const ClipboardEditRequest& request);
    Answer answerChange(const Result<StoreDatabase::Change, StoreError>& change);
    Answer fail(const StoreError& error);
    void record(const ClipboardPasteboardChange& change, const std::optional<Bytes>& image);
    void announceChange();
    void notice(const std::string& sentence);

    MainQueue& mainQueue_;
    const WallClock& clock_;
    StoreDatabase& database_;
    bool isChangeAnnounced_ = false;
    Lifetime lifetime_;
};

} // namespace vexil
