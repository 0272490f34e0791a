// SPDX-License-Identifier: Apache-2.0
#include "link/clipboard_link_server.h"
#include "link/test_main_application.h"
#include "link/test_raw_peer.h"
#include "platform/memory/memory_secure_random.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class ClipboardLinkServerTest : public testing::Test {
protected:
    ClipboardLinkServerTest() {
        server.onConnectionChange = [this](bool isConnected) { connectionChanges.push_back(isConnected); };
        server.onSnapshotChange = [this] { ++snapshotChanges; };
        server.onHostsChanged = [this] { ++hostsChanges; };
        server.onHostsApply = [this](HostsApplyCommand command) { applies.push_back(command.removeAll); };
        server.onHostsDisconnect = [this] { ++hostsDisconnects; };
    }

    void start() {
        server.start();
        queue.runUntilIdle();
        ASSERT_TRUE(server.port());
    }

    std::unique_ptr<TestMainApplication> connect() {
        return std::make_unique<TestMainApplication>(queue, network, *server.port());
    }

    // A main application that has said hello and has answered the snapshot that the server then asks for.
    std::unique_ptr<TestMainApplication> link() {
        start();
        auto main = connect();
        EXPECT_TRUE(main->hello(server.nonce()));
        EXPECT_THAT(main->requestedMethods(), ElementsAre("store.snapshot"));
        main->answer(ClipboardLinkPayload(snapshotOfRevision(1)));
        snapshotChanges = 0;
        hostsChanges = 0;
        return main;
    }

    static std::string codeOf(const TestMainApplication::Outcome& outcome) {
        return outcome ? "success" : outcome.error().code;
    }

    MemoryMainQueue queue;
    MemoryLoopbackTcp network{queue};
    MemorySecureRandom random;
    ClipboardLinkServer server{queue, network, random};
    std::vector<bool> connectionChanges;
    std::vector<bool> applies;
    int snapshotChanges = 0;
    int hostsChanges = 0;
    int hostsDisconnects = 0;
    const ClipboardEntryRef entry{.id = Uuid::random(), .scope = ClipboardScope::history};
};

TEST_F(ClipboardLinkServerTest, KnowsItsPortOnceTheListenerIsReady) {
    EXPECT_FALSE(server.port());
    server.start();
    EXPECT_FALSE(server.port());
    queue.runUntilIdle();
    EXPECT_TRUE(server.port());
}

TEST_F(ClipboardLinkServerTest, ASecondStartOpensNoSecondListener) {
    start();
    server.start();
    queue.runUntilIdle();
    EXPECT_EQ(network.openListeners(), 1U);
}

TEST_F(ClipboardLinkServerTest, StaysWithoutAListenerThatCannotBeMade) {
    network.refuseNextListen();
    server.start();
    queue.advance(10s);
    EXPECT_FALSE(server.port());
    EXPECT_EQ(network.openListeners(), 0U);
}

TEST_F(ClipboardLinkServerTest, OpensAnotherListenerTwoSecondsAfterOneFailed) {
    start();
    network.failListener(*server.port());
    queue.runUntilIdle();
    EXPECT_FALSE(server.port());
    queue.advance(1999ms);
    EXPECT_FALSE(server.port());
    queue.advance(1ms);
    EXPECT_TRUE(server.port());
    EXPECT_EQ(network.openListeners(), 1U);
}

TEST_F(ClipboardLinkServerTest, AListenerThatNeverBecomesReadyIsReplacedToo) {
    network.failNextListener();
    server.start();
    queue.advance(2s);
    EXPECT_TRUE(server.port());
}

TEST_F(ClipboardLinkServerTest, TheNonceIs32BytesInBase64) {
    EXPECT_EQ(server.nonce().size(), 44U);
    EXPECT_EQ(server.nonce().back(), '=');
    EXPECT_EQ(server.nonce().find('\n'), std::string::npos);
}

TEST_F(ClipboardLinkServerTest, WithoutSecretBytesTheNonceStillDiffersEachTime) {
    random.setFails(true);
    std::set<std::string> nonces;
    for (int i = 0; i < 20; ++i)
        nonces.insert(ClipboardLinkServer(queue, network, random).nonce());
    EXPECT_EQ(nonces.size(), 20U);
    EXPECT_EQ(nonces.begin()->size(), 44U);
}

