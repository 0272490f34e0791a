// SPDX-License-Identifier: Apache-2.0
// What a keystroke and a new snapshot cost the panel.
#include "bench/harness.h"
#include "link/clipboard_records.h"
#include "panel/preview_index.h"
#include "platform/memory/memory_main_queue.h"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <random>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace vexil {
namespace {

using Rows = std::vector<ClipboardRowSummary>;
using text::CaseRules;

constexpr std::size_t kCharactersPerRow = 200;

void require(bool condition, const char* what) {
    if (!condition)
        throw std::runtime_error(what);
}

// What people copy: five rows of nine are ASCII, the others are of as many scripts.
constexpr std::string_view kWords[][14] = {
    {"The", "quick", "brown", "fox", "meeting", "tomorrow", "at", "Error", "please", "report", "invoice", "Review",
     "for", "server"},
    {"const", "auto", "return", "std::string", "if", "(!result)", "{", "}", "errno", "<", "int", "value;",
     "==", "nullptr"},
    {"https://example.com/", "index.html?", "utm_source=", "search&q=", "docs/", "en-US/", "issues/", "4711", "#L120",
     "blob/", "main/", "src/", "image.png", "www."},
    {"2026-11-21", "18:46:35", "ERROR", "INFO", "worker", "failed", "to", "connect", "127.0.0.1", "timeout", "after",
     "5000ms", "id=", "0x7ffe"},
    {"Dear", "colleagues", "attached", "find", "the", "minutes", "of", "Monday", "and", "regards", "Erika", "office",
     "projector", "lunch"},
    {"Größe", "Straße", "für", "und", "über", "Müller", "Rechnung", "Überweisung", "prêt", "déjà", "café", "Français",
     "señor", "niño"},
    {"Привет", "мир", "встреча", "завтра", "в", "Отчёт", "сервер", "ошибка", "Москва", "и", "на", "не", "пожалуйста",
     "файл"},
    {"世界", "你好", "会议", "明天", "报告", "服务器", "错误", "こんにちは", "カタカナ", "サーバー", "東京", "の",
     "한국어", "서버"},
    {"Καλημέρα", "κόσμε", "Tiếng", "Việt", "नमस्ते", "दुनिया", "שלום", "مرحبا", "cafe\u0301", "😀", "Ελλάδα", "đẹp", "สวัสดี",
     "und"},
};

std::size_t charactersIn(std::string_view utf8) {
    return static_cast<std::size_t>(std::count_if(
        utf8.begin(), utf8.end(), [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }));
}

PreviewIndex::Rows rowsOf(std::size_t count) {
    std::mt19937 random(1);
    auto rows = std::make_shared<Rows>(count);
    for (auto& row : *rows) {
        row.id = Uuid::random();
        const auto& words = kWords[random() % std::size(kWords)];
        std::size_t characters = 0;
        while (characters < kCharactersPerRow) {
            const std::string_view word = words[random() % std::size(words)];
            row.preview.append(word).append(" ");
            characters += charactersIn(word) + 1;
        }
    }
    return rows;
}

// A person at the keys, with a worker that has always had the time to fold.
class Searcher {
public:
    explicit Searcher(PreviewIndex::Rows rows) {
        index_.assign(std::move(rows));
        mainQueue_.runUntilIdle();
    }

    std::size_t hits(std::string_view query) { return index_.matching(query).size(); }

private:
    MemoryMainQueue mainQueue_;
    MemorySerialQueue worker_{mainQueue_};
    PreviewIndex index_{mainQueue_, worker_, CaseRules::common};
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

// Three characters typed, then a fourth; from words that many rows have, that few have, and that none has.
struct Typed {
    std::string_view three;
    std::string_view four;
};
constexpr Typed kTyped[] = {
    {"err", "erro"}, {"rep", "repo"}, {"ser", "serv"},   {"und", "und "},    {"grö", "größ"},        {"http", "https"},
    {"127", "127."}, {"вст", "встр"}, {"ошиб", "ошибк"}, {"服务", "服务器"}, {"caf\u00e9", "café "}, {"zzq", "zzqx"},
};

constexpr std::size_t kRowsOfFilter = 100'000;

bench::Trial panelFilter() {
    const auto rows = rowsOf(kRowsOfFilter);
    const auto searcher = std::make_shared<Searcher>(rows);
    const auto folded = std::make_shared<const FoldedPreviews>(rows, CaseRules::common);
    const auto expected = std::make_shared<std::vector<std::size_t>>();
    for (const auto& typed : kTyped)
        expected->push_back(rowsFoundByMemmem(folded->text(), text::fold(typed.three, CaseRules::common)));
    return {[=] {
                double time = 0;
                for (std::size_t i = 0; i < std::size(kTyped); ++i) {
                    std::size_t hits = 0;
                    time += bench::millisecondsOf([&] { hits = searcher->hits(kTyped[i].three); });
                    require(hits <= (*expected)[i], "the index finds what is not there");
                }
                return time / static_cast<double>(std::size(kTyped));
            },
            [=] {
                double time = 0;
                for (std::size_t i = 0; i < std::size(kTyped); ++i) {
                    const std::string needle = text::fold(kTyped[i].three, CaseRules::common);
                    std::size_t hits = 0;
                    time += bench::millisecondsOf([&] { hits = rowsFoundByMemmem(folded->text(), needle); });
                    require(hits == (*expected)[i], "memmem finds something else");
                }
                return time / static_cast<double>(std::size(kTyped));
            }};
}

bench::Trial panelNarrow() {
    const auto searcher = std::make_shared<Searcher>(rowsOf(kRowsOfFilter));
    const auto whole = std::make_shared<Searcher>(rowsOf(kRowsOfFilter));
    return {[=] {
                double time = 0;
                for (const auto& typed : kTyped) {
                    const std::size_t before = searcher->hits(typed.three);
                    std::size_t after = 0;
                    time += bench::millisecondsOf([&] { after = searcher->hits(typed.four); });
                    require(after <= before, "a longer query finds more");
                }
                return time / static_cast<double>(std::size(kTyped));
            },
            [=] {
                double time = 0;
                for (const auto& typed : kTyped) {
                    time += bench::millisecondsOf([&] { bench::keep(whole->hits(typed.three)); });
                }
                return time / static_cast<double>(std::size(kTyped));
            }};
}

bench::Trial panelReload() {
    const auto rows = rowsOf(10'000);
    return {[=] {
                return bench::millisecondsOf([&] {
                    const FoldedPreviews folded(rows, CaseRules::common);
                    bench::keep(folded);
                });
            },
            [=] {
                return bench::millisecondsOf([&] {
                    std::string folded;
                    icu::StringByteSink<std::string> sink(&folded);
                    for (const auto& row : *rows) {
                        UErrorCode status = U_ZERO_ERROR;
                        icu::CaseMap::utf8Fold(U_FOLD_CASE_DEFAULT, row.preview, sink, nullptr, status);
                    }
                    bench::keep(folded);
                });
            }};
}

} // namespace
} // namespace vexil

int main(int argc, char** argv) {
    using namespace vexil;
    return bench::run(argc, argv,
                      {{"panel.filter", "ms", panelFilter},
                       {"panel.narrow", "ms", panelNarrow},
                       {"panel.reload", "ms", panelReload}});
}
