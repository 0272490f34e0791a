// SPDX-License-Identifier: Apache-2.0
#include "base/json.h"
#include "platform/memory/memory_main_queue.h"
#include "platform/memory/memory_wall_clock.h"
#include "store/database/jpeg_fixture.h"
#include "store/database/scratch_folder_fixture.h"
#include "store/store_service.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Answer = StoreService::Answer;
using Message = StoreService::Message;

ClipboardPasteboardChange textChange(std::string text) {
    return {ClipboardKind::text, std::move(text), false};
}

ClipboardPasteboardChange imageChange(bool hasAttachment) {
    return {ClipboardKind::image, std::nullopt, hasAttachment};
}

ClipboardFavoriteRequest favorite(const Uuid& id, bool isFavorite) {
    return {id, ClipboardScope::history, isFavorite, std::nullopt};
}

ClipboardEditRequest edit(const Uuid& id, std::optional<std::string> alias = std::nullopt,
                          std::optional<std::string> text = std::nullopt,
                          std::optional<Uuid> categoryID = std::nullopt) {
    return {id, ClipboardScope::history, std::move(alias), categoryID, std::move(text)};
}

class StoreServiceTest : public testing::Test {
protected:
    StoreServiceTest() {
        service.onChange = [this] { ++changes; };
        service.onNotice = [this](const std::string& sentence) { notices.push_back(sentence); };
        service.onFailure = [this](const std::string& sentence) { failures.push_back(sentence); };
    }

    static Message message(std::string_view method, ClipboardLinkPayload payload,
                           std::optional<Bytes> attachment = std::nullopt) {
        Message message{{}, std::move(payload), std::move(attachment)};
        message.header.m = method;
        return message;
    }

    Answer ask(std::string_view method, ClipboardLinkPayload payload) {
        return service.answer(message(method, std::move(payload)));
    }
    template <class Record> static Record readBack(const ClipboardLinkPayload& payload) {
        if (const auto* encoded = std::get_if<EncodedPayload>(&payload))
            return json::read<Record>(*encoded->json).value();
        return std::get<Record>(payload);
    }
    template <class Record> Record answered(std::string_view method, ClipboardLinkPayload payload) {
        const Answer answer = ask(method, std::move(payload));
        EXPECT_TRUE(answer.reply) << answer.reply.error().message;
        return readBack<Record>(*answer.reply);
    }
    ClipboardLinkError refused(std::string_view method, ClipboardLinkPayload payload) {
        const Answer answer = ask(method, std::move(payload));
        EXPECT_FALSE(answer.reply);
        EXPECT_EQ(answer.attachment, std::nullopt);
        return answer.reply ? ClipboardLinkError{} : answer.reply.error();
    }
    void changeOk(std::string_view method, ClipboardLinkPayload payload) {
        const int before = changes;
        const Answer answer = ask(method, std::move(payload));
        EXPECT_TRUE(answer.reply);
        queue.runUntilIdle();
        EXPECT_EQ(changes, before + 1);
    }

    void copy(ClipboardPasteboardChange change, std::optional<Bytes> attachment = std::nullopt) {
        clock.jump(1);
        service.handleEvent(message("pasteboard.changed", std::move(change), std::move(attachment)));
    }
    Uuid copyText(const std::string& text) {
        copy(textChange(text));
        return snapshot().history.at(0).id;
    }

    ClipboardStoreSnapshot snapshot() {
        return answered<ClipboardStoreSnapshot>("store.snapshot", ClipboardLinkEmpty{});
    }
    std::vector<std::string> history() {
        std::vector<std::string> previews;
        const auto view = snapshot();
        for (const auto& row : view.history)
            previews.push_back(row.preview);
        return previews;
    }

    ScratchFolder scratch;
    std::filesystem::path file = scratch.path() / "store.db";
    MemoryMainQueue queue;
    MemoryWallClock clock;
    StoreDatabase database = StoreDatabase::open(file, StoreDatabase::Mode::createIfMissing, 1ms).value();
    StoreService service{queue, clock, database};
    int changes = 0;
    std::vector<std::string> notices;
    std::vector<std::string> failures;
};

