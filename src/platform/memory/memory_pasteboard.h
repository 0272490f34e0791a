// SPDX-License-Identifier: Apache-2.0
// A pasteboard whose other programs are played by a test.
#pragma once

#include "base/lifetime.h"
#include "platform/main_queue.h"
#include "platform/pasteboard.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vexil {

// A read is answered in a later turn, with what the pasteboard holds in that turn.
class MemoryPasteboard final : public Pasteboard {
public:
    static constexpr Duration kReadDeadline = std::chrono::seconds(2);
    static constexpr const char* kTypesRead = "types"; // how reads() names a call of types()

    explicit MemoryPasteboard(MainQueue& mainQueue) : mainQueue_(mainQueue) {}

    [[nodiscard]] std::int64_t changeCount() const override { return changeCount_; }
    void types(UniqueFunction<void(std::optional<std::vector<std::string>>)> completion) override;
    void string(UniqueFunction<void(std::optional<std::string>)> completion) override;
    void data(const std::string& type, UniqueFunction<void(std::optional<Bytes>)> completion) override;
    void write(PasteboardContents contents, UniqueFunction<void(std::optional<std::int64_t>)> completion) override;

    // What another program copies; `marks` are identifiers without bytes, such as pasteboard_type::kConcealed. Each
    // returns the change count of the copy.
    std::int64_t copy(std::string text, std::vector<std::string> marks = {});
    std::int64_t copyData(std::string type, Bytes bytes, std::vector<std::string> marks = {});
    std::int64_t copyContents(PasteboardContents contents);

    // The programs that copy hang: reads, also those under way, yield none after the deadline, and from then on at once
    // until the next change, even where the program has come back meanwhile. A write ends it, since the content is then
    // our own.
    void freezeOwner(bool frozen) { ownerFrozen_ = frozen; }
    // The program that owns the content ends and takes it along. Returns the change count.
    std::int64_t endOwner();
    // Owners do not say what they have, yet give it; until a write.
    void withholdTypes(bool withheld) { typesWithheld_ = withheld; }
    // Runs `change` once, between the answer to the next read of `type` (or kTypesRead) being made and being handed
    // over: a copy by another program just then.
    void changeDuringNext(std::string type, Task change);
    // Writes yield none, change nothing and are not recorded.
    void refuseWrites(bool refused) { writesRefused_ = refused; }

    // Every read so far, in order, by type; kTypesRead for types().
    [[nodiscard]] const std::vector<std::string>& reads() const { return reads_; }
    [[nodiscard]] std::size_t readsOf(const std::string& type) const;
    // Every write that succeeded, in order.
    [[nodiscard]] const std::vector<PasteboardContents>& writes() const { return writes_; }
    [[nodiscard]] const PasteboardContents& contents() const { return contents_; }

private:
    template <class Answer, class Look>
    void answer(const std::string& type, UniqueFunction<void(std::optional<Answer>)> completion, Look look);
    [[nodiscard]] std::optional<std::vector<std::string>> typesNow() const;
    [[nodiscard]] std::optional<Bytes> dataNow(const std::string& type) const;

    MainQueue& mainQueue_;
    PasteboardContents contents_;
    bool hasOwner_ = false;
    std::int64_t changeCount_ = 0;
    bool ownerFrozen_ = false;
    bool ownerGivenUp_ = false; // until the next change
    bool typesWithheld_ = false;
    bool writesRefused_ = false;
    std::string changingRead_;
    Task changeDuringRead_;
    std::vector<std::string> reads_;
    std::vector<PasteboardContents> writes_;
    std::vector<Timer> deadlines_;
    Lifetime lifetime_;
};

} // namespace vexil
