// SPDX-License-Identifier: Apache-2.0
// What the store answers, out of 100,000 entries.
#include "base/text_folding.h"
#include "bench/bare_sqlite.h"
#include "bench/harness.h"
#include "link/clipboard_link_envelope.h"
#include "link/frame.h"
#include "platform/memory/memory_main_queue.h"
#include "platform/memory/memory_wall_clock.h"
#include "store/database/entry_rows.h"
#include "store/store_service.h"

#include <cstring>
#include <random>
#include <stdexcept>
#include <vector>

namespace vexil {
namespace {

constexpr int kEntries = 100'000;
constexpr std::size_t kRows = 2000;
constexpr std::size_t kCharacters = 200;

void require(bool condition, const char* what) {
    if (!condition)
        throw std::runtime_error(what);
}

// Words in both cases, and, where asked for, others than English ones.
std::string textOf(std::mt19937& random, bool isEnglish) {
    static constexpr std::string_view kEnglish[] = {"Order",  "the",  "COPY", "of",    "clipboard", "History",
                                                    "return", "Item", "from", "STORE", "value",     "line"};
    static constexpr std::string_view kOther[] = {"Größe", "МАСШТАБ", "привет", "Éclair", "naïve", "ŁÓDŹ"};
    std::string text;
    std::size_t characters = 0;
    while (characters < kCharacters) {
        const std::string_view word =
            isEnglish ? kEnglish[random() % std::size(kEnglish)] : kOther[random() % std::size(kOther)];
        for (const char c : word)
            characters += (static_cast<unsigned char>(c) & 0xC0U) != 0x80U ? 1 : 0;
        text += word;
        text += ' ';
        ++characters;
    }
    return text;
}

// A store whose newest entries are as people's are: every tenth an image with a thumbnail of three kilobytes, every
// tenth not English.
class LargeStore {
public:
    LargeStore() {
        require(database_.entries().setHistoryLimit(kEntries).hasValue(), "the limit cannot be set");
        // One transaction for all, which no view of the store offers.
        auto connection = SqliteConnection::open(file_, SqliteConnection::Mode::existing).value();
        const auto filled = connection.transaction(SqliteConnection::Access::write, [&] { return fill(connection); });
        require(filled.hasValue(), "the store cannot be filled");
    }

    [[nodiscard]] const std::filesystem::path& file() const { return file_; }
    [[nodiscard]] StoreDatabase& database() { return database_; }
    [[nodiscard]] const std::vector<std::string>& texts() const { return texts_; }

private:
    Result<Done, StoreError> fill(SqliteConnection& connection) {
        std::mt19937 random(1);
        Bytes thumbnail(3000);
        for (auto& byte : thumbnail)
            byte = static_cast<std::uint8_t>(random());
        for (int i = 0; i < kEntries; ++i) {
            const bool isImage = i % 10 == 9;
            const std::string text = textOf(random, i % 10 != 4);
            if (!isImage)
                texts_.push_back(text);
            const auto number = connection.number(
                "INSERT INTO entries (id, kind, content_hash, size, created_at, last_copied_at, copied_revision, "
                "in_history, is_favorite, preview, thumbnail) VALUES (?1, ?2, randomblob(32), ?3, ?4, ?4, ?5, 1, 0, "
                "?6, "
                "?7) RETURNING number",
                Uuid::random(), isImage ? "image" : "text", text.size(), Date{800'000'000.0 + i}, i,
                isImage ? "1280 × 800 pixels, 120.0 kB" : text, isImage ? std::optional(thumbnail) : std::nullopt);
            if (!number)
                return Failure{number.error()};
            if (auto kept = insertContent(connection, *number, isImage ? ClipboardKind::image : ClipboardKind::text,
                                          bytesOf(text));
                !kept)
                return kept;
        }
        return connection.run("UPDATE store SET revision = ?", kEntries);
    }

