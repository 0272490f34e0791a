// SPDX-License-Identifier: Apache-2.0
#include "store/store_service.h"

#include "link/clipboard_link_method.h"
#include "store/database/byte_count.h"

#include <utility>
#include <variant>

namespace vexil {

namespace {

StoreService::Answer refuse(std::string code, std::string message) {
    return {Failure{ClipboardLinkError{std::move(code), std::move(message)}}};
}

StoreService::Answer unknownMessage() {
    return refuse("unknown_message", "Unknown message");
}

StoreService::Answer noSuchEntry() {
    return refuse("not_found", "No such entry");
}

StoreService::Answer badRequest(std::string sentence) {
    return refuse("bad_request", std::move(sentence));
}

std::string nameOfKind(ClipboardKind kind) {
    return kind == ClipboardKind::text ? "text" : "image";
}

} // namespace

StoreService::StoreService(MainQueue& mainQueue, const WallClock& clock, StoreDatabase& database, std::size_t panelRows)
    : mainQueue_(mainQueue), clock_(clock), database_(database), panelRows_(panelRows) {
    if (const auto revision = database_.revision())
        knownRevision_ = *revision;
}

StoreService::Answer StoreService::answer(const Message& request) {
    const auto method = methodNamed(request.header.m);
    if (!method)
        return unknownMessage();
    // The record that the method takes, or null.
    const auto* ref = std::get_if<ClipboardEntryRef>(&request.payload);
    const auto* editing = std::get_if<ClipboardEditRequest>(&request.payload);
    switch (*method) {
    case ClipboardLinkMethod::storeSnapshot:
        return snapshot();
    case ClipboardLinkMethod::entryPayload:
        if (ref != nullptr)
            return payload(*ref);
        break;
    case ClipboardLinkMethod::entryUse:
        if (ref != nullptr)
            return answerChange(database_.entries().use(ref->id, clock_.now()));
        break;
    case ClipboardLinkMethod::entryDelete:
        if (ref != nullptr)
            return answerChange(database_.entries().remove(ref->id, ref->scope));
        break;
    case ClipboardLinkMethod::entryPin:
        if (const auto* pin = std::get_if<ClipboardPinRequest>(&request.payload))
            return answerChange(
                database_.entries().pin(pin->id, pin->isPinned ? std::optional(clock_.now()) : std::nullopt));
        break;
    case ClipboardLinkMethod::entryFavorite:
        if (const auto* favorite = std::get_if<ClipboardFavoriteRequest>(&request.payload))
            return answerChange(favorite->isFavorite
                                    ? database_.entries().addToFavorites(favorite->id, favorite->categoryID)
                                    : database_.entries().remove(favorite->id, ClipboardScope::favorites));
        break;
    case ClipboardLinkMethod::entryEdit:
        if (editing != nullptr && !editing->text)
            return edit(*editing);
        break;
    case ClipboardLinkMethod::entryEditText:
        if (editing != nullptr && editing->text)
            return edit(*editing);
        break;
    case ClipboardLinkMethod::hostsSnapshot:
        return refuse("unsupported", "This store keeps no hosts profiles");
    default:
        return unknownMessage(); // a message of the link, but none that a main application is asked
    }
    return badRequest("The payload is not what " + request.header.m + " takes");
}

void StoreService::handleEvent(const Message& event) {
    if (methodNamed(event.header.m) != ClipboardLinkMethod::pasteboardChanged)
        return;
    if (const auto* change = std::get_if<ClipboardPasteboardChange>(&event.payload))
        record(*change, event.attachment);
}

StoreService::Answer StoreService::snapshot() {
    const auto revision = database_.revision();
    if (!revision)
        return fail(revision.error());
    if (!snapshot_ || snapshotRevision_ != *revision) {
        // The next one is about as long as the last one. Memory that is not written to costs nothing.
        const std::size_t expected = snapshot_ ? snapshot_->size() + snapshot_->size() / 16 : std::size_t{2} << 20;
        auto encoded = database_.lists().snapshotJson(panelRows_, kMaxSnapshotBytes, expected);
        if (!encoded)
            return fail(encoded.error());
        snapshotRevision_ = encoded->revision;
        snapshot_ = std::make_shared<const Bytes>(std::move(encoded->json));
    }
    return {ClipboardLinkPayload(EncodedPayload{snapshot_})};
}

StoreService::Answer StoreService::payload(const ClipboardEntryRef& ref) {
    // Whichever list the row was picked from, the entry is the same.
    auto content = database_.lists().content(ref.id);
    if (!content)
        return fail(content.error());
    if (!*content)
        return noSuchEntry();
    StoredContent& found = **content;
    if (found.kind == ClipboardKind::image)
        return {ClipboardLinkPayload(ClipboardEntryPayload{found.kind, std::nullopt, true}), std::move(found.data)};
    return {ClipboardLinkPayload(ClipboardEntryPayload{found.kind, std::string(textOf(found.data)), false})};
}

StoreService::Answer StoreService::edit(const ClipboardEditRequest& request) {
    if (request.alias && request.alias->size() > ClipboardEntries::kMaxAliasBytes)
        return badRequest("The alias is longer than " + std::to_string(ClipboardEntries::kMaxAliasBytes) + " bytes");
    if (request.text && request.text->empty())
        return badRequest("The text is empty");
    return answerChange(database_.entries().edit(request.id, request.alias, request.categoryID, request.text));
}

StoreService::Answer StoreService::answerChange(const Result<EntryChange, StoreError>& change) {
    if (!change)
        return fail(change.error());
    switch (*change) {
    case EntryChange::noSuchEntry:
        return noSuchEntry();
    case EntryChange::noSuchCategory:
        return refuse("not_found", "No such category");
    case EntryChange::notAText:
        return badRequest("An image has no text to edit");
    case EntryChange::done:
        break;
    }
    announceChange();
    return {ClipboardLinkPayload(ClipboardLinkEmpty{})};
}

StoreService::Answer StoreService::fail(const StoreError& error) {
    if (onFailure)
        onFailure("a request of the companion failed: " + error.sentence);
    return refuse("failed", error.sentence);
}

void StoreService::record(const ClipboardPasteboardChange& change, const std::optional<Bytes>& image) {
    ByteView content;
    if (change.kind == ClipboardKind::text && change.text)
        content = bytesOf(*change.text);
    if (change.kind == ClipboardKind::image && change.hasAttachment && image)
        content = *image;
    if (content.empty()) {
        // An image that was too large for the link comes without its bytes: there is nothing that could be shown or
        // put back on a clipboard, so it is no entry.
        notice("left out: a copied " + nameOfKind(change.kind) + " without content");
        return;
    }
    const std::string what = nameOfKind(change.kind) + " of " + byteCountText(content.size());
    const auto recorded = database_.entries().record(change.kind, content, clock_.now());
    if (!recorded) {
        if (onFailure)
            onFailure("a copied " + what + " is not stored: " + recorded.error().sentence);
        return;
    }
    notice(recorded->isNew ? "stored: " + what : "moved to the top: " + what);
    announceChange();
}

void StoreService::databaseChanged() {
    // What changed may be no concern of a companion's, such as its own state that is kept there.
    const auto revision = database_.revision();
    if (!revision) {
        if (onFailure)
            onFailure("what another program changed cannot be read: " + revision.error().sentence);
        return;
    }
    if (std::exchange(knownRevision_, *revision) != *revision)
        announceChange();
}

void StoreService::announceChange() {
    if (std::exchange(isChangeAnnounced_, true))
        return;
    mainQueue_.post(lifetime_.guard([this] {
        isChangeAnnounced_ = false;
        if (const auto revision = database_.revision())
            knownRevision_ = *revision;
        if (onChange)
            onChange();
    }));
}

void StoreService::notice(const std::string& sentence) {
    if (onNotice)
        onNotice(sentence);
}

} // namespace vexil