TEST_F(ClipboardLinkServerTest, AcceptsAHelloWithTheNonce) {
    start();
    const auto main = connect();
    const auto outcome = main->hello(server.nonce());
    ASSERT_TRUE(outcome);
    const auto* ack = std::get_if<ClipboardHelloAck>(&outcome->payload);
    ASSERT_NE(ack, nullptr);
    EXPECT_EQ(ack->app, "Vexil Shortcut");
    EXPECT_THAT(ack->features,
                ElementsAre("store.snapshot", "entry.payload", "entry.use", "entry.pin", "entry.favorite", "entry.edit",
                            "entry.editText", "entry.delete", "pasteboard.changed", "hosts.snapshot", "hosts.apply"));
    EXPECT_TRUE(server.isConnected());
    EXPECT_THAT(connectionChanges, ElementsAre(true));
    EXPECT_THAT(main->requestedMethods(), ElementsAre("store.snapshot"));
    EXPECT_EQ(hostsChanges, 1);
}

TEST_F(ClipboardLinkServerTest, MakesANewNonceAfterEveryAcceptedHello) {
    start();
    const std::string first = server.nonce();
    const auto main = connect();
    EXPECT_TRUE(main->hello(first));
    EXPECT_NE(server.nonce(), first);
}

TEST_F(ClipboardLinkServerTest, RefusesAReplayedNonceAndCloses) {
    start();
    const std::string used = server.nonce();
    auto first = connect();
    EXPECT_TRUE(first->hello(used));
    first.reset();
    queue.runUntilIdle();
    const auto second = connect();
    EXPECT_EQ(codeOf(second->hello(used)), "bad_nonce");
    EXPECT_EQ(second->closes, 1);
    EXPECT_FALSE(server.isConnected());
}

TEST_F(ClipboardLinkServerTest, RefusesAReplayedNonceOnTheLinkThatUsedIt) {
    start();
    const std::string used = server.nonce();
    const auto main = connect();
    EXPECT_TRUE(main->hello(used));
    EXPECT_EQ(codeOf(main->hello(used)), "bad_nonce");
    EXPECT_EQ(main->closes, 1);
    EXPECT_THAT(connectionChanges, ElementsAre(true, false));
}

TEST_F(ClipboardLinkServerTest, KeepsTheNonceThatAWrongGuessDidNotHit) {
    start();
    const std::string nonce = server.nonce();
    std::string almost = nonce;
    almost.front() = almost.front() == 'A' ? 'B' : 'A';
    const auto outcome = connect()->hello(almost);
    ASSERT_FALSE(outcome);
    EXPECT_EQ(outcome.error(), (ClipboardLinkError{"bad_nonce", "Nonce rejected"}));
    EXPECT_EQ(server.nonce(), nonce);
}

TEST_F(ClipboardLinkServerTest, AHelloWithoutAPayloadThatItUnderstandsIsABadNonce) {
    start();
    const auto main = connect();
    EXPECT_EQ(codeOf(main->ask(ClipboardLinkMethod::hello, ClipboardLinkEmpty{})), "bad_nonce");
    EXPECT_EQ(main->closes, 1);
}

TEST_F(ClipboardLinkServerTest, RefusesAHelloOfAnotherVersionAndCloses) {
    start();
    const std::string hello =
        R"(,"id":"1","t":"request","m":"hello","p":{"nonce":")" + server.nonce() + R"(","app":"Test","build":"1"}})";
    for (const char* version : {"0", "2", "-1"}) {
        TestRawPeer peer(queue, network, *server.port());
        peer.send(TestRawPeer::frame(1, R"({"v":)" + std::string(version) + hello));
        EXPECT_NE(peer.text().find(R"({"code":"version_mismatch","message":"Protocol version mismatch"})"),
                  std::string::npos)
            << peer.text();
        EXPECT_TRUE(peer.hasEnded());
    }
    EXPECT_FALSE(server.isConnected());
    TestRawPeer peer(queue, network, *server.port());
    peer.send(TestRawPeer::frame(1, R"({"v":1)" + hello));
    EXPECT_TRUE(server.isConnected()) << "the nonce is still good";
}