TEST_F(StoreServiceTest, RecordsACopiedText) {
    copyText("hello");
    const auto row = snapshot().history.at(0);
    EXPECT_EQ(row.preview, "hello");
    EXPECT_EQ(row.lastCopiedAt, clock.now());
    EXPECT_THAT(notices, ElementsAre("stored: text of 5 B"));
    copyText("hello");
    EXPECT_THAT(notices, ElementsAre("stored: text of 5 B", "moved to the top: text of 5 B"));
}

TEST_F(StoreServiceTest, RecordsACopiedImageAsItCame) {
    const Bytes jpeg = makeJpeg({200, 100});
    copy(imageChange(true), jpeg);
    const auto row = snapshot().history.at(0);
    EXPECT_EQ(row.kind, ClipboardKind::image);
    EXPECT_TRUE(row.thumbnail);
    const Answer answer = ask("entry.payload", ClipboardEntryRef{row.id, ClipboardScope::history});
    EXPECT_EQ(std::get<ClipboardEntryPayload>(*answer.reply),
              (ClipboardEntryPayload{ClipboardKind::image, std::nullopt, true}));
    EXPECT_EQ(answer.attachment, jpeg);
}

TEST_F(StoreServiceTest, ACopyWithoutContentIsLeftOutAndSaid) {
    copy(imageChange(false));
    copy(imageChange(true));
    copy(imageChange(true), Bytes());
    copy(imageChange(false), makeJpeg({8, 8}));
    copy({ClipboardKind::text, std::nullopt, false});
    copy(textChange(""));
    queue.runUntilIdle();
    EXPECT_THAT(history(), IsEmpty());
    EXPECT_EQ(changes, 0);
    EXPECT_EQ(notices.size(), 6U);
    EXPECT_EQ(notices.front(), "left out: a copied image without content");
    EXPECT_EQ(notices.back(), "left out: a copied text without content");
    EXPECT_THAT(failures, IsEmpty());
}

TEST_F(StoreServiceTest, AnnouncesChangesOncePerTurn) {
    copyText("one");
    copyText("two");
    EXPECT_EQ(changes, 0);
    queue.runUntilIdle();
    EXPECT_EQ(changes, 1);
    queue.runUntilIdle();
    EXPECT_EQ(changes, 1);
    copyText("one");
    queue.runUntilIdle();
    EXPECT_EQ(changes, 2);
}

TEST_F(StoreServiceTest, AnEventThatIsNoCopyChangesNothing) {
    service.handleEvent(message("shortcut.state", ClipboardShortcutState{true}));
    service.handleEvent(message("hosts.state", std::monostate()));
    service.handleEvent(message("pasteboard.changed", std::monostate()));
    service.handleEvent(message("made.up", std::monostate()));
    queue.runUntilIdle();
    EXPECT_EQ(changes, 0);
    EXPECT_EQ(snapshot().revision, 0);
}

TEST_F(StoreServiceTest, AnswersTheContentOfAText) {
    const Uuid id = copyText("  as it is\n");
    const auto expected = ClipboardEntryPayload{ClipboardKind::text, "  as it is\n", false};
    for (const auto scope : {ClipboardScope::history, ClipboardScope::favorites})
        EXPECT_EQ(answered<ClipboardEntryPayload>("entry.payload", ClipboardEntryRef{id, scope}), expected);
}

TEST_F(StoreServiceTest, UnknownIdsAreNotFound) {
    const ClipboardLinkError notFound{"not_found", "No such entry"};
    const Uuid id = Uuid::random();
    EXPECT_EQ(refused("entry.payload", ClipboardEntryRef{.id = id}), notFound);
    EXPECT_EQ(refused("entry.use", ClipboardEntryRef{.id = id}), notFound);
    EXPECT_EQ(refused("entry.delete", ClipboardEntryRef{.id = id}), notFound);
    EXPECT_EQ(refused("entry.pin", ClipboardPinRequest{.id = id, .isPinned = true}), notFound);
    EXPECT_EQ(refused("entry.favorite", favorite(id, true)), notFound);
    EXPECT_EQ(refused("entry.edit", edit(id)), notFound);
    EXPECT_EQ(refused("entry.editText", edit(id, std::nullopt, "x")), notFound);
    queue.runUntilIdle();
    EXPECT_EQ(changes, 0);
}

