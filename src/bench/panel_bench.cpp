// SPDX-License-Identifier: Apache-2.0
// What a keystroke, a cursor key and a new snapshot cost the panel.
#include "bench/harness.h"
#include "bench/panel_at_work.h"
#include "bench/panel_rows.h"
#include "panel/folded_previews.h"
#include "panel/panel_list.h"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace vexil {
namespace {

using Rows = std::vector<ClipboardRowSummary>;
using text::CaseRules;

constexpr std::size_t kRowsToFilter = 100'000;
constexpr std::size_t kRowsToReload = 10'000;
constexpr std::size_t kCharacters = 200;

void require(bool condition, const char* what) {
    if (!condition)
        throw std::runtime_error(what);
}

// Three characters, then a fourth: of words that many rows have, that few have, and that none has. None of them goes on
// where the one before it stopped.
struct Typed {
    std::string_view three;
    std::string_view four;
};
constexpr Typed kTyped[] = {
    {"err", "erro"}, {"rep", "repo"}, {"ser", "serv"}, {"und", "und "},       {"grö", "größ"},        {"htt", "http"},
    {"127", "127."}, {"вст", "встр"}, {"оши", "ошиб"}, {"服务器", "服务器 "}, {"caf\u00e9", "café "}, {"zzq", "zzqx"},
};

// A list in which somebody searches, whose worker has always had the time to fold.
class SearchedList {
public:
    SearchedList() {
        list_.assign(std::make_shared<const Rows>(bench::sampleRows(kRowsToFilter, kCharacters)));
        queue_.runUntilIdle();
    }