TEST_F(ClipboardLinkServerTest, LooksAtTheVersionOfAHelloOnly) {
    start();
    TestRawPeer peer(queue, network, *server.port());
    peer.send(TestRawPeer::frame(1, R"({"v":1,"id":"1","t":"request","m":"hello","p":{"nonce":")" + server.nonce() +
                                        R"(","app":"Test","build":"1"}})"));
    hostsChanges = 0;
    peer.send(TestRawPeer::frame(1, R"({"v":7,"id":"2","t":"event","m":"hosts.changed"})"));
    EXPECT_EQ(hostsChanges, 1);
    peer.send(TestRawPeer::frame(1, R"({"v":7,"id":"3","t":"request","m":"store.snapshot"})"));
    EXPECT_NE(peer.text().find("unknown_message"), std::string::npos);
    EXPECT_FALSE(peer.hasEnded());
}

TEST_F(ClipboardLinkServerTest, APeerThatDiesInAnyStateLeavesRoomForTheNext) {
    start();
    const std::string hello = R"({"v":1,"id":"1","t":"request","m":"hello","p":{"nonce":")" + server.nonce() +
                              R"(","app":"Test","build":"1"}})";
    const Bytes whole = TestRawPeer::frame(1, hello);
    for (std::size_t sent = 0; sent < whole.size(); ++sent) {
        TestRawPeer peer(queue, network, *server.port());
        peer.send(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(sent)));
        peer.end();
    }
    EXPECT_THAT(connectionChanges, IsEmpty());
    EXPECT_TRUE(link()->requests.empty());
    EXPECT_THAT(connectionChanges, ElementsAre(true));
    queue.runUntilIdle();
    EXPECT_THAT(connectionChanges, ElementsAre(true, false));
}

TEST_F(ClipboardLinkServerTest, NothingIsAcceptedAfterARefusal) {
    start();
    const auto main = connect();
    main->connection().sendRequest(ClipboardLinkMethod::hello, ClipboardHello{"wrong", "Test", "1"});
    main->connection().sendRequest(ClipboardLinkMethod::hello, ClipboardHello{server.nonce(), "Test", "1"});
    queue.runUntilIdle();
    EXPECT_THAT(connectionChanges, IsEmpty());
    EXPECT_EQ(main->closes, 1);
}

TEST_F(ClipboardLinkServerTest, ARefusedPeerThatDoesNotReadIsClosedAllTheSame) {
    network.setFaultsOfNew(MemoryLoopbackTcp::Way::toConnector, {.window = 0});
    start();
    const auto main = connect();
    EXPECT_EQ(codeOf(main->hello("wrong")), "unanswered");
    EXPECT_EQ(main->closes, 0);
    queue.advance(3s);
    EXPECT_EQ(main->closes, 1);
}

TEST_F(ClipboardLinkServerTest, AnotherHelloWithTheCurrentNonceIsAcceptedOnAnAuthenticatedLink) {
    const auto main = link();
    const std::string nonce = server.nonce();
    EXPECT_TRUE(main->hello(nonce));
    EXPECT_NE(server.nonce(), nonce);
    EXPECT_THAT(connectionChanges, ElementsAre(true));
    EXPECT_EQ(hostsChanges, 1);
    EXPECT_THAT(main->requestedMethods(), ElementsAre("store.snapshot"));
}

TEST_F(ClipboardLinkServerTest, ASecondConnectionIsClosedAtOnceBeforeAndAfterTheFirstSaysHello) {
    start();
    const auto first = connect();
    EXPECT_EQ(connect()->closes, 1);
    EXPECT_TRUE(first->hello(server.nonce()));
    EXPECT_EQ(connect()->closes, 1);
    EXPECT_EQ(first->closes, 0);
}

TEST_F(ClipboardLinkServerTest, ASilentConnectionIsClosedAfterThreeSeconds) {
    start();
    const auto main = connect();
    queue.advance(2999ms);
    EXPECT_EQ(main->closes, 0);
    queue.advance(1ms);
    EXPECT_EQ(main->closes, 1);
    EXPECT_EQ(hostsDisconnects, 1);
    EXPECT_EQ(connect()->closes, 0) << "the next one is let in";
}