TEST_F(StoreServiceTest, MethodsThatAMainApplicationIsNotAskedAreUnknown) {
    const ClipboardLinkError unknown{"unknown_message", "Unknown message"};
    for (const std::string_view method : {"made.up", "", "hello", "store.changed", "pasteboard.changed",
                                          "shortcut.state", "hosts.changed", "hosts.apply", "hosts.state"})
        EXPECT_EQ(refused(method, std::monostate()), unknown) << method;
}

TEST_F(StoreServiceTest, APayloadOfAnotherTypeIsABadRequest) {
    for (const std::string_view method : {"entry.payload", "entry.use", "entry.pin", "entry.favorite", "entry.edit",
                                          "entry.editText", "entry.delete"}) {
        const auto error = refused(method, std::monostate());
        EXPECT_EQ(error.code, "bad_request");
        EXPECT_EQ(error.message, "The payload is not what " + std::string(method) + " takes");
    }
    const Uuid id = copyText("one");
    EXPECT_EQ(refused("entry.edit", edit(id, std::nullopt, "x")).code, "bad_request");
    EXPECT_EQ(refused("entry.editText", edit(id)).code, "bad_request");
}

TEST_F(StoreServiceTest, SaysThatItKeepsNoHostsProfiles) {
    EXPECT_EQ(refused("hosts.snapshot", ClipboardLinkEmpty{}).code, "unsupported");
}

TEST_F(StoreServiceTest, PinsFavoritesEditsAndDeletes) {
    const Uuid one = copyText("one");
    copyText("two");
    queue.runUntilIdle();
    changeOk("entry.pin", ClipboardPinRequest{one, true});
    EXPECT_THAT(history(), ElementsAre("one", "two"));
    changeOk("entry.pin", ClipboardPinRequest{one, false});
    EXPECT_THAT(history(), ElementsAre("two", "one"));
    changeOk("entry.favorite", favorite(one, true));
    EXPECT_EQ(snapshot().favorites.size(), 1U);
    changeOk("entry.use", ClipboardEntryRef{one, ClipboardScope::favorites});
    changeOk("entry.editText", edit(one, "first", "edited"));
    EXPECT_EQ(snapshot().favorites.at(0).alias, "first");
    EXPECT_EQ(snapshot().favorites.at(0).preview, "edited");
    changeOk("entry.edit", edit(one));
    EXPECT_EQ(snapshot().favorites.at(0).alias, std::nullopt);
    changeOk("entry.delete", ClipboardEntryRef{one, ClipboardScope::history});
    EXPECT_THAT(history(), ElementsAre("two"));
    changeOk("entry.favorite", favorite(one, false));
    EXPECT_EQ(refused("entry.payload", ClipboardEntryRef{.id = one}).code, "not_found");
}

TEST_F(StoreServiceTest, RefusesAnEditThatCannotBeKept) {
    const Uuid one = copyText("one");
    EXPECT_EQ(refused("entry.editText", edit(one, std::nullopt, "")).message, "The text is empty");
    EXPECT_EQ(refused("entry.edit", edit(one, std::string(4097, 'x'))).message, "The alias is longer than 4096 bytes");
    EXPECT_EQ(refused("entry.edit", edit(one, std::nullopt, std::nullopt, Uuid::random())),
              (ClipboardLinkError{"not_found", "No such category"}));
    copy(imageChange(true), makeJpeg({8, 8}));
    EXPECT_EQ(refused("entry.editText", edit(snapshot().history.at(0).id, std::nullopt, "x")).message,
              "An image has no text to edit");
}