    // Milliseconds; `found` is the number of rows.
    double type(std::string_view query, std::size_t& found) {
        return bench::millisecondsOf([&] { found = list_.matching(query, std::nullopt).size(); });
    }

private:
    MemoryMainQueue queue_;
    MemorySerialQueue worker_{queue_};
    PanelList list_{queue_, worker_, CaseRules::common};
};

// Rows with the needle, and nothing else: which ones, nobody asks.
std::size_t rowsFoundByMemmem(std::string_view folded, std::string_view needle) {
    std::size_t rows = 0;
    const char* at = folded.data();
    const char* const end = at + folded.size();
    while (const void* hit = memmem(at, static_cast<std::size_t>(end - at), needle.data(), needle.size())) {
        ++rows;
        const auto* const found = static_cast<const char*>(hit);
        at = static_cast<const char*>(std::memchr(found, text::kEndOfText, static_cast<std::size_t>(end - found)));
    }
    return rows;
}

bench::Trial panelFilter() {
    const auto list = std::make_shared<SearchedList>();
    const auto folded = std::make_shared<const FoldedPreviews>(
        std::make_shared<const Rows>(bench::sampleRows(kRowsToFilter, kCharacters)), CaseRules::common);
    const auto needles = std::make_shared<std::vector<std::string>>();
    const auto expected = std::make_shared<std::vector<std::size_t>>();
    for (const auto& typed : kTyped) {
        needles->push_back(text::fold(typed.three, CaseRules::common));
        expected->push_back(rowsFoundByMemmem(folded->text(), needles->back()));
    }
    return {[=] {
                double time = 0;
                for (std::size_t i = 0; i < std::size(kTyped); ++i) {
                    std::size_t found = 0;
                    time += list->type(kTyped[i].three, found);
                    require(found == (*expected)[i], "memmem finds other rows");
                }
                return time / std::size(kTyped);
            },
            [=] {
                double time = 0;
                for (const auto& needle : *needles)
                    time += bench::millisecondsOf([&] { bench::keep(rowsFoundByMemmem(folded->text(), needle)); });
                return time / std::size(kTyped);
            }};
}

bench::Trial panelNarrow() {
    const auto list = std::make_shared<SearchedList>();
    const auto type = [list](bool isFourth) {
        double three = 0;
        double four = 0;
        for (const auto& typed : kTyped) {
            std::size_t before = 0;
            std::size_t after = 0;
            three += list->type(typed.three, before);
            four += list->type(typed.four, after);
            require(after <= before && (before == 0 || after > 0), "the fourth character finds more, or nothing");
        }
        return (isFourth ? four : three) / std::size(kTyped);
    };
    return {[=] { return type(true); }, [=] { return type(false); }};
}

// From the arrival of a snapshot of which nothing is known until it can be searched.
bench::Trial panelReload() {
    const auto panel = std::make_shared<bench::PanelAtWork>();
    const auto snapshots = std::make_shared<const std::array<Rows, 2>>(
        std::array{bench::sampleRows(kRowsToReload, kCharacters, 1), bench::sampleRows(kRowsToReload, kCharacters, 2)});
    const auto round = std::make_shared<std::size_t>(0);
    return {[=] {
                const double reload = panel->receive((*snapshots)[++*round % 2]);
                return reload + panel->afterwards();
            },
            [=] {
                const Rows& rows = (*snapshots)[*round % 2];
                std::string folded;
                return bench::millisecondsOf([&] {
                    icu::StringByteSink<std::string> sink(&folded);
                    for (const auto& row : rows) {
                        UErrorCode status = U_ZERO_ERROR;
                        icu::CaseMap::utf8Fold(U_FOLD_CASE_DEFAULT, row.preview, sink, nullptr, status);
                    }
                    bench::keep(folded);
                });
            }};
}

// How long the longest turn is: of a snapshot of which nothing is known, and of one with one row more, as it comes
// after each action, while a query is typed. A view asks for its rows in the same turn.
bench::Trial panelReloadStall() {
    const auto panel = std::make_shared<bench::PanelAtWork>();
    const auto seed = std::make_shared<unsigned>(0);
    return {[=] {
                Rows rows = bench::sampleRows(kRowsToReload, kCharacters, ++*seed);
                auto& model = panel->model();
                const auto shownRows = [&](const Rows& history) {
                    const double reload = panel->receive(history);
                    std::size_t shown = 0;
                    const double show = bench::millisecondsOf([&] { shown = model.visibleRows().size(); });
                    require(shown > 0, "nothing is shown");
                    panel->afterwards();
                    return std::max(reload + show, panel->modelQueue().takeLongestTurn());
                };
                model.setQuery("");
                const double unknown = shownRows(rows);
                model.setQuery("rep");
                rows.insert(rows.begin(), bench::sampleRows(1, kCharacters, ++*seed).front());
                return std::max(unknown, shownRows(rows));
            },
            [] { return 2.0; }};
}

constexpr std::size_t kSteps = 98;

// As many steps down as up, from the middle of the list, with a view that asks for the selected row at each.
bench::Trial panelMove() {
    const auto panelOf = [](std::size_t count) {
        auto panel = std::make_shared<bench::PanelAtWork>();
        panel->receive(bench::sampleRows(count, 1));
        panel->afterwards();
        return panel;
    };
    const auto microsecondsOfMoves = [](bench::PanelAtWork& panel) {
        auto& model = panel.model();
        const auto rows = model.visibleRows();
        model.setFocus(PanelFocus::row(rows[rows.size() / 2].id));
        bench::keep(model.selectedRow());
        const double time = bench::microsecondsOf([&] {
            for (std::size_t step = 0; step < kSteps; ++step) {
                require(model.moveSelection(step < kSteps / 2 ? 1 : -1), "the key is not used");
                bench::keep(model.selectedRow());
            }
        });
        require(model.selectedIndex() == rows.size() / 2, "the way back ends elsewhere");
        panel.afterwards();
        return time / kSteps;
    };
    const auto large = panelOf(kRowsToFilter);
    const auto small = panelOf(100);
    return {[=] { return microsecondsOfMoves(*large); }, [=] { return microsecondsOfMoves(*small); }};
}

} // namespace
} // namespace vexil

int main(int argc, char** argv) {
    using namespace vexil;
    return bench::run(argc, argv,
                      {{"panel.filter", "ms", panelFilter},
                       {"panel.narrow", "ms", panelNarrow},
                       {"panel.reload", "ms", panelReload},
                       {"panel.reload-stall", "ms", panelReloadStall},
                       {"panel.move", "us", panelMove}});
}