TEST_F(ClipboardLinkServerTest, AnyOtherRequestGetsUnknownMessageAndDoesNotHelpAgainstTheDeadline) {
    start();
    const auto main = connect();
    const auto outcome = main->ask(ClipboardLinkMethod::storeSnapshot, ClipboardLinkEmpty{});
    ASSERT_FALSE(outcome);
    EXPECT_EQ(outcome.error(), (ClipboardLinkError{"unknown_message", "Unknown message"}));
    EXPECT_EQ(main->closes, 0);
    queue.advance(3s);
    EXPECT_EQ(main->closes, 1);
}

TEST_F(ClipboardLinkServerTest, TheHelloDeadlineOfAnEarlierConnectionDoesNotHitTheNext) {
    start();
    auto first = connect();
    queue.advance(2s);
    first.reset();
    queue.runUntilIdle();
    const auto second = connect();
    queue.advance(2s);
    EXPECT_EQ(second->closes, 0);
    queue.advance(1s);
    EXPECT_EQ(second->closes, 1);
}

TEST_F(ClipboardLinkServerTest, AnAuthenticatedLinkHasNoDeadline) {
    const auto main = link();
    queue.advance(60s);
    EXPECT_EQ(main->closes, 0);
}

TEST_F(ClipboardLinkServerTest, EventsBeforeHelloAreIgnored) {
    start();
    const auto main = connect();
    main->tell(ClipboardLinkMethod::hostsChanged);
    main->tell(ClipboardLinkMethod::hostsApply, HostsApplyCommand{.removeAll = true});
    EXPECT_EQ(hostsChanges, 0);
    EXPECT_THAT(applies, IsEmpty());
}

TEST_F(ClipboardLinkServerTest, PassesHostsEventsOn) {
    const auto main = link();
    main->tell(ClipboardLinkMethod::hostsChanged);
    EXPECT_EQ(hostsChanges, 1);
    main->tell(ClipboardLinkMethod::hostsApply, HostsApplyCommand{.removeAll = true});
    main->tell(ClipboardLinkMethod::hostsApply);
    main->tell(ClipboardLinkMethod::hostsApply, ClipboardLinkEmpty{});
    EXPECT_THAT(applies, ElementsAre(true));
}

TEST_F(ClipboardLinkServerTest, StoreChangedAloneFetchesNothing) {
    const auto main = link();
    main->tell(ClipboardLinkMethod::storeChanged);
    EXPECT_THAT(main->requestedMethods(), IsEmpty());
    EXPECT_TRUE(server.isSnapshotStale());
    EXPECT_NE(server.snapshot(), nullptr);
    server.refreshSnapshot(false);
    queue.runUntilIdle();
    EXPECT_THAT(main->requestedMethods(), ElementsAre("store.snapshot"));
}

TEST_F(ClipboardLinkServerTest, AFreshSnapshotIsNotFetchedAgainUnlessForced) {
    const auto main = link();
    int completions = 0;
    server.refreshSnapshot(false, [&] { ++completions; });
    EXPECT_EQ(completions, 1);
    queue.runUntilIdle();
    EXPECT_THAT(main->requestedMethods(), IsEmpty());
    server.refreshSnapshot(true, [&] { ++completions; });
    queue.runUntilIdle();
    EXPECT_EQ(completions, 1);
    main->answer(ClipboardLinkPayload(snapshotOfRevision(2)));
    EXPECT_EQ(completions, 2);
    EXPECT_EQ(server.snapshot()->revision, 2);
    EXPECT_EQ(snapshotChanges, 1);
    EXPECT_FALSE(server.isSnapshotStale());
}

TEST_F(ClipboardLinkServerTest, ASecondRefreshDoesNotWaitForTheOneInFlight) {
    const auto main = link();
    server.refreshSnapshot(true);
    int completions = 0;
    server.refreshSnapshot(true, [&] { ++completions; });
    EXPECT_EQ(completions, 1);
    queue.runUntilIdle();
    EXPECT_EQ(main->requests.size(), 1U);
}

