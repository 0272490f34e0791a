// SPDX-License-Identifier: Apache-2.0
// Whatever a person, a main application and the clock do, in whatever order: what must hold holds.
#include "panel/panel_fixture.h"

#include <cctype>
#include <functional>
#include <iostream>
#include <map>
#include <random>

namespace vexil {
namespace {

using namespace std::chrono_literals;

constexpr int kSteps = 400;

class ClipboardPanelRandomTest : public PanelFixture, public testing::WithParamInterface<unsigned> {
protected:
    ClipboardPanelRandomTest() { codec.answerTypeWith(pasteboard_type::kJpeg); }

    std::size_t below(std::size_t limit) { return std::uniform_int_distribution<std::size_t>(0, limit - 1)(engine); }
    bool oneIn(std::size_t odds) { return below(odds) == 0; }
    template <class T> const T& oneOf(const std::vector<T>& choices) { return choices[below(choices.size())]; }
    std::string name() { return std::string(1, "abcAB"[below(5)]) + std::to_string(below(8)); }
    std::optional<Uuid> category() {
        return oneOf<std::optional<Uuid>>({std::nullopt, idOf("work"), idOf("home"), idOf("gone")});
    }

    ClipboardStoreSnapshot snapshot() {
        ClipboardStoreSnapshot made;
        std::map<std::string, bool> seen;
        for (std::size_t count = below(12); count > 0; --count) {
            const std::string row = name();
            if (!std::exchange(seen[row], true)) {
                made.history.push_back(oneIn(4) ? imageRow(row) : historyRow(row));
                if (oneIn(2))
                    made.favorites.push_back(favoriteRow(row, category()));
            }
        }
        for (const char* each : {"work", "home"}) {
            if (!oneIn(3))
                made.categories.push_back(categoryOf(each));
        }
        return made;
    }

    // A row of either list as it is shown, or one that a view still shows though it has gone.
    ClipboardRowSummary row() {
        const PanelRows rows = oneIn(2) ? model->history() : model->favorites();
        if (rows.empty() || oneIn(8))
            return oneIn(2) ? historyRow(name()) : favoriteRow(name());
        return rows[below(rows.size())];
    }

    void person() {
        const std::vector<std::function<void()>> deeds = {
            [this] {
                model->setQuery(oneOf<std::string>({"", "a", "A", "b", "1", "c3", " "}));
            },
            [this] { model->setShowFavorites(oneIn(2)); },
            [this] { model->selectCategory(category()); },
            [this] { model->moveCategory(oneIn(2) ? 1 : -1); },
            [this] { moveSelection(); },
            [this] { moveSelection(); },
            [this] { model->setFocus(PanelFocus::row(row().id)); },
            [this] { pick(); },
            [this] { model->deleteRow(row().id); },
            [this] { model->togglePin(row()); },
            [this] { model->toggleFavorite(row()); },
            [this] { model->favorite(model->favoriteCandidate() ? *model->favoriteCandidate() : row(), category()); },
            [this] { model->setFavoriteCandidate(std::nullopt); },
            [this] { model->beginEdit(row()); },
            [this] { model->loadEditText(); },
            [this] { model->setEditingText(name()); },
            [this] { model->saveEdit(name(), category()); },
            [this] { model->saveEdit(name(), category()); },
            [this] { model->endEdit(); },
            [this] { model->prepareForShow(); },
        };
        oneOf(deeds)();
    }

    void moveSelection() {
        const bool hasRows = !model->visibleRows().empty();
        const PanelFocus before = model->focus();
        const bool isUsed = model->moveSelection(oneIn(2) ? 1 : -1);
        EXPECT_TRUE(isUsed || (!hasRows && model->focus() == before));
    }

    void pick() {
        ++picksBegun;
        model->pick(row());
    }

    void mainApplication() {
        switch (below(6)) {
        case 0:
            return changeConnection();
        case 1:
            if (isLinked())
                main->tell(ClipboardLinkMethod::storeChanged);
            return;
        default:
            return answerSomething();
        }
    }

    [[nodiscard]] bool isLinked() const { return main && server.isLinkUp(); }

    void changeConnection() {
        if (!oneIn(3))
            return;
        if (main) {
            if (oneIn(2))
                disconnect();
            main.reset(); // or it just ends, which the server notices in a turn to come
            return;
        }
        queue.runUntilIdle(); // one link at a time
        main = std::make_unique<TestMainApplication>(queue, network, *server.port());
        arrivals.clear();
        main->connection().onRequest = [this](auto request) {
            arrivals[request.header.id] = queue.now();
            main->requests.push_back(std::move(request));
        };
        isGreeted = !oneIn(4);
        if (isGreeted)
            static_cast<void>(main->hello(server.nonce()));
    }

    // In any order, rightly or with an error, and now and then twice.
    void answerSomething() {
        if (!isLinked() || main->requests.empty())
            return;
        const auto chosen = below(main->requests.size());
        const auto request = main->requests[chosen];
        main->requests.erase(main->requests.begin() + static_cast<std::ptrdiff_t>(chosen));
        for (int times = oneIn(8) ? 2 : 1; times > 0; --times)
            answerOnce(request);
    }

