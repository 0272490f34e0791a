// SPDX-License-Identifier: Apache-2.0
#include "link/clipboard_link_connection.h"
#include "link/test_raw_peer.h"
#include "platform/memory/memory_loopback_tcp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Message = ClipboardLinkConnection::Message;
using Outcome = Result<Message, ClipboardLinkError>;

// One end is the connection under test; the other is a bare stream that a test writes bytes to, or a second connection.
class ClipboardLinkConnectionTest : public testing::Test {
protected:
    ClipboardLinkConnectionTest() {
        LoopbackTcp::ListenerEvents events;
        events.onReady = [this](std::uint16_t ready) { port = ready; };
        events.onFailed = [] { FAIL() << "the listener failed"; };
        events.onConnection = [this](std::unique_ptr<TcpStream> stream) { accepted = std::move(stream); };
        listener = network.listen(std::move(events));
        queue.runUntilIdle();
    }

    void open() {
        peer.emplace(queue, network, port);
        ASSERT_TRUE(accepted);
        connection.emplace(queue, network, std::move(accepted));
        connection->onReady = [this] { ++readies; };
        connection->onRequest = [this](Message message) { requests.push_back(std::move(message)); };
        connection->onEvent = [this](Message message) { events_.push_back(std::move(message)); };
        connection->onClose = [this] { ++closes; };
        connection->start();
        queue.runUntilIdle();
    }

    static Bytes frame(std::uint8_t type, std::string_view body) { return TestRawPeer::frame(type, body); }
    static Bytes envelope(std::string_view kind, std::string_view id, std::string_view method = "store.changed") {
        return TestRawPeer::envelope(kind, id, method);
    }
    void peerSends(Bytes bytes) { peer->send(std::move(bytes)); }
    // What the connection has written so far.
    std::string written() const { return peer->text(); }

    std::string request(std::vector<Outcome>& outcomes) {
        const auto id = connection->sendRequest(
            ClipboardLinkMethod::entryUse, ClipboardEntryRef{.id = Uuid(), .scope = ClipboardScope::history},
            std::nullopt, [&outcomes](Outcome outcome) { outcomes.push_back(std::move(outcome)); });
        queue.runUntilIdle();
        return id;
    }

    static const ClipboardLinkError closed;
    static const ClipboardLinkError timeout;

    MemoryMainQueue queue;
    MemoryLoopbackTcp network{queue};
    std::uint16_t port = 0;
    std::unique_ptr<TcpListener> listener;
    std::unique_ptr<TcpStream> accepted;
    std::optional<TestRawPeer> peer;
    std::optional<ClipboardLinkConnection> connection;
    std::vector<Message> requests;
    std::vector<Message> events_;
    int readies = 0;
    int closes = 0;
};

const ClipboardLinkError ClipboardLinkConnectionTest::closed{"closed", "Link closed"};
const ClipboardLinkError ClipboardLinkConnectionTest::timeout{"timeout", "No response"};

TEST_F(ClipboardLinkConnectionTest, SaysOnceThatItIsReady) {
    open();
    EXPECT_EQ(readies, 1);
}

TEST_F(ClipboardLinkConnectionTest, DeliversRequestsAndEventsInOrder) {
    open();
    Bytes both = envelope("request", "a", "hello");
    const Bytes second = envelope("event", "b");
    both.insert(both.end(), second.begin(), second.end());
    peerSends(both);
    ASSERT_THAT(requests, SizeIs(1));
    ASSERT_THAT(events_, SizeIs(1));
    EXPECT_EQ(requests[0].header.id, "a");
    EXPECT_EQ(events_[0].header.m, "store.changed");
}

TEST_F(ClipboardLinkConnectionTest, AssemblesAFrameThatIsCutAnywhere) {
    open();
    const Bytes whole = envelope("event", "cut");
    for (std::size_t cut = 1; cut < whole.size(); ++cut) {
        events_.clear();
        peerSends(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut)));
        EXPECT_THAT(events_, IsEmpty()) << cut;
        peerSends(Bytes(whole.begin() + static_cast<std::ptrdiff_t>(cut), whole.end()));
        EXPECT_THAT(events_, SizeIs(1)) << cut;
    }
}

TEST_F(ClipboardLinkConnectionTest, JoinsAnAttachmentToItsEnvelopeAndTheLaterOneWins) {
    open();
    const std::string id = Uuid::random().toString();
    peerSends(frame(2, id + "first"));
    peerSends(frame(2, id + "second"));
    peerSends(envelope("event", id));
    peerSends(envelope("event", id));
    ASSERT_THAT(events_, SizeIs(2));
    EXPECT_EQ(events_[0].attachment, copyOf(bytesOf("second")));
    EXPECT_EQ(events_[1].attachment, std::nullopt);
}

