// SPDX-License-Identifier: Apache-2.0
// Editing one entry: its alias, its category and, for a text, its content.
#pragma once

#include "base/lifetime.h"
#include "base/result.h"
#include "base/uuid.h"
#include "link/clipboard_link_server.h"
#include "link/clipboard_records.h"
#include "panel/panel_changes.h"

#include <initializer_list>
#include <optional>
#include <string>
#include <variant>

namespace vexil {

// A state machine, so that there is no combination of flags without a meaning:
//
//     closed ──begin──> loading ──loaded──> ready ──save──> saving ──saved──> closed
//                        │   ^                ^ ^              │
//                        │   └──── load ──────┘ └── refused ───┘
//                      failed
//                        v
//                   load failed ──load──> loading
//
// An image has no text to load and is ready at once. begin() and end() are possible in every state; an answer that
// belongs to a session that has ended is dropped. Main queue only.
class ClipboardEditSession {
public:
    // Both outlive the session. The fields of the model that are kept here are reported to `changes`.
    ClipboardEditSession(ClipboardLinkServer& server, PanelChanges& changes) : server_(server), changes_(changes) {}

    // Ends what was being edited, unsaved.
    void begin(const ClipboardRowSummary& row);
    // Fetches the text, again where that had failed. Does nothing for an image and while a request is on its way.
    void load();
    // Does nothing unless canSave(). White space at the ends of the alias is left out, and an alias without anything
    // else is none. The category counts for a row of the favorites only, the text only where it was changed. Ends the
    // session once it is saved, and has the snapshot fetched.
    void save(const std::string& alias, std::optional<Uuid> categoryID);
    void end();

    [[nodiscard]] bool canSave() const;

    // None while nothing is edited.
    [[nodiscard]] const std::optional<ClipboardRowSummary>& row() const { return row_; }
    [[nodiscard]] const std::string& text() const { return text_; }
    void setText(std::string text);
    // The text as it was loaded; none before that.
    [[nodiscard]] std::optional<std::string> originalText() const;
    [[nodiscard]] bool isLoading() const { return std::holds_alternative<Loading>(state_); }
    [[nodiscard]] bool isSaving() const { return std::holds_alternative<Saving>(state_); }
    // A sentence for the person.
    [[nodiscard]] std::optional<std::string> error() const;
    // Another one for each session.
    [[nodiscard]] const Uuid& id() const { return id_; }

private:
    using Error = ClipboardLinkServer::Error;

    // None in `original` means that there is no loaded text: for a state that can be left by saving, an image.
    struct Closed {};
    struct Loading {
        std::optional<std::string> original;
    };
    struct LoadFailed {
        std::string error;
    };
    struct Ready {
        std::optional<std::string> original;
        std::optional<std::string> error;
    };
    struct Saving {
        std::optional<std::string> original;
    };
    using State = std::variant<Closed, Loading, LoadFailed, Ready, Saving>;

    void enter(State state, std::initializer_list<PanelField> assigned);
    void requestText();
    void textArrived(Result<ClipboardLinkServer::EntryContent, Error> reply);
    void loadFailed(std::string error);
    void saveEnded(const Result<Done, Error>& reply);
    void saveFailed(std::string error);
    [[nodiscard]] std::optional<std::string> changedText() const;
    [[nodiscard]] bool isImage() const { return row_->kind == ClipboardKind::image; }
    // Runs `reply` only while the session is the one that asked.
    template <class F> auto inThisSession(F reply);

    ClipboardLinkServer& server_;
    PanelChanges& changes_;
    State state_;
    std::optional<ClipboardRowSummary> row_; // set unless closed
    std::string text_;
    Uuid id_ = Uuid::random();
    Lifetime lifetime_;
};

} // namespace vexil