    void answerOnce(const TestMainApplication::Message& request) {
        if (oneIn(5)) {
            reply(request, Failure{ClipboardLinkError{"failed", "The disk is gone"}});
        } else if (request.header.m == "store.snapshot") {
            reply(request, ClipboardLinkPayload(snapshot()));
        } else if (request.header.m == "entry.payload" && oneIn(3)) {
            const ClipboardEntryPayload image{
                .kind = ClipboardKind::image, .text = std::nullopt, .hasAttachment = true};
            reply(request, ClipboardLinkPayload(image), copyOf(bytesOf("jpeg")));
        } else if (request.header.m == "entry.payload") {
            replyText(request, oneIn(6) ? std::nullopt : std::optional<std::string>(name()));
        } else {
            reply(request, ClipboardLinkPayload(ClipboardLinkEmpty{}));
        }
    }

    void time() {
        queue.advance(oneOf<Duration>({0ms, 1ms, 100ms, 300ms, 1s, 6s}));
        if (main && oneIn(10))
            main->requests.clear(); // these are never answered
    }

    void step() {
        switch (below(4)) {
        case 0:
            mainApplication();
            break;
        case 1:
            time();
            break;
        default:
            person();
        }
        if (oneIn(3))
            queue.runUntilIdle();
    }

    void check() {
        checkRows();
        checkFocus();
        checkEdit();
        checkRequests();
        EXPECT_LE(picks, picksBegun);
    }

    static bool holds(const std::string& preview, const std::string& query) {
        const auto lower = [](std::string text) {
            std::transform(text.begin(), text.end(), text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            return text;
        };
        return lower(preview).find(lower(query)) != std::string::npos;
    }

    // What is visible, worked out from the lists alone; and the lists in the order of the store's.
    void checkRows() {
        std::vector<std::string> expected;
        for (const auto& each : model->showFavorites() ? model->favorites() : model->history()) {
            const bool isInCategory = !model->showFavorites() || !model->selectedCategoryID() ||
                                      each.categoryID == model->selectedCategoryID();
            if (isInCategory && holds(each.preview, model->query()))
                expected.push_back(each.preview);
        }
        EXPECT_EQ(visible(), expected);
        const ClipboardStoreSnapshot stored = server.snapshot() ? *server.snapshot() : ClipboardStoreSnapshot{};
        EXPECT_TRUE(isInOrderOf(previewsOf(model->history()), previewsOf(stored.history)));
        EXPECT_TRUE(isInOrderOf(previewsOf(model->favorites()), previewsOf(stored.favorites)));
    }

    static bool isInOrderOf(const std::vector<std::string>& some, const std::vector<std::string>& all) {
        auto next = all.begin();
        for (const auto& each : some) {
            next = std::find(next, all.end(), each);
            if (next == all.end())
                return false;
            ++next;
        }
        return true;
    }

    void checkFocus() {
        const PanelRows rows = model->visibleRows();
        const auto id = model->selectedRowID();
        const auto index = id ? rows.indexOf(*id) : std::nullopt;
        EXPECT_EQ(model->selectedIndex(), index);
        EXPECT_EQ(model->selectedRow(), index ? &rows[*index] : nullptr);
    }

    void checkEdit() {
        const auto& edited = model->editingRow();
        const bool isImage = edited && edited->kind == ClipboardKind::image;
        const bool isBusy = model->isLoadingEdit() || model->isSavingEdit();
        EXPECT_FALSE(model->isLoadingEdit() && model->isSavingEdit());
        EXPECT_FALSE(isBusy && (!edited || model->editError()));
        EXPECT_FALSE(isImage && (model->isLoadingEdit() || model->originalEditingText()));
        EXPECT_EQ(model->canSaveEdit(), edited && !isBusy && (isImage || model->originalEditingText()));
        EXPECT_TRUE(model->canSaveEdit() || isBusy || !edited || model->editError());
    }

    void checkRequests() {
        if (!main)
            return;
        EXPECT_TRUE(isGreeted || main->requests.empty());
        int refreshes = 0;
        for (const auto& request : main->requests) {
            const auto age = queue.now() - arrivals.at(request.header.id);
            const bool isUnderWay = age < ClipboardLinkConnection::kRequestTimeout;
            refreshes += request.header.m == "store.snapshot" && isUnderWay ? 1 : 0;
        }
        EXPECT_LE(refreshes, 1);
    }

    std::mt19937 engine{GetParam()};
    std::map<std::string, TimePoint> arrivals; // of requests, by id
    bool isGreeted = false;                    // the server, by this main application
    int picksBegun = 0;
};

TEST_P(ClipboardPanelRandomTest, KeepsWhatItPromises) {
    std::cout << "seed " << GetParam() << '\n';
    for (int done = 0; done < kSteps && !HasFailure(); ++done) {
        SCOPED_TRACE(testing::Message() << "seed " << GetParam() << ", step " << done);
        step();
        check();
    }
    queue.advance(20s); // whatever is under way has been answered by now, or given up
    check();
    EXPECT_EQ(picks, picksBegun);
}

INSTANTIATE_TEST_SUITE_P(Seeds, ClipboardPanelRandomTest, testing::Range(1U, 41U));

} // namespace
} // namespace vexil