TEST_F(ClipboardLinkConnectionTest, ALengthOutOfRangeClosesAtOnce) {
    for (const Bytes& length : {Bytes{0, 0, 0, 0, 1}, Bytes{1, 0, 0, 1, 1}, Bytes{255, 255, 255, 255, 1}}) {
        closes = 0;
        open();
        peerSends(length);
        EXPECT_EQ(closes, 1);
        EXPECT_TRUE(connection->isClosed());
        EXPECT_THAT(written(), IsEmpty());
    }
}

TEST_F(ClipboardLinkConnectionTest, DropsWhatItDoesNotUnderstandAndGoesOn) {
    open();
    peerSends(frame(1, ""));
    peerSends(frame(1, "{"));
    peerSends(frame(1, R"({"v":1,"id":"x","t":"question","m":"hello"})"));
    peerSends(frame(2, "short"));
    peerSends(frame(2, std::string(36, '\xff')));
    peerSends(frame(9, "of a later version"));
    peerSends(envelope("event", "after"));
    EXPECT_EQ(closes, 0);
    ASSERT_THAT(events_, SizeIs(1));
    EXPECT_EQ(events_[0].header.id, "after");
}

TEST_F(ClipboardLinkConnectionTest, MatchesAResponseToItsRequest) {
    open();
    std::vector<Outcome> first;
    std::vector<Outcome> second;
    const auto firstId = request(first);
    const auto secondId = request(second);
    EXPECT_NE(firstId, secondId);
    EXPECT_NE(written().find("\"id\":\"" + firstId + "\",\"t\":\"request\",\"m\":\"entry.use\""), std::string::npos);
    peerSends(envelope("response", secondId, "entry.use"));
    EXPECT_THAT(first, IsEmpty());
    ASSERT_THAT(second, SizeIs(1));
    EXPECT_TRUE(second[0]);
    peerSends(frame(1, R"({"v":1,"id":")" + firstId +
                           R"(","t":"response","m":"entry.use","e":{"code":"not_found","message":"No"}})"));
    ASSERT_THAT(first, SizeIs(1));
    EXPECT_EQ(first[0].error(), (ClipboardLinkError{"not_found", "No"}));
}

TEST_F(ClipboardLinkConnectionTest, ASecondOrUnaskedResponseIsDropped) {
    open();
    std::vector<Outcome> outcomes;
    const auto id = request(outcomes);
    peerSends(envelope("response", id));
    peerSends(envelope("response", id));
    peerSends(envelope("response", "nobody"));
    EXPECT_THAT(outcomes, SizeIs(1));
    EXPECT_EQ(closes, 0);
}

TEST_F(ClipboardLinkConnectionTest, ARequestTimesOutAfterFiveSecondsAndALateResponseIsIgnored) {
    open();
    std::vector<Outcome> outcomes;
    const auto id = request(outcomes);
    queue.advance(4999ms);
    EXPECT_THAT(outcomes, IsEmpty());
    queue.advance(1ms);
    ASSERT_THAT(outcomes, SizeIs(1));
    EXPECT_EQ(outcomes[0].error(), timeout);
    peerSends(envelope("response", id));
    EXPECT_THAT(outcomes, SizeIs(1));
    EXPECT_EQ(closes, 0);
}

TEST_F(ClipboardLinkConnectionTest, ARequestWithoutACompletionHasNoTimer) {
    open();
    connection->sendRequest(ClipboardLinkMethod::entryUse, ClipboardEntryRef{});
    EXPECT_EQ(queue.armedTimers(), 0U);
    std::vector<Outcome> outcomes;
    const auto id = request(outcomes);
    EXPECT_EQ(queue.armedTimers(), 1U);
    peerSends(envelope("response", id));
    EXPECT_EQ(queue.armedTimers(), 0U);
}

TEST_F(ClipboardLinkConnectionTest, ClosingTwiceTellsEveryoneOnce) {
    open();
    std::vector<Outcome> outcomes;
    request(outcomes);
    request(outcomes);
    connection->close();
    connection->close();
    queue.runUntilIdle();
    ASSERT_THAT(outcomes, SizeIs(2));
    EXPECT_EQ(outcomes[0].error(), closed);
    EXPECT_EQ(outcomes[1].error(), closed);
    EXPECT_EQ(closes, 1);
    EXPECT_EQ(queue.armedTimers(), 0U);
}

TEST_F(ClipboardLinkConnectionTest, TheEndOfTheStreamClosesAndFailsWhatIsPending) {
    open();
    std::vector<Outcome> outcomes;
    request(outcomes);
    peer->end();
    ASSERT_THAT(outcomes, SizeIs(1));
    EXPECT_EQ(outcomes[0].error(), closed);
    EXPECT_EQ(closes, 1);
}