TEST_F(ClipboardLinkServerTest, AFailedOrUnintelligibleSnapshotChangesNothingButCompletes) {
    const auto main = link();
    main->tell(ClipboardLinkMethod::storeChanged);
    int completions = 0;
    for (int round = 0; round < 2; ++round) {
        server.refreshSnapshot(false, [&] { ++completions; });
        queue.runUntilIdle();
        if (round == 0)
            main->answer(Failure{ClipboardLinkError{"busy", "Not now"}});
        else
            main->answer(ClipboardLinkPayload(ClipboardLinkEmpty{}));
    }
    EXPECT_EQ(completions, 2);
    EXPECT_EQ(server.snapshot()->revision, 1);
    EXPECT_TRUE(server.isSnapshotStale());
    EXPECT_EQ(snapshotChanges, 0);
}

TEST_F(ClipboardLinkServerTest, ARefreshWithoutALinkCompletesAtOnce) {
    int completions = 0;
    server.refreshSnapshot(true, [&] { ++completions; });
    EXPECT_EQ(completions, 1);
}

TEST_F(ClipboardLinkServerTest, LosingTheLinkDropsEverythingThatCameWithIt) {
    auto main = link();
    int completions = 0;
    server.refreshSnapshot(true, [&] { ++completions; });
    main.reset();
    queue.runUntilIdle();
    EXPECT_EQ(completions, 1);
    EXPECT_FALSE(server.isConnected());
    EXPECT_EQ(server.snapshot(), nullptr);
    EXPECT_TRUE(server.isSnapshotStale());
    EXPECT_THAT(connectionChanges, ElementsAre(true, false));
    EXPECT_EQ(snapshotChanges, 1);
    EXPECT_EQ(hostsDisconnects, 1);
}

TEST_F(ClipboardLinkServerTest, AfterALossInMidRefreshTheNextLinkIsRefreshedAgain) {
    auto main = link();
    server.refreshSnapshot(true);
    queue.runUntilIdle();
    main.reset();
    queue.runUntilIdle();
    const auto next = connect();
    EXPECT_TRUE(next->hello(server.nonce()));
    EXPECT_THAT(next->requestedMethods(), ElementsAre("store.snapshot"));
}

TEST_F(ClipboardLinkServerTest, EntryActionsBecomeTheirMessages) {
    const auto main = link();
    const Uuid category = Uuid::random();
    server.useEntry(entry);
    server.pinEntry(entry.id, true);
    server.favoriteEntry(entry.id, ClipboardScope::favorites, true, category);
    server.deleteEntry(entry);
    queue.runUntilIdle();
    ASSERT_THAT(main->requestedMethods(), ElementsAre("entry.use", "entry.pin", "entry.favorite", "entry.delete"));
    EXPECT_EQ(std::get<ClipboardEntryRef>(main->requests[0].payload), entry);
    EXPECT_EQ(std::get<ClipboardPinRequest>(main->requests[1].payload), (ClipboardPinRequest{entry.id, true}));
    EXPECT_EQ(std::get<ClipboardFavoriteRequest>(main->requests[2].payload),
              (ClipboardFavoriteRequest{entry.id, ClipboardScope::favorites, true, category}));
    EXPECT_EQ(std::get<ClipboardEntryRef>(main->requests[3].payload), entry);
}

TEST_F(ClipboardLinkServerTest, ASuccessfulEntryActionFetchesNothing) {
    const auto main = link();
    server.pinEntry(entry.id, true);
    queue.runUntilIdle();
    main->answer(ClipboardLinkPayload());
    EXPECT_THAT(main->requestedMethods(), IsEmpty());
}

TEST_F(ClipboardLinkServerTest, AFailedEntryActionFetchesTheSnapshotOnce) {
    const auto main = link();
    server.pinEntry(entry.id, true);
    server.useEntry(entry);
    queue.runUntilIdle();
    main->answer(Failure{ClipboardLinkError{"not_found", "No such entry"}});
    main->answer(Failure{ClipboardLinkError{"not_found", "No such entry"}});
    EXPECT_THAT(main->requestedMethods(), ElementsAre("store.snapshot"));
}

TEST_F(ClipboardLinkServerTest, AnEntryActionThatIsNeverAnsweredFetchesTheSnapshotToo) {
    const auto main = link();
    server.deleteEntry(entry);
    queue.advance(5s);
    EXPECT_THAT(main->requestedMethods(), ElementsAre("entry.delete", "store.snapshot"));
}