    bench::ScratchFolder folder_;
    std::filesystem::path file_ = folder_.path() / "store.db";
    StoreDatabase database_ = StoreDatabase::open(file_, StoreDatabase::Mode::createIfMissing).value();
    std::vector<std::string> texts_;
};

// The answer to a "store.snapshot", in the frame that goes out.
Bytes answerFrame(StoreService& service, const StoreService::Message& request) {
    const auto answer = service.answer(request);
    Bytes frame(kFrameHeaderSize);
    appendEnvelope(frame, request.header, *answer.reply);
    return frame;
}

StoreService::Message snapshotRequest() {
    StoreService::Message request{{}, ClipboardLinkEmpty{}, std::nullopt};
    request.header.id = Uuid::random().toString();
    request.header.m = "store.snapshot";
    return request;
}

// The reference reads no column: it only makes SQLite find the rows. How the JSON comes into the frame is measured by
// itself below.
bench::Trial snapshot() {
    struct State {
        LargeStore store;
        bench::BareSqlite bare{store.file()};
    };
    const auto state = std::make_shared<State>();
    state->bare.prepare("SELECT id, kind, preview, last_copied_at, 0, is_favorite, category_id, alias, thumbnail "
                        "FROM entries WHERE in_history AND pinned_at IS NULL ORDER BY copied_revision DESC LIMIT 2000");
    return {[=] {
                Bytes json;
                const double time = bench::microsecondsOf([&] {
                    auto encoded = state->store.database().lists().snapshotJson(kRows, StoreService::kMaxSnapshotBytes,
                                                                                std::size_t{2} << 20);
                    json = std::move(encoded->json);
                });
                require(json.size() > kRows * kCharacters, "the snapshot is too short");
                return time;
            },
            [=] {
                int rows = 0;
                const double time = bench::microsecondsOf([&] { rows = state->bare.stepToEnd(); });
                require(rows == static_cast<int>(kRows), "the reference reads other rows");
                return time;
            }};
}

bench::Trial cachedSnapshot() {
    struct State {
        LargeStore store;
        MemoryMainQueue queue;
        MemoryWallClock clock;
        StoreService service{queue, clock, store.database(), kRows};
        Bytes first = answerFrame(service, snapshotRequest());
    };
    const auto state = std::make_shared<State>();
    return {[=] {
                Bytes frame;
                const auto request = snapshotRequest();
                const double time = bench::microsecondsOf([&] { frame = answerFrame(state->service, request); });
                require(frame.size() == state->first.size(), "the snapshot is another one");
                return time;
            },
            [=] {
                Bytes frame;
                return bench::microsecondsOf([&] {
                    frame.resize(state->first.size());
                    std::memcpy(frame.data(), state->first.data(), frame.size());
                    bench::keep(*frame.data());
                });
            }};
}

// The reference looks at each folded text by itself too: which entries are meant is what a search has to tell.
bench::Trial search() {
    static constexpr std::string_view kWanted = "copy store clipboard value";
    struct State {
        LargeStore store;
        std::string folded; // one behind the other
        std::vector<std::size_t> ends;
    };
    const auto state = std::make_shared<State>();
    for (const std::string& text : state->store.texts()) {
        text::appendFolded(state->folded, text, text::CaseRules::common);
        state->ends.push_back(state->folded.size());
    }
    const auto found = std::make_shared<std::size_t>(0);
    return {[=] {
                std::size_t hits = 0;
                const double time = bench::millisecondsOf(
                    [&] { hits = state->store.database().lists().entries({.search = std::string(kWanted)})->size(); });
                require(hits > 0 && (*found == 0 || hits == *found), "the search finds something else");
                return time;
            },
            [=] {
                std::size_t hits = 0;
                const double time = bench::millisecondsOf([&] {
                    std::size_t begin = 0;
                    for (const std::size_t end : state->ends) {
                        if (::memmem(state->folded.data() + begin, end - begin, kWanted.data(), kWanted.size()) !=
                            nullptr)
                            ++hits;
                        begin = end;
                    }
                });
                *found = hits;
                return time;
            }};
}

} // namespace
} // namespace vexil

int main(int argc, char** argv) {
    using namespace vexil;
    return bench::run(argc, argv,
                      {{"store.snapshot", "us", snapshot, 101},
                       {"store.snapshot-cached", "us", cachedSnapshot, 301},
                       {"store.search", "ms", search}});
}