TEST_F(StoreServiceTest, ACopyThatCannotBeStoredIsSaidAndTheNextOneIsTaken) {
    auto other = SqliteConnection::open(file, SqliteConnection::Mode::existing).value();
    ASSERT_TRUE(other.execute("BEGIN IMMEDIATE"));
    copy(textChange("lost"));
    EXPECT_THAT(failures,
                ElementsAre("a copied text of 4 B is not stored: " + file.string() + " is in use by another program"));
    EXPECT_EQ(refused("entry.pin", ClipboardPinRequest{.id = Uuid::random(), .isPinned = true}).code, "failed");
    EXPECT_EQ(failures.size(), 2U);
    ASSERT_TRUE(other.execute("COMMIT"));
    copyText("kept");
    EXPECT_THAT(history(), ElementsAre("kept"));
}

TEST_F(StoreServiceTest, ASnapshotHoldsAsManyRowsAsThePanelIsToShow) {
    for (const char* text : {"one", "two", "three", "four"})
        copyText(text);
    EXPECT_THAT(history(), ElementsAre("four", "three", "two", "one"));
    StoreService brief(queue, clock, database, 2);
    const auto answer = brief.answer(message("store.snapshot", ClipboardLinkEmpty{}));
    const auto view = readBack<ClipboardStoreSnapshot>(*answer.reply);
    ASSERT_EQ(view.history.size(), 2U);
    EXPECT_EQ(view.history[1].preview, "three");
}

TEST_F(StoreServiceTest, ASnapshotOfThousandsOfImagesFitsIntoAFrame) {
    auto other = SqliteConnection::open(file, SqliteConnection::Mode::existing).value();
    ASSERT_TRUE(other.execute(
        "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000) "
        "INSERT INTO entries (id, kind, content_hash, size, created_at, last_copied_at, copied_revision, in_history, "
        "is_favorite, preview, thumbnail) SELECT printf('00000000-0000-4000-8000-%012d', i), 'image', x'00', 1, i, i, "
        "i, "
        "1, 0, i, zeroblob(4096) FROM n"));
    StoreService large(queue, clock, database, 5000);
    const auto answer = large.answer(message("store.snapshot", ClipboardLinkEmpty{}));
    const auto view = readBack<ClipboardStoreSnapshot>(*answer.reply);
    EXPECT_GT(view.history.size(), 2500U);
    EXPECT_LT(view.history.size(), 5000U);
    EXPECT_EQ(view.history.front().preview, "5000");
    Bytes envelope;
    appendEnvelope(envelope, {}, *answer.reply);
    EXPECT_TRUE(frameHeader(FrameType::envelope, envelope.size()));
}

TEST_F(StoreServiceTest, ASnapshotIsMadeAnewOnlyAfterAChange) {
    const auto encoded = [this] {
        return std::get<EncodedPayload>(*ask("store.snapshot", ClipboardLinkEmpty{}).reply).json;
    };
    copyText("one");
    const auto first = encoded();
    EXPECT_EQ(encoded(), first); // the very same bytes
    copyText("two");
    const auto second = encoded();
    EXPECT_NE(second, first);
    auto other = StoreDatabase::open(file, StoreDatabase::Mode::existing).value();
    ASSERT_TRUE(other.entries().record(ClipboardKind::text, bytesOf("three"), clock.now()));
    EXPECT_NE(encoded(), second); // also before the change was noticed
    EXPECT_THAT(history(), ElementsAre("three", "two", "one"));
}

TEST_F(StoreServiceTest, AChangeByAnotherProcessIsAnnouncedLikeAnOwnOne) {
    copyText("one");
    queue.runUntilIdle();
    service.databaseChanged(); // nothing that a companion would see
    queue.runUntilIdle();
    EXPECT_EQ(changes, 1);
    auto other = StoreDatabase::open(file, StoreDatabase::Mode::existing).value();
    ASSERT_TRUE(other.categories().add("work", "red"));
    service.databaseChanged();
    copyText("two");
    queue.runUntilIdle();
    EXPECT_EQ(changes, 2); // once for both
    service.databaseChanged();
    queue.runUntilIdle();
    EXPECT_EQ(changes, 2);
}

TEST_F(StoreServiceTest, WhatWasThereBeforeIsNoChange) {
    copyText("one");
    StoreService later(queue, clock, database);
    int announced = 0;
    later.onChange = [&] { ++announced; };
    later.databaseChanged();
    queue.runUntilIdle();
    EXPECT_EQ(announced, 0);
}

} // namespace
} // namespace vexil