TEST_F(ClipboardLinkServerTest, AnEntryActionThatFailsWithTheLinkLeavesNothingBehind) {
    auto main = link();
    server.pinEntry(entry.id, true);
    main.reset();
    queue.advance(10s);
    const auto next = connect();
    EXPECT_TRUE(next->hello(server.nonce()));
    EXPECT_THAT(next->requestedMethods(), ElementsAre("store.snapshot"));
}

TEST_F(ClipboardLinkServerTest, FetchesAnEntrysContent) {
    const auto main = link();
    std::optional<Result<ClipboardLinkServer::EntryContent, ClipboardLinkError>> content;
    server.fetchPayload(entry, [&](auto result) { content = std::move(result); });
    queue.runUntilIdle();
    const Bytes jpeg{1, 2, 3};
    main->answer(ClipboardLinkPayload(ClipboardEntryPayload{ClipboardKind::image, std::nullopt, true}), jpeg);
    ASSERT_TRUE(content && *content);
    EXPECT_EQ((*content)->payload.kind, ClipboardKind::image);
    EXPECT_EQ((*content)->attachment, jpeg);
}

TEST_F(ClipboardLinkServerTest, AContentThatIsNotUnderstoodIsNotFoundAndAnErrorIsPassedOn) {
    const auto main = link();
    std::vector<ClipboardLinkError> errors;
    const auto fetch = [&] {
        server.fetchPayload(entry, [&](auto result) { errors.push_back(result.error()); });
        queue.runUntilIdle();
    };
    fetch();
    main->answer(ClipboardLinkPayload(ClipboardLinkEmpty{}));
    fetch();
    main->answer(ClipboardLinkPayload());
    fetch();
    main->answer(Failure{ClipboardLinkError{"gone", "It went away"}});
    fetch();
    main->connection().close();
    queue.runUntilIdle();
    fetch();
    EXPECT_THAT(errors,
                ElementsAre(ClipboardLinkError{"not_found", "No such entry"},
                            ClipboardLinkError{"not_found", "No such entry"},
                            ClipboardLinkError{"gone", "It went away"}, ClipboardLinkError{"closed", "Link closed"},
                            ClipboardLinkError{"closed", "Link closed"}));
}

TEST_F(ClipboardLinkServerTest, EditsWithTheMessageThatFits) {
    const auto main = link();
    int successes = 0;
    const auto succeeded = [&](const auto& result) { successes += result ? 1 : 0; };
    server.editEntry({entry.id, entry.scope, "alias", std::nullopt, std::nullopt}, succeeded);
    server.editEntry({entry.id, entry.scope, std::nullopt, std::nullopt, "text"}, succeeded);
    queue.runUntilIdle();
    EXPECT_THAT(main->requestedMethods(), ElementsAre("entry.edit", "entry.editText"));
    main->answer(ClipboardLinkPayload());
    main->answer(ClipboardLinkPayload());
    EXPECT_EQ(successes, 2);
}

TEST_F(ClipboardLinkServerTest, SaysThatAnOldMainApplicationCannotEditTexts) {
    const auto main = link();
    std::vector<ClipboardLinkError> errors;
    const auto failed = [&](const auto& result) { errors.push_back(result.error()); };
    const ClipboardLinkError unknown{"unknown_message", "Unknown message"};
    server.editEntry({entry.id, entry.scope, std::nullopt, std::nullopt, "text"}, failed);
    server.editEntry({entry.id, entry.scope, "alias", std::nullopt, std::nullopt}, failed);
    server.editEntry({entry.id, entry.scope, std::nullopt, std::nullopt, "text"}, failed);
    queue.runUntilIdle();
    main->answer(Failure{unknown});
    main->answer(Failure{unknown});
    main->answer(Failure{ClipboardLinkError{"not_found", "No such entry"}});
    EXPECT_THAT(errors, ElementsAre(ClipboardLinkError{"unknown_message", "Update Vexil to edit clipboard content."},
                                    unknown, ClipboardLinkError{"not_found", "No such entry"}));
    EXPECT_THAT(main->requestedMethods(), IsEmpty()) << "a failed edit is shown, not repaired";
}

