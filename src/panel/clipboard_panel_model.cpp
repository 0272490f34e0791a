// SPDX-License-Identifier: Apache-2.0
#include "panel/clipboard_panel_model.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace vexil {

namespace {

ClipboardEntryRef refOf(const ClipboardRowSummary& row) {
    return {.id = row.id, .scope = row.scope};
}

std::optional<ClipboardEntryRef> find(const PanelRows& rows, const Uuid& id) {
    const auto index = rows.indexOf(id);
    return index ? std::optional(refOf(rows[*index])) : std::nullopt;
}

} // namespace

ClipboardPanelModel::ClipboardPanelModel(ClipboardLinkServer& server, ClipboardWatcher& clipboardWatcher,
                                         const PanelServices& services)
    : server_(server),
      mainQueue_(services.mainQueue),
      defaults_(services.defaults),
      worker_(services.worker),
      changes_(services.mainQueue),
      pasteboardWriter_(services, clipboardWatcher),
      edit_(server, changes_),
      history_(services.mainQueue, services.worker, services.caseRules),
      favorites_(services.mainQueue, services.worker, services.caseRules),
      isConnected_(server.isConnected()),
      showFavorites_(defaults_.boolean(kShowsFavoritesKey).value_or(true)) {
    server_.onSnapshotChange = lifetime_.guard([this] { reload(); });
    server_.onConnectionChange = lifetime_.guard([this](bool isConnected) {
        isConnected_ = isConnected;
        changes_.assigned(PanelField::isConnected);
        reload();
    });
    reload();
}

void ClipboardPanelModel::reload() {
    // Giving back a hundred thousand rows takes milliseconds that the main queue has better use for.
    if (snapshot_)
        worker_.post([old = std::exchange(snapshot_, nullptr)] {});
    snapshot_ = server_.snapshot();
    if (!snapshot_)
        snapshot_ = std::make_shared<const ClipboardStoreSnapshot>();
    history_.assign({snapshot_, &snapshot_->history});
    favorites_.assign({snapshot_, &snapshot_->favorites});
    listsAssigned();
    changes_.assigned(PanelField::categories);
    const auto isSelected = [this](const auto& category) { return category.id == selectedCategoryID_; };
    if (selectedCategoryID_ && std::none_of(categories().begin(), categories().end(), isSelected)) {
        selectedCategoryID_.reset();
        changes_.assigned(PanelField::selectedCategoryID);
    }
}

void ClipboardPanelModel::prepareForShow() {
    setFavoriteCandidate(std::nullopt);
    endEdit();
    setQuery("");
    setFocus(PanelFocus::search());
    ++focusToken_;
    changes_.assigned(PanelField::focusToken);
    server_.refreshSnapshot(false);
}

void ClipboardPanelModel::scheduleRefresh() {
    refreshes_.push_back(mainQueue_.after(kRefreshDelay, lifetime_.guard([this] {
        refreshes_.pop_front();
        server_.refreshSnapshot(true);
    })));
}

// Which rows are shown.

PanelRows ClipboardPanelModel::visibleRows() {
    if (!visibleNumbers_)
        visibleNumbers_ = shownList().matching(query_, showFavorites_ ? selectedCategoryID_ : std::nullopt);
    return {shownList(), *visibleNumbers_};
}

void ClipboardPanelModel::listsAssigned() {
    changes_.assigned(PanelField::history);
    changes_.assigned(PanelField::favorites);
    forgetVisible();
}

void ClipboardPanelModel::forgetVisible() {
    visibleNumbers_.reset();
    selection_.reset();
}

void ClipboardPanelModel::setQuery(std::string query) {
    const bool isOther = query != query_;
    query_ = std::move(query);
    changes_.assigned(PanelField::query);
    if (isOther) {
        forgetVisible();
        setFocus(PanelFocus::search());
    }
}

void ClipboardPanelModel::setShowFavorites(bool flag) {
    if (flag == showFavorites_)
        return;
    showFavorites_ = flag;
    changes_.assigned(PanelField::showFavorites);
    forgetVisible();
    defaults_.setBoolean(kShowsFavoritesKey, flag);
    setFocus(PanelFocus::search());
}

void ClipboardPanelModel::selectCategory(std::optional<Uuid> id) {
    if (id == selectedCategoryID_)
        return;
    selectedCategoryID_ = id;
    changes_.assigned(PanelField::selectedCategoryID);
    forgetVisible();
    if (focus_.rowID())
        setFocus(PanelFocus::categories()); // the row may not be shown any more
}

void ClipboardPanelModel::moveCategory(int delta) {
    std::vector<std::optional<Uuid>> choices{std::nullopt};
    for (const auto& category : categories())
        choices.emplace_back(category.id);
    const auto selected = std::find(choices.begin(), choices.end(), selectedCategoryID_);
    if (selected == choices.end()) {
        selectCategory(std::nullopt);
        return;
    }
    const auto target = std::distance(choices.begin(), selected) + delta;
    const auto last = static_cast<std::ptrdiff_t>(choices.size()) - 1;
    selectCategory(choices[static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(target, 0, last))]);
}