TEST_F(ClipboardLinkConnectionTest, ARequestOnAClosedLinkFailsInALaterTurn) {
    open();
    connection->close();
    std::vector<Outcome> outcomes;
    connection->sendRequest(ClipboardLinkMethod::entryUse, ClipboardEntryRef{}, std::nullopt,
                            [&](Outcome outcome) { outcomes.push_back(std::move(outcome)); });
    EXPECT_THAT(outcomes, IsEmpty());
    queue.runUntilIdle();
    ASSERT_THAT(outcomes, SizeIs(1));
    EXPECT_EQ(outcomes[0].error(), closed);
    EXPECT_EQ(queue.armedTimers(), 0U);
}

TEST_F(ClipboardLinkConnectionTest, WhatIsOnItsWayWhenTheLinkClosesIsDropped) {
    open();
    peer->queueSend(envelope("event", "on its way"));
    while (network.queue().runOne()) {
    }
    connection->close();
    queue.runUntilIdle();
    EXPECT_THAT(events_, IsEmpty());
    EXPECT_EQ(closes, 1);
}

TEST_F(ClipboardLinkConnectionTest, NothingFollowsAnEventWhoseCallbackClosed) {
    open();
    Bytes bytes = envelope("event", "kept");
    const Bytes more = envelope("event", "dropped");
    bytes.insert(bytes.end(), more.begin(), more.end());
    connection->onEvent = [this](Message message) {
        events_.push_back(std::move(message));
        connection->close();
    };
    peerSends(bytes);
    ASSERT_THAT(events_, SizeIs(1));
    EXPECT_EQ(events_[0].header.id, "kept");
}

TEST_F(ClipboardLinkConnectionTest, OnCloseMayDestroyTheConnection) {
    open();
    std::vector<Outcome> outcomes;
    request(outcomes);
    connection->onClose = [this] {
        ++closes;
        connection.reset();
    };
    peer->end();
    EXPECT_EQ(closes, 1);
    EXPECT_THAT(outcomes, SizeIs(1));
}

TEST_F(ClipboardLinkConnectionTest, ACallbackMayCloseALinkThatIsDestroyedForIt) {
    open();
    auto alive = std::make_shared<int>(0);
    connection->onClose = [this] { connection.reset(); };
    connection->onEvent = [this, alive](const Message&) {
        connection->close();
        ++*alive; // what the callback holds is still there
    };
    peerSends(envelope("event", "last"));
    EXPECT_FALSE(connection);
    EXPECT_EQ(*alive, 1);
    EXPECT_EQ(alive.use_count(), 1);
}

TEST_F(ClipboardLinkConnectionTest, ARequestWithAnEndlessIdIsAnsweredOnTheNetworksQueue) {
    open();
    const std::string id(1U << 20U, 'i');
    connection->onRequest = [this](const Message& request) {
        connection->respond(request, ClipboardLinkPayload());
        EXPECT_THAT(written(), IsEmpty());
    };
    peerSends(envelope("request", id));
    EXPECT_NE(written().find(id), std::string::npos);
}

TEST_F(ClipboardLinkConnectionTest, NothingIsDeliveredOnceItIsDestroyed) {
    open();
    std::vector<Outcome> outcomes;
    request(outcomes);
    peerSends(envelope("event", "seen"));
    connection.reset();
    peerSends(envelope("event", "unseen"));
    queue.advance(10s);
    EXPECT_THAT(events_, SizeIs(1));
    EXPECT_THAT(outcomes, IsEmpty());
    EXPECT_EQ(closes, 0);
}

TEST_F(ClipboardLinkConnectionTest, AResponseRepeatsIdAndMethodAndTellsWhenItIsWritten) {
    open();
    peerSends(envelope("request", "7", "some.day"));
    ASSERT_THAT(requests, SizeIs(1));
    int writes = 0;
    connection->respond(requests[0], Failure{ClipboardLinkError{"unknown_message", "Unknown message"}}, std::nullopt,
                        [&] { ++writes; });
    queue.runUntilIdle();
    EXPECT_EQ(writes, 1);
    EXPECT_NE(written().find(R"("id":"7","t":"response","m":"some.day")"), std::string::npos) << written();
    EXPECT_NE(written().find(R"("code":"unknown_message")"), std::string::npos);
}