TEST_F(ClipboardLinkServerTest, PublishesTextsAndImages) {
    const auto main = link();
    server.publishPasteboardChange(ClipboardKind::text, "copied", std::nullopt);
    server.publishPasteboardChange(ClipboardKind::image, std::nullopt, Bytes{9, 8});
    server.publishPasteboardChange(ClipboardKind::image, std::nullopt, std::nullopt);
    queue.runUntilIdle();
    ASSERT_EQ(main->events.size(), 3U);
    EXPECT_EQ(std::get<ClipboardPasteboardChange>(main->events[0].payload),
              (ClipboardPasteboardChange{ClipboardKind::text, "copied", false}));
    EXPECT_EQ(std::get<ClipboardPasteboardChange>(main->events[1].payload),
              (ClipboardPasteboardChange{ClipboardKind::image, std::nullopt, true}));
    EXPECT_EQ(main->events[1].attachment, (Bytes{9, 8}));
    EXPECT_EQ(std::get<ClipboardPasteboardChange>(main->events[2].payload),
              (ClipboardPasteboardChange{ClipboardKind::image, std::nullopt, false}));
    EXPECT_EQ(main->events[2].attachment, std::nullopt);
}

TEST_F(ClipboardLinkServerTest, AttachesAnImageOfTwelveMebibytesButNotOneByteMore) {
    const auto main = link();
    server.publishPasteboardChange(ClipboardKind::image, std::nullopt, Bytes(12'582'912, 7));
    server.publishPasteboardChange(ClipboardKind::image, std::nullopt, Bytes(12'582'913, 7));
    queue.runUntilIdle();
    ASSERT_EQ(main->events.size(), 2U);
    ASSERT_TRUE(main->events[0].attachment);
    EXPECT_EQ(main->events[0].attachment->size(), 12'582'912U);
    EXPECT_FALSE(main->events[1].attachment);
    EXPECT_FALSE(std::get<ClipboardPasteboardChange>(main->events[1].payload).hasAttachment);
}

TEST_F(ClipboardLinkServerTest, PublishesNothingBeforeHello) {
    start();
    const auto main = connect();
    server.publishPasteboardChange(ClipboardKind::text, "copied", std::nullopt);
    server.sendShortcutState(true);
    server.sendHostsState({});
    queue.runUntilIdle();
    EXPECT_THAT(main->events, IsEmpty());
}

TEST_F(ClipboardLinkServerTest, FetchesTheHostsSnapshotOrNothing) {
    std::vector<std::optional<HostsSnapshot>> received;
    const auto fetch = [&] {
        server.fetchHostsSnapshot([&](auto snapshot) { received.push_back(std::move(snapshot)); });
        queue.runUntilIdle();
    };
    fetch();
    const auto main = link();
    const HostsSnapshot hosts{.revision = 4, .profiles = {}};
    fetch();
    main->answer(ClipboardLinkPayload(hosts));
    fetch();
    main->answer(ClipboardLinkPayload(ClipboardLinkEmpty{}));
    fetch();
    main->answer(Failure{ClipboardLinkError{"busy", "Not now"}});
    EXPECT_THAT(received, ElementsAre(std::nullopt, hosts, std::nullopt, std::nullopt));
}

TEST_F(ClipboardLinkServerTest, SendsHostsAndShortcutState) {
    const auto main = link();
    HostsCompanionState state{};
    state.lastError = "no";
    server.sendHostsState(state);
    server.sendShortcutState(true);
    queue.runUntilIdle();
    ASSERT_EQ(main->events.size(), 2U);
    EXPECT_EQ(main->events[0].header.m, "hosts.state");
    EXPECT_EQ(std::get<HostsCompanionState>(main->events[0].payload), state);
    EXPECT_EQ(std::get<ClipboardShortcutState>(main->events[1].payload), (ClipboardShortcutState{true}));
}

TEST_F(ClipboardLinkServerTest, AFloodOfHellosIsAnsweredOneByOneAndKeepsOneLink) {
    start();
    const auto main = connect();
    for (int i = 0; i < 5000; ++i)
        main->connection().sendRequest(ClipboardLinkMethod::hello, ClipboardHello{server.nonce(), "Test", "1"});
    queue.runUntilIdle();
    // The first uses the nonce up, the second replays it.
    EXPECT_THAT(connectionChanges, ElementsAre(true, false));
    EXPECT_EQ(main->closes, 1);
    EXPECT_EQ(connect()->closes, 0);
}

} // namespace
} // namespace vexil
