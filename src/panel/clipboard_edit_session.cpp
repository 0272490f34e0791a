// SPDX-License-Identifier: Apache-2.0
#include "panel/clipboard_edit_session.h"

#include "base/text.h"

#include <cassert>
#include <utility>

namespace vexil {

namespace {

constexpr const char* kStoreUnavailable = "Store unavailable";
constexpr const char* kNoText = "This entry's text could not be loaded.";

} // namespace

template <class F> auto ClipboardEditSession::inThisSession(F reply) {
    return lifetime_.guard([this, asked = id_, reply = std::move(reply)](auto answer) mutable {
        if (id_ == asked)
            reply(std::move(answer));
    });
}

void ClipboardEditSession::begin(const ClipboardRowSummary& row) {
    std::optional<ClipboardRowSummary> next = row; // it may be the one that is being edited
    end();
    row_ = std::move(next);
    if (isImage()) {
        enter(Ready{}, {PanelField::editingRow});
        return;
    }
    enter(Loading{}, {PanelField::editingRow, PanelField::isLoadingEdit, PanelField::editError});
    requestText();
}

void ClipboardEditSession::load() {
    const bool canLoad = std::holds_alternative<LoadFailed>(state_) || std::holds_alternative<Ready>(state_);
    if (!canLoad || isImage())
        return;
    enter(Loading{originalText()}, {PanelField::isLoadingEdit, PanelField::editError});
    requestText();
}

void ClipboardEditSession::requestText() {
    if (!server_.isLinkUp()) {
        loadFailed(kStoreUnavailable);
        return;
    }
    server_.fetchPayload({.id = row_->id, .scope = row_->scope},
                         inThisSession([this](auto reply) { textArrived(std::move(reply)); }));
}

void ClipboardEditSession::textArrived(Result<ClipboardLinkServer::EntryContent, Error> reply) {
    assert(isLoading());
    if (!reply) {
        loadFailed(std::move(reply).error().message);
        return;
    }
    auto& text = reply->payload.text;
    if (!text) {
        loadFailed(kNoText);
        return;
    }
    text_ = *text;
    enter(Ready{.original = std::move(text), .error = std::nullopt},
          {PanelField::isLoadingEdit, PanelField::editingText});
}

void ClipboardEditSession::loadFailed(std::string error) {
    // A text that had been loaded before can still be edited.
    auto original = originalText();
    State next = LoadFailed{error};
    if (original)
        next = Ready{.original = std::move(original), .error = std::move(error)};
    enter(std::move(next), {PanelField::isLoadingEdit, PanelField::editError});
}

bool ClipboardEditSession::canSave() const {
    const auto* ready = std::get_if<Ready>(&state_);
    assert(ready == nullptr || isImage() || ready->original);
    return ready != nullptr;
}

void ClipboardEditSession::save(const std::string& alias, std::optional<Uuid> categoryID) {
    if (!canSave())
        return;
    const bool isFavorite = row_->scope == ClipboardScope::favorites;
    const std::string_view trimmed = text::trimmed(alias);
    ClipboardEditRequest request{.id = row_->id,
                                 .scope = row_->scope,
                                 .alias = trimmed.empty() ? std::nullopt : std::optional<std::string>(trimmed),
                                 .categoryID = isFavorite ? categoryID : std::nullopt,
                                 .text = changedText()};
    enter(Saving{originalText()}, {PanelField::isSavingEdit, PanelField::editError});
    if (!server_.isLinkUp()) {
        saveFailed(kStoreUnavailable);
        return;
    }
    server_.editEntry(std::move(request), inThisSession([this](const auto& reply) { saveEnded(reply); }));
}

std::optional<std::string> ClipboardEditSession::changedText() const {
    return isImage() || originalText() == text_ ? std::nullopt : std::optional(text_);
}

void ClipboardEditSession::saveEnded(const Result<Done, Error>& reply) {
    assert(isSaving());
    if (!reply) {
        saveFailed(reply.error().message);
        return;
    }
    changes_.assigned(PanelField::isSavingEdit);
    end();
    server_.refreshSnapshot(true); // so that the list shows the entry as it is now
}

void ClipboardEditSession::saveFailed(std::string error) {
    enter(Ready{.original = originalText(), .error = std::move(error)},
          {PanelField::isSavingEdit, PanelField::editError});
}

void ClipboardEditSession::end() {
    id_ = Uuid::random();
    row_.reset();
    text_.clear();
    enter(Closed{}, {PanelField::editingRow, PanelField::editingText, PanelField::isLoadingEdit,
                     PanelField::isSavingEdit, PanelField::editError});
}

void ClipboardEditSession::setText(std::string text) {
    text_ = std::move(text);
    changes_.assigned(PanelField::editingText);
}

std::optional<std::string> ClipboardEditSession::originalText() const {
    if (const auto* loading = std::get_if<Loading>(&state_))
        return loading->original;
    if (const auto* ready = std::get_if<Ready>(&state_))
        return ready->original;
    if (const auto* saving = std::get_if<Saving>(&state_))
        return saving->original;
    return std::nullopt;
}

std::optional<std::string> ClipboardEditSession::error() const {
    if (const auto* failed = std::get_if<LoadFailed>(&state_))
        return failed->error;
    const auto* ready = std::get_if<Ready>(&state_);
    return ready != nullptr ? ready->error : std::nullopt;
}

void ClipboardEditSession::enter(State state, std::initializer_list<PanelField> assigned) {
    state_ = std::move(state);
    assert(row_.has_value() != std::holds_alternative<Closed>(state_));
    for (const PanelField field : assigned)
        changes_.assigned(field);
}

} // namespace vexil
