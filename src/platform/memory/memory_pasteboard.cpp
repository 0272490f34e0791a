// SPDX-License-Identifier: Apache-2.0
#include "platform/memory/memory_pasteboard.h"

#include "base/text.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace vexil {

namespace {

bool isOtherImage(const std::string& type) {
    return type.starts_with("public.") && type != pasteboard_type::kString && type != pasteboard_type::kPng &&
           type != pasteboard_type::kTiff;
}

void appendMarks(PasteboardContents& contents, std::vector<std::string> marks) {
    for (std::string& mark : marks)
        contents.data.push_back({.type = std::move(mark), .bytes = {}});
}

} // namespace

template <class Answer, class Look>
void MemoryPasteboard::answer(const std::string& type, UniqueFunction<void(std::optional<Answer>)> completion,
                              Look look) {
    reads_.push_back(type);
    auto shared = std::make_shared<UniqueFunction<void(std::optional<Answer>)>>(std::move(completion));
    mainQueue_.post(lifetime_.guard([this, type, shared, look] {
        if (ownerGivenUp_)
            return (*shared)(std::nullopt);
        if (ownerFrozen_ && hasOwner_) {
            auto giveUp = lifetime_.guard([this, shared, change = changeCount_] {
                ownerGivenUp_ = ownerGivenUp_ || change == changeCount_;
                (*shared)(std::nullopt);
            });
            deadlines_.push_back(mainQueue_.after(kReadDeadline, std::move(giveUp)));
            return;
        }
        std::optional<Answer> found = look();
        if (changeDuringRead_ && changingRead_ == type)
            std::exchange(changeDuringRead_, nullptr)();
        (*shared)(std::move(found));
    }));
}

void MemoryPasteboard::types(UniqueFunction<void(std::optional<std::vector<std::string>>)> completion) {
    answer<std::vector<std::string>>(kTypesRead, std::move(completion), [this] { return typesNow(); });
}

void MemoryPasteboard::string(UniqueFunction<void(std::optional<std::string>)> completion) {
    answer<std::string>(pasteboard_type::kString, std::move(completion), [this] {
        return contents_.text ? std::optional(text::repairedUtf8(*contents_.text)) : std::nullopt;
    });
}

void MemoryPasteboard::data(const std::string& type, UniqueFunction<void(std::optional<Bytes>)> completion) {
    answer<Bytes>(type, std::move(completion), [this, type] { return dataNow(type); });
}

void MemoryPasteboard::write(PasteboardContents contents,
                             UniqueFunction<void(std::optional<std::int64_t>)> completion) {
    std::optional<std::int64_t> written;
    if (!writesRefused_) {
        writes_.push_back(contents);
        written = copyContents(std::move(contents));
        ownerFrozen_ = false;
        typesWithheld_ = false;
    }
    mainQueue_.post(lifetime_.guard([written, completion = std::move(completion)]() mutable { completion(written); }));
}

std::int64_t MemoryPasteboard::copy(std::string text, std::vector<std::string> marks) {
    PasteboardContents contents{.text = std::move(text), .data = {}};
    appendMarks(contents, std::move(marks));
    return copyContents(std::move(contents));
}

std::int64_t MemoryPasteboard::copyData(std::string type, Bytes bytes, std::vector<std::string> marks) {
    PasteboardContents contents;
    contents.data.push_back({.type = std::move(type), .bytes = std::move(bytes)});
    appendMarks(contents, std::move(marks));
    return copyContents(std::move(contents));
}

std::int64_t MemoryPasteboard::copyContents(PasteboardContents contents) {
    contents_ = std::move(contents);
    hasOwner_ = true;
    ownerGivenUp_ = false;
    return ++changeCount_;
}

std::int64_t MemoryPasteboard::endOwner() {
    copyContents({});
    hasOwner_ = false;
    return changeCount_;
}

void MemoryPasteboard::changeDuringNext(std::string type, Task change) {
    changingRead_ = std::move(type);
    changeDuringRead_ = std::move(change);
}

std::size_t MemoryPasteboard::readsOf(const std::string& type) const {
    return static_cast<std::size_t>(std::count(reads_.begin(), reads_.end(), type));
}

std::optional<std::vector<std::string>> MemoryPasteboard::typesNow() const {
    if (!hasOwner_ || typesWithheld_)
        return std::nullopt;
    std::vector<std::string> found;
    const auto add = [&found](const std::string& type) {
        if (std::find(found.begin(), found.end(), type) == found.end())
            found.push_back(type);
    };
    if (contents_.text)
        add(pasteboard_type::kString);
    for (const auto& part : contents_.data) {
        add(part.type);
        if (isOtherImage(part.type))
            add(pasteboard_type::kAnyImage);
    }
    if (contents_.promise)
        add(contents_.promise->type);
    return found;
}

std::optional<Bytes> MemoryPasteboard::dataNow(const std::string& type) const {
    if (!hasOwner_)
        return std::nullopt;
    const auto part = std::find_if(contents_.data.begin(), contents_.data.end(), [&type](const auto& candidate) {
        return candidate.type == type || (type == pasteboard_type::kAnyImage && isOtherImage(candidate.type));
    });
    if (part != contents_.data.end())
        return part->bytes;
    if (contents_.promise && contents_.promise->type == type)
        return contents_.promise->bytes->madeFrom(contents_.data.front().bytes);
    return std::nullopt;
}

} // namespace vexil
