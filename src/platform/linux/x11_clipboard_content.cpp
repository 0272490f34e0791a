// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/x11_clipboard_content.h"

#include "base/text.h"
#include "platform/linux/x11_pasteboard_targets.h"
#include "platform/pasteboard.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vexil {

namespace {

constexpr std::size_t operator""_KiB(unsigned long long number) {
    return number * 1024;
}

// What nobody who means well exceeds: a list of 16,384 targets, and a hint that is one word.
constexpr std::size_t kMaxListBytes = 64_KiB;
constexpr std::size_t kMaxHintBytes = 64;
// As much as a frame of the link holds: more text could go nowhere.
constexpr std::size_t kMaxTextBytes = 16 * 1024_KiB;

bool contains(const std::vector<xcb_atom_t>& atoms, xcb_atom_t atom) {
    return std::find(atoms.begin(), atoms.end(), atom) != atoms.end();
}

} // namespace

void X11ClipboardContent::ownerChanged(bool hasOwner) {
    hasOwner_ = hasOwner;
    ++change_;
    knowledge_ = Knowledge::nothing;
    targets_.clear();
    reader_.ownerChanged();
}

void X11ClipboardContent::types(OnTypes completion) {
    withTargets(lifetime_.guard([this, completion = std::move(completion)](bool isOvertaken) mutable {
        if (isOvertaken || knowledge_ != Knowledge::listed)
            return completion(std::nullopt);
        std::vector<std::string> types = offeredTypes();
        const bool isMarked = std::find(types.begin(), types.end(), pasteboard_type::kConcealed) != types.end();
        if (isMarked || !isOffered(atoms_.kdePasswordHint))
            return completion(std::move(types));
        // The hint says what kind of content this is, so it takes a look inside; the content itself stays unread.
        reader_.convert(atoms_.kdePasswordHint, kMaxHintBytes,
                        [types = std::move(types), completion = std::move(completion)](auto hint) mutable {
                            const bool isPublic = hint && hint->format == 8 && textOf(hint->bytes) == "public";
                            if (!isPublic)
                                types.emplace_back(pasteboard_type::kConcealed);
                            completion(std::move(types));
                        });
    }));
}

void X11ClipboardContent::string(OnString completion) {
    // An owner may answer with another encoding than the one asked for, as long as it says so.
    search({.targets = x11_targets::ofText(atoms_),
            .acceptedTypes = x11_targets::ofText(atoms_),
            .maxBytes = kMaxTextBytes,
            .completion = [completion = std::move(completion)](std::optional<X11Property> found) mutable {
                if (!found)
                    return completion(std::nullopt);
                const std::string_view bytes = textOf(found->bytes);
                completion(found->type == XCB_ATOM_STRING ? text::fromLatin1(bytes) : text::repairedUtf8(bytes));
            }});
}

void X11ClipboardContent::data(const std::string& type, OnData completion) {
    // Some owners answer whatever they are asked with the one thing that they have; its type gives them away.
    search({.targets = x11_targets::ofData(type, atoms_),
            .acceptedTypes = {},
            .maxBytes = kMaxDataBytes,
            .completion = [completion = std::move(completion)](std::optional<X11Property> found) mutable {
                completion(found ? std::optional(std::move(found->bytes)) : std::nullopt);
            }});
}

// Asks for the list where it is not known, and goes on either way.
void X11ClipboardContent::withTargets(UniqueFunction<void(bool isOvertaken)> then) {
    if (!hasOwner_)
        knowledge_ = Knowledge::silent;
    if (knowledge_ != Knowledge::nothing)
        return then(false);
    reader_.convert(atoms_.targets, kMaxListBytes,
                    lifetime_.guard([this, change = change_,
                                     then = std::move(then)](Result<X11Property, X11ReadFailure> answer) mutable {
                        // The answer of an owner that has been replaced says nothing of the present one. Asking that
                        // one instead could go on for ever.
                        const bool isOvertaken = change != change_;
                        if (!isOvertaken)
                            onTargets(std::move(answer));
                        then(isOvertaken);
                    }));
}

void X11ClipboardContent::onTargets(Result<X11Property, X11ReadFailure> answer) {
    // What the owner hides in a list that is too large may be the mark of a secret.
    if (!answer && answer.error() != X11ReadFailure::refused) {
        knowledge_ = Knowledge::silent;
        return;
    }
    // Some owners give the list the type TARGETS.
    const bool isList =
        answer && answer->format == 32 && (answer->type == XCB_ATOM_ATOM || answer->type == atoms_.targets);
    knowledge_ = isList ? Knowledge::listed : Knowledge::unlisted;
    targets_.clear();
    if (isList) {
        targets_.resize(answer->bytes.size() / sizeof(xcb_atom_t));
        std::memcpy(targets_.data(), answer->bytes.data(), targets_.size() * sizeof(xcb_atom_t));
    }
}

bool X11ClipboardContent::isOffered(xcb_atom_t target) const {
    return contains(targets_, target);
}

std::vector<std::string> X11ClipboardContent::offeredTypes() const {
    std::vector<std::string> types;
    for (const auto& row : x11_targets::table(atoms_)) {
        const bool isPresent = std::any_of(row.targets.begin(), row.targets.end(),
                                           [this](xcb_atom_t target) { return isOffered(target); });
        if (isPresent)
            types.emplace_back(row.type);
    }
    return types;
}

void X11ClipboardContent::search(Search search) {
    auto shared = std::make_shared<Search>(std::move(search));
    withTargets(lifetime_.guard([this, shared](bool isOvertaken) {
        if (isOvertaken)
            shared->completion(std::nullopt);
        else
            searchOn(shared);
    }));
}

void X11ClipboardContent::searchOn(const std::shared_ptr<Search>& search) {
    while (knowledge_ != Knowledge::silent && search->next < search->targets.size()) {
        const xcb_atom_t target = search->targets[search->next++];
        // An owner that lists nothing may still have something.
        if (knowledge_ == Knowledge::listed && !isOffered(target))
            continue;
        reader_.convert(
            target, search->maxBytes,
            lifetime_.guard([this, search, target, change = change_](Result<X11Property, X11ReadFailure> answer) {
                if (answer && answer->format == 8 &&
                    (answer->type == target || contains(search->acceptedTypes, answer->type)))
                    return search->completion(std::move(*answer));
                if (change != change_)
                    return search->completion(std::nullopt);
                if (!answer && answer.error() == X11ReadFailure::silent)
                    knowledge_ = Knowledge::silent;
                searchOn(search);
            }));
        return;
    }
    search->completion(std::nullopt);
}

} // namespace vexil