// Where the focus is.

void ClipboardPanelModel::setFocus(const PanelFocus& focus) {
    focus_ = focus;
    selection_.reset();
    changes_.assigned(PanelField::focus);
}

std::optional<std::size_t> ClipboardPanelModel::selectedIndex() {
    const auto id = focus_.rowID();
    if (id && !selection_)
        selection_ = Selection{visibleRows().indexOf(*id)};
    return id ? selection_->index : std::nullopt;
}

const ClipboardRowSummary* ClipboardPanelModel::selectedRow() {
    const auto index = selectedIndex();
    return index ? &visibleRows()[*index] : nullptr;
}

bool ClipboardPanelModel::moveSelection(int delta) {
    if (focus_ == PanelFocus::categories()) {
        if (delta >= 1)
            return enterRows(delta);
        setFocus(PanelFocus::search());
        return true;
    }
    if (focus_ == PanelFocus::search()) {
        if (delta < 1 || !showsCategoryBar())
            return enterRows(delta);
        setFocus(PanelFocus::categories());
        return true;
    }
    const auto index = selectedIndex();
    if (!index)
        return enterRows(delta);
    const auto target = static_cast<std::ptrdiff_t>(*index) + delta;
    if (target < 0)
        setFocus(showsCategoryBar() ? PanelFocus::categories() : PanelFocus::search());
    else if (const auto row = static_cast<std::size_t>(target); row < visibleRows().size())
        focusRow(row);
    return true;
}

bool ClipboardPanelModel::enterRows(int delta) {
    const std::size_t count = visibleRows().size();
    if (count == 0)
        return false;
    focusRow(delta < 1 ? count - 1 : 0);
    return true;
}

void ClipboardPanelModel::focusRow(std::size_t index) {
    setFocus(PanelFocus::row(visibleRows()[index].id));
    selection_ = Selection{index};
}

// What is done to an entry. A row that is passed in may be the one in the list, which a change alters.

template <class F> void ClipboardPanelModel::changeRows(const Uuid& id, F change) {
    history_.change(id, change);
    favorites_.change(id, change);
    listsAssigned();
}

void ClipboardPanelModel::pick(const Row& row) {
    if (!server_.isLinkUp()) {
        finishPick();
        return;
    }
    const ClipboardEntryRef ref = refOf(row);
    auto written = [this, ref] {
        server_.useEntry(ref);
        finishPick();
    };
    auto arrived = [this, written = lifetime_.guard(written)](auto reply) mutable {
        if (reply)
            pasteboardWriter_.write(std::move(reply->payload), std::move(reply->attachment), std::move(written));
        else
            finishPick();
    };
    server_.fetchPayload(ref, lifetime_.guard(std::move(arrived)));
}

void ClipboardPanelModel::finishPick() {
    if (onPick)
        onPick();
}

void ClipboardPanelModel::deleteRow(const Uuid& id) {
    const Uuid deleted = id;
    if (focus_ == PanelFocus::row(deleted))
        setFocus(PanelFocus::search());
    // An entry may be on both lists: the one that is shown is the one that the person means.
    auto ref = find(shownList().rows(), deleted);
    if (!ref)
        ref = find(showFavorites_ ? history() : favorites(), deleted);
    history_.remove(deleted);
    favorites_.remove(deleted);
    listsAssigned();
    if (ref && server_.isLinkUp())
        server_.deleteEntry(*ref);
    scheduleRefresh();
}

void ClipboardPanelModel::togglePin(const Row& row) {
    if (row.scope == ClipboardScope::favorites)
        return;
    const Uuid id = row.id;
    const bool isPinned = !row.isPinned;
    changeRows(id, [](Row& shown) { shown.isPinned = !shown.isPinned; });
    if (server_.isLinkUp())
        server_.pinEntry(id, isPinned);
    scheduleRefresh();
}

void ClipboardPanelModel::toggleFavorite(const Row& row) {
    if (!row.isFavorite) {
        if (categories().empty())
            favorite(row, std::nullopt);
        else
            setFavoriteCandidate(row);
        return;
    }
    const ClipboardEntryRef ref = refOf(row);
    changeRows(ref.id, [](Row& shown) { shown.isFavorite = false; });
    if (server_.isLinkUp())
        server_.favoriteEntry(ref.id, ref.scope, false, std::nullopt);
    scheduleRefresh();
}

void ClipboardPanelModel::favorite(const Row& row, std::optional<Uuid> categoryID) {
    const ClipboardEntryRef ref = refOf(row);
    changeRows(ref.id, [&categoryID](Row& shown) {
        shown.isFavorite = true;
        shown.categoryID = categoryID;
    });
    if (server_.isLinkUp())
        server_.favoriteEntry(ref.id, ref.scope, true, categoryID);
    scheduleRefresh();
    setFavoriteCandidate(std::nullopt);
}

void ClipboardPanelModel::setFavoriteCandidate(std::optional<Row> row) {
    favoriteCandidate_ = std::move(row);
    changes_.assigned(PanelField::favoriteCandidate);
}

} // namespace vexil