TEST_F(ClipboardLinkConnectionTest, AnAttachmentGoesRightBeforeItsEnvelope) {
    open();
    connection->sendEvent(ClipboardLinkMethod::pasteboardChanged,
                          ClipboardPasteboardChange{ClipboardKind::image, std::nullopt, true}, Bytes{'J', 'P'});
    queue.runUntilIdle();
    const Bytes& bytes = peer->received();
    ASSERT_GT(bytes.size(), 43U + 5U);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 5), (Bytes{0, 0, 0, 39, 2}));
    const std::string id = written().substr(5, 36);
    EXPECT_EQ(written().substr(41, 2), "JP");
    EXPECT_EQ(bytes[47], 1);
    EXPECT_NE(written().find("\"id\":\"" + id + "\"", 48), std::string::npos);
}

TEST_F(ClipboardLinkConnectionTest, StagedAttachmentsPastTheBoundCloseTheLink) {
    open();
    const std::string big(4U << 20, 'x');
    for (int i = 0; i < 16 && closes == 0; ++i) {
        EXPECT_EQ(closes, 0) << i;
        peerSends(frame(2, Uuid::random().toString() + big));
    }
    EXPECT_EQ(closes, 1) << "64 MiB and the ids are more than the bound";
}

TEST_F(ClipboardLinkConnectionTest, TenThousandSmallAttachmentsWithoutEnvelopesStayStaged) {
    open();
    Bytes flood;
    std::string last;
    for (int i = 0; i < 10'000; ++i) {
        last = Uuid::random().toString();
        const Bytes one = frame(2, last + "x");
        flood.insert(flood.end(), one.begin(), one.end());
    }
    peerSends(flood);
    EXPECT_EQ(closes, 0);
    peerSends(envelope("event", last));
    ASSERT_THAT(events_, SizeIs(1));
    EXPECT_EQ(events_[0].attachment, copyOf(bytesOf("x")));
}

TEST_F(ClipboardLinkConnectionTest, APeerThatDoesNotReadIsDroppedPastTheBound) {
    network.setFaultsOfNew(MemoryLoopbackTcp::Way::toConnector, {.window = 0});
    open();
    for (int i = 0; i < 5; ++i) {
        connection->sendEvent(ClipboardLinkMethod::pasteboardChanged,
                              ClipboardPasteboardChange{ClipboardKind::image, std::nullopt, true}, Bytes(12U << 20));
        queue.runUntilIdle();
        EXPECT_EQ(closes, 0) << i;
    }
    connection->sendEvent(ClipboardLinkMethod::pasteboardChanged,
                          ClipboardPasteboardChange{ClipboardKind::image, std::nullopt, true}, Bytes(12U << 20));
    queue.runUntilIdle();
    EXPECT_EQ(closes, 1);
}

TEST_F(ClipboardLinkConnectionTest, ABusyMainQueueMakesThePeerWait) {
    open();
    Bytes flood;
    for (int i = 0; i < 20'000; ++i) {
        const Bytes one = envelope("event", "flood");
        flood.insert(flood.end(), one.begin(), one.end());
    }
    peer->queueSend(std::move(flood));
    // Only the link works; the main queue is busy elsewhere.
    while (network.queue().runOne()) {
    }
    EXPECT_THAT(events_, IsEmpty());
    EXPECT_LT(network.carried(0, MemoryLoopbackTcp::Way::toListener), 600'000U);
    queue.runUntilIdle();
    EXPECT_THAT(events_, SizeIs(20'000));
}

TEST_F(ClipboardLinkConnectionTest, AMessageThatNoFrameHoldsFailsItsRequestAndTheLinkGoesOn) {
    open();
    std::vector<Outcome> outcomes;
    connection->sendRequest(ClipboardLinkMethod::entryEditText,
                            ClipboardEditRequest{.id = Uuid(),
                                                 .scope = ClipboardScope::history,
                                                 .alias = std::nullopt,
                                                 .categoryID = std::nullopt,
                                                 .text = std::string(17U << 20, 'x')},
                            std::nullopt, [&](Outcome outcome) { outcomes.push_back(std::move(outcome)); });
    queue.runUntilIdle();
    ASSERT_THAT(outcomes, SizeIs(1));
    EXPECT_EQ(outcomes[0].error(), (ClipboardLinkError{"too_large", "Message too large"}));
    EXPECT_EQ(closes, 0);
    EXPECT_THAT(written(), IsEmpty());
}

TEST_F(ClipboardLinkConnectionTest, AResponseThatNoFrameHoldsBecomesAnError) {
    open();
    peerSends(envelope("request", "8", "entry.payload"));
    ClipboardEntryPayload huge{ClipboardKind::text, std::string(17U << 20, 'x'), false};
    connection->respond(requests.at(0), ClipboardLinkPayload(std::move(huge)));
    queue.runUntilIdle();
    EXPECT_NE(written().find(R"("code":"too_large")"), std::string::npos);
    EXPECT_EQ(closes, 0);
}

} // namespace
} // namespace vexil
