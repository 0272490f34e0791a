// SPDX-License-Identifier: Apache-2.0
// Everything that the panel shows and does, without a pixel.
#pragma once

#include "base/lifetime.h"
#include "base/unique_function.h"
#include "base/uuid.h"
#include "capture/clipboard_watcher.h"
#include "link/clipboard_link_server.h"
#include "link/clipboard_records.h"
#include "panel/clipboard_edit_session.h"
#include "panel/panel_changes.h"
#include "panel/panel_focus.h"
#include "panel/panel_list.h"
#include "panel/panel_pasteboard_writer.h"
#include "panel/panel_services.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vexil {

// Mirrors the store of the main application as the link server last received it, and holds what is typed, selected and
// edited. A view draws from here alone and draws again when observe() says so: every assignment of a field that
// PanelField names is told, and all that happens within one turn is told at once. Actions show their outcome in the
// lists at once, ask the main application for it, and ask for its truth a little later; while it is not connected they
// stay here. Main queue only. References and rows that are handed out are valid until the next operation.
class ClipboardPanelModel {
public:
    using Row = ClipboardRowSummary;

    static constexpr const char* kShowsFavoritesKey = "clipboardPanel.showsFavorites";
    static constexpr Duration kRefreshDelay = std::chrono::milliseconds(300);

    // Takes the server's callbacks for the snapshot and the connection. All that is given outlives the model.
    ClipboardPanelModel(ClipboardLinkServer& server, ClipboardWatcher& clipboardWatcher, const PanelServices& services);
    ~ClipboardPanelModel() = default;
    ClipboardPanelModel(const ClipboardPanelModel&) = delete;
    ClipboardPanelModel& operator=(const ClipboardPanelModel&) = delete;

    // Called when a pick is finished, once for each.
    UniqueFunction<void()> onPick;

    [[nodiscard]] std::unique_ptr<PanelObservation> observe(PanelChanges::Observer observer) {
        return changes_.observe(std::move(observer));
    }
    [[nodiscard]] const PanelChanges& changes() const { return changes_; }

    // The store, in its own order.
    [[nodiscard]] PanelRows history() const { return history_.rows(); }
    [[nodiscard]] PanelRows favorites() const { return favorites_.rows(); }
    [[nodiscard]] const std::vector<ClipboardCategory>& categories() const { return snapshot_->categories; }
    [[nodiscard]] bool isConnected() const { return isConnected_; }

    // What is shown of it, and where the keyboard's focus is.
    [[nodiscard]] const std::string& query() const { return query_; }
    void setQuery(std::string query); // another one moves the focus to the search field
    [[nodiscard]] bool showFavorites() const { return showFavorites_; }
    void setShowFavorites(bool flag); // kept for the next run
    [[nodiscard]] const std::optional<Uuid>& selectedCategoryID() const { return selectedCategoryID_; } // none: all
    void selectCategory(std::optional<Uuid> id);
    void moveCategory(int delta); // -1 to the left, +1 to the right
    [[nodiscard]] bool showsCategoryBar() const { return showFavorites() && !categories().empty(); }
    [[nodiscard]] const PanelFocus& focus() const { return focus_; }
    void setFocus(const PanelFocus& focus);
    [[nodiscard]] std::int64_t focusToken() const { return focusToken_; } // raised: the search field takes the caret
    // Whether the key was used: -1 for Up, +1 for Down.
    [[nodiscard]] bool moveSelection(int delta);

    [[nodiscard]] PanelRows visibleRows();
    [[nodiscard]] std::optional<Uuid> selectedRowID() const { return focus_.rowID(); }
    // Among visibleRows(); none where the focus is not on a row, or the row is not visible any more.
    [[nodiscard]] std::optional<std::size_t> selectedIndex();
    [[nodiscard]] const Row* selectedRow(); // null as above

    void reload();
    void prepareForShow(); // each time the panel opens
    void scheduleRefresh();

    // Actions. Rows are taken as they were when they were shown.
    void pick(const Row& row);
    void deleteRow(const Uuid& id);
    void togglePin(const Row& row);
    void toggleFavorite(const Row& row);
    void favorite(const Row& row, std::optional<Uuid> categoryID);
    // The row for which a category is being chosen.
    [[nodiscard]] const std::optional<Row>& favoriteCandidate() const { return favoriteCandidate_; }
    void setFavoriteCandidate(std::optional<Row> row);

    void beginEdit(const Row& row) { edit_.begin(row); }
    void loadEditText() { edit_.load(); }
    [[nodiscard]] bool canSaveEdit() const { return edit_.canSave(); }
    void saveEdit(const std::string& alias, std::optional<Uuid> categoryID) { edit_.save(alias, categoryID); }
    void endEdit() { edit_.end(); }
    [[nodiscard]] const std::optional<Row>& editingRow() const { return edit_.row(); }
    [[nodiscard]] const std::string& editingText() const { return edit_.text(); }
    void setEditingText(std::string text) { edit_.setText(std::move(text)); }
    [[nodiscard]] std::optional<std::string> originalEditingText() const { return edit_.originalText(); }
    [[nodiscard]] bool isLoadingEdit() const { return edit_.isLoading(); }
    [[nodiscard]] bool isSavingEdit() const { return edit_.isSaving(); }
    [[nodiscard]] std::optional<std::string> editError() const { return edit_.error(); }
    [[nodiscard]] const Uuid& editingSessionID() const { return edit_.id(); }

private:
    [[nodiscard]] bool enterRows(int delta);
    // Where the focused row is among the visible ones.
    struct Selection {
        std::optional<std::size_t> index;
    };

    [[nodiscard]] PanelList& shownList() { return showFavorites_ ? favorites_ : history_; }
    void focusRow(std::size_t index);
    void listsAssigned();
    void forgetVisible();
    template <class F> void changeRows(const Uuid& id, F change);
    void finishPick();

    ClipboardLinkServer& server_;
    MainQueue& mainQueue_;
    UserDefaults& defaults_;
    SerialQueue& worker_;
    PanelChanges changes_;
    PanelPasteboardWriter pasteboardWriter_;
    ClipboardEditSession edit_;

    std::shared_ptr<const ClipboardStoreSnapshot> snapshot_; // an empty one where nothing is known
    PanelList history_;
    PanelList favorites_;
    bool isConnected_;
    std::string query_;
    bool showFavorites_;
    std::optional<Uuid> selectedCategoryID_;
    PanelFocus focus_ = PanelFocus::search();
    std::int64_t focusToken_ = 0;
    std::optional<Row> favoriteCandidate_;
    std::deque<Timer> refreshes_; // the oldest first, which is the next to fire

    // Worked out when somebody asks, and again once what they follow from has changed.
    std::optional<std::vector<std::uint32_t>> visibleNumbers_;
    std::optional<Selection> selection_;
    Lifetime lifetime_;
};

} // namespace vexil
