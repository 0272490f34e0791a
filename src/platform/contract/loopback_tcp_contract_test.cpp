// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/queue_driver.h"
#include "platform/linux/asio_loopback_tcp.h"
#include "platform/memory/memory_loopback_tcp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace vexil {
namespace {

using testing::ElementsAre;
using State = TcpStream::State;

// One end of a connection, driven from the main queue. The stream itself is only touched on the network's queue.
class End {
public:
    struct Seen {
        std::vector<State> states;
        std::vector<std::uint8_t> bytes;
        std::size_t largest = 0;
        bool isComplete = false;
        std::vector<bool> writes;
    };

    End(MainQueue& mainQueue, LoopbackTcp& network, std::unique_ptr<TcpStream> stream)
        : shared_(std::make_shared<Shared>(mainQueue, network, std::move(stream))) {}

    void start() {
        on([](const auto& shared) {
            shared->stream->start(
                [shared](State state) { shared->update([&](Seen& seen) { seen.states.push_back(state); }); });
        });
    }
    void readAll() { on(readNext); }
    void send(std::vector<Bytes> buffers) {
        on([buffers = std::move(buffers)](const auto& shared) mutable {
            shared->stream->send(std::move(buffers), [shared](bool isWritten) {
                shared->update([&](Seen& seen) { seen.writes.push_back(isWritten); });
            });
        });
    }
    void send(std::string_view text) {
        std::vector<Bytes> buffers;
        buffers.push_back(copyOf(bytesOf(text)));
        send(std::move(buffers));
    }
    void cancel() {
        on([](const auto& shared) { shared->stream->cancel(); });
    }
    // On the network's queue.
    void drop() {
        on([](const auto& shared) { shared->stream.reset(); });
    }
    // From the main queue, while the stream lives.
    [[nodiscard]] bool sendNow(std::string_view text) { return shared_->stream->sendNow(bytesOf(text)); }
    // Hands the stream out to the main queue; nothing of what was asked may still be on its way.
    [[nodiscard]] std::unique_ptr<TcpStream> release() { return std::move(shared_->stream); }

    // Runs `task(shared)` on the network's queue where the stream lives still.
    template <class F> void on(F task) {
        shared_->network.queue().post([shared = shared_, task = std::move(task)]() mutable {
            if (shared->stream)
                task(shared);
        });
    }

    // All but the bytes, which may be many.
    [[nodiscard]] Seen seen() const {
        const std::lock_guard lock(shared_->mutex);
        return {shared_->seen.states, {}, shared_->seen.largest, shared_->seen.isComplete, shared_->seen.writes};
    }
    [[nodiscard]] bool isReady() const { return !seen().states.empty() && seen().states.front() == State::ready; }
    [[nodiscard]] std::size_t received() const {
        const std::lock_guard lock(shared_->mutex);
        return shared_->seen.bytes.size();
    }
    [[nodiscard]] bool hasReceived(ByteView expected) const {
        const std::lock_guard lock(shared_->mutex);
        const auto& bytes = shared_->seen.bytes;
        return bytes.size() == expected.size() && std::memcmp(bytes.data(), expected.data(), bytes.size()) == 0;
    }
    [[nodiscard]] std::string text() const {
        const std::lock_guard lock(shared_->mutex);
        return std::string(textOf(shared_->seen.bytes));
    }

private:
    struct Shared {
        Shared(MainQueue& queue, LoopbackTcp& net, std::unique_ptr<TcpStream> given)
            : mainQueue(queue), network(net), stream(std::move(given)) {}
        template <class F> void update(F change) {
            {
                const std::lock_guard lock(mutex);
                change(seen);
            }
            mainQueue.post([] {}); // its driver looks again
        }
        MainQueue& mainQueue;
        LoopbackTcp& network;
        std::unique_ptr<TcpStream> stream;
        std::mutex mutex; // guards seen
        Seen seen;
    };

    static void readNext(const std::shared_ptr<Shared>& shared) {
        shared->stream->receive([shared](TcpStream::Received received) {
            shared->update([&](Seen& seen) {
                const auto* data = received.bytes.data();
                seen.bytes.insert(seen.bytes.end(), data, data + received.bytes.size());
                seen.largest = std::max(seen.largest, received.bytes.size());
                seen.isComplete = received.isComplete;
            });
            if (!received.isComplete && shared->stream)
                readNext(shared);
        });
    }

    std::shared_ptr<Shared> shared_;
};

struct World {
    std::unique_ptr<QueueDriver> driver;
    std::unique_ptr<LoopbackTcp> network;
};

World makeMemoryWorld() {
    World world{makeMemoryQueueDriver(), nullptr};
    world.network = std::make_unique<MemoryLoopbackTcp>(dynamic_cast<MemoryMainQueue&>(world.driver->queue()));
    return world;
}

World makeAsioWorld() {
    World world{makeGlibQueueDriver(), nullptr};
    world.network = std::make_unique<AsioLoopbackTcp>(world.driver->queue());
    return world;
}

class LoopbackTcpContract : public testing::TestWithParam<World (*)()> {
protected:
    MainQueue& queue() { return world.driver->queue(); }
    LoopbackTcp& network() { return *world.network; }
    bool until(const std::function<bool()>& condition) { return world.driver->runUntil(condition); }

    End& hold(std::unique_ptr<TcpStream> stream) { return ends.emplace_back(queue(), network(), std::move(stream)); }
    void listen() {
        listener = network().listen(
            {[this](std::uint16_t ready) { port = ready; }, [this] { ++failures; },
             [this](std::unique_ptr<TcpStream> stream) { accepted.push_back(&hold(std::move(stream))); }});
        ASSERT_NE(listener, nullptr);
        ASSERT_TRUE(until([&] { return port != 0; }));
    }
    // A connected pair, both ends ready.
    std::pair<End*, End*> connect() {
        if (!listener)
            listen();
        const std::size_t before = accepted.size();
        End& connector = hold(network().connect(port));
        connector.start();
        EXPECT_TRUE(until([&] { return accepted.size() > before && connector.isReady(); }));
        End& acceptor = *accepted.at(before);
        acceptor.start();
        EXPECT_TRUE(until([&] { return acceptor.isReady(); }));
        return {&connector, &acceptor};
    }
    // Everything that the network's queue has to do now is done.
    void settle() {
        for (int i = 0; i < 3; ++i) {
            std::atomic<bool> isDone = false;
            network().queue().post([&] {
                isDone = true;
                queue().post([] {});
            });
            ASSERT_TRUE(until([&] { return isDone.load(); }));
        }
    }
    std::uint16_t deadPort() {
        listen();
        listener.reset();
        settle();
        return port;
    }

    World world = GetParam()();
    std::unique_ptr<TcpListener> listener;
    std::list<End> ends;
    std::vector<End*> accepted;
    std::uint16_t port = 0;
    int failures = 0;

    void TearDown() override {
        listener.reset();
        if (!world.network)
            return;
        for (End& end : ends)
            end.drop();
        settle();
    }
};

Bytes patternOf(std::size_t size) {
    Bytes bytes(size);
    std::uint64_t state = 12'345;
    for (std::size_t i = 0; i + sizeof state <= size; i += sizeof state) {
        state = state * 6'364'136'223'846'793'005U + 1'442'695'040'888'963'407U;
        std::memcpy(bytes.data() + i, &state, sizeof state);
    }
    return bytes;
}

TEST_P(LoopbackTcpContract, BothEndsBecomeReadyOnce) {
    End* connector = nullptr;
    End* acceptor = nullptr;
    std::tie(connector, acceptor) = connect();
    EXPECT_THAT(connector->seen().states, ElementsAre(State::ready));
    EXPECT_THAT(acceptor->seen().states, ElementsAre(State::ready));
    EXPECT_EQ(failures, 0);
}

TEST_P(LoopbackTcpContract, CarriesTwelveMebibytesBothWaysAtOnce) {
    End* connector = nullptr;
    End* acceptor = nullptr;
    std::tie(connector, acceptor) = connect();
    const Bytes pattern = patternOf(12U << 20U);
    for (End* end : {connector, acceptor}) {
        end->readAll();
        std::vector<Bytes> buffers;
        buffers.emplace_back(pattern.size());
        std::memcpy(buffers[0].data(), pattern.data(), pattern.size());
        end->send(std::move(buffers));
    }
    EXPECT_TRUE(
        until([&] { return connector->received() == pattern.size() && acceptor->received() == pattern.size(); }));
    for (End* end : {connector, acceptor}) {
        EXPECT_TRUE(until([&] { return !end->seen().writes.empty(); }));
        EXPECT_THAT(end->seen().writes, ElementsAre(true));
        EXPECT_LE(end->seen().largest, TcpStream::kMaxReceive);
        EXPECT_TRUE(end->hasReceived(pattern));
    }
}

TEST_P(LoopbackTcpContract, WritesManySendsInOrderAndReportsEach) {
    End* connector = nullptr;
    End* acceptor = nullptr;
    std::tie(connector, acceptor) = connect();
    acceptor->readAll();
    std::string expected;
    for (int i = 0; i < 300; ++i) {
        std::vector<Bytes> buffers;
        for (const std::string& part : {std::to_string(i), std::string(), std::string(";")}) {
            buffers.push_back(copyOf(bytesOf(part)));
            expected += part;
        }
        connector->send(std::move(buffers));
    }
    EXPECT_TRUE(until([&] { return acceptor->received() >= expected.size(); }));
    EXPECT_EQ(acceptor->text(), expected);
    EXPECT_TRUE(until([&] { return connector->seen().writes.size() == 300; }));
    EXPECT_EQ(connector->seen().writes, std::vector<bool>(300, true));
}

TEST_P(LoopbackTcpContract, SendingNowNeedsAStreamThatIsReadyAndLives) {
    listen();
    End& connector = hold(network().connect(port));
    EXPECT_FALSE(connector.sendNow("too early"));
    connector.start();
    EXPECT_TRUE(until([&] { return accepted.size() == 1 && connector.isReady(); }));
    End& acceptor = *accepted[0];
    acceptor.start();
    acceptor.readAll();
    EXPECT_TRUE(connector.sendNow("now"));
    EXPECT_TRUE(until([&] { return acceptor.text() == "now"; }));
    connector.cancel();
    settle();
    EXPECT_FALSE(connector.sendNow("too late"));
}

TEST_P(LoopbackTcpContract, WhatIsSentNowAndLaterArrivesInOrder) {
    End* connector = nullptr;
    End* acceptor = nullptr;
    std::tie(connector, acceptor) = connect();
    acceptor->readAll();
    std::string expected;
    for (int i = 0; i < 100; ++i) {
        expected += "now" + std::to_string(i) + "later" + std::to_string(i);
        EXPECT_TRUE(connector->sendNow("now" + std::to_string(i)));
        connector->send("later" + std::to_string(i));
        EXPECT_TRUE(until([c = connector, i] { return c->seen().writes.size() == static_cast<std::size_t>(i) + 1; }));
    }
    EXPECT_TRUE(until([&] { return acceptor->received() >= expected.size(); }));
    EXPECT_EQ(acceptor->text(), expected);
}

TEST_P(LoopbackTcpContract, SendingNowNeverOvertakesNorWaitsForAPeerThatDoesNotRead) {
    End* connector = nullptr;
    End* acceptor = nullptr;
    std::tie(connector, acceptor) = connect();
    const std::string piece(3000, 'p');
    std::size_t taken = 0;
    while (connector->sendNow(piece))
        ++taken;
    EXPECT_GT(taken, 0U);
    std::vector<Bytes> rest;
    rest.emplace_back(Bytes(12U << 20U, 'r'));
    connector->send(std::move(rest));
    settle();
    EXPECT_FALSE(connector->sendNow(piece));
    acceptor->readAll();
    const std::size_t size = taken * piece.size() + (12U << 20U);
    EXPECT_TRUE(until([&] { return acceptor->received() >= size; }));
    const std::string text = acceptor->text();
    EXPECT_EQ(text.size(), size);
    EXPECT_EQ(text.find('r'), taken * piece.size());
    EXPECT_EQ(text.find('p', taken * piece.size()), std::string::npos);
}

TEST_P(LoopbackTcpContract, ASendOfNothingIsWritten) {
    End* connector = nullptr;
    End* acceptor = nullptr;
    std::tie(connector, acceptor) = connect();
    connector->send(std::vector<Bytes>());
    connector->send("");
    EXPECT_TRUE(until([&] { return connector->seen().writes.size() == 2; }));
    EXPECT_THAT(connector->seen().writes, ElementsAre(true, true));
}

TEST_P(LoopbackTcpContract, WhatIsAskedBeforeTheStreamIsReadyHappensThen) {
    listen();
    End& connector = hold(network().connect(port));
    connector.start();
    connector.send("early");
    connector.readAll();
    EXPECT_TRUE(until([&] { return accepted.size() == 1; }));
    accepted[0]->start();
    accepted[0]->readAll();
    accepted[0]->send("answer");
    EXPECT_TRUE(until([&] { return accepted[0]->text() == "early" && connector.text() == "answer"; }));
}

TEST_P(LoopbackTcpContract, CallsBackFromTheTopOfATask) {
    End* connector = nullptr;
    End* acceptor = nullptr;
    std::tie(connector, acceptor) = connect();
    acceptor->send("waiting");
    EXPECT_TRUE(until([&] { return acceptor->seen().writes.size() == 1; }));
    std::atomic<int> calls = 0;
    std::atomic<int> callsFromWithin = -1;
    connector->on([&](const auto& shared) {
        const auto count = [&](auto&&) {
            ++calls;
            queue().post([] {});
        };
        shared->stream->receive(count);
        std::vector<Bytes> buffers;
        buffers.push_back(copyOf(bytesOf("x")));
        shared->stream->send(std::move(buffers), count);
        callsFromWithin = calls.load();
    });
    EXPECT_TRUE(until([&] { return calls == 2; }));
    EXPECT_EQ(callsFromWithin, 0);
}

TEST_P(LoopbackTcpContract, APeerThatEndsIsHeardAfterAllThatItSent) {
    for (const bool byDropping : {false, true}) {
        End* connector = nullptr;
        End* acceptor = nullptr;
        std::tie(connector, acceptor) = connect();
        connector->send("last words");
        EXPECT_TRUE(until([c = connector] { return c->seen().writes.size() == 1; }));
        byDropping ? connector->drop() : connector->cancel();
        acceptor->readAll();
        EXPECT_TRUE(until([a = acceptor] { return a->seen().isComplete; }));
        EXPECT_EQ(acceptor->text(), "last words");
    }
}

TEST_P(LoopbackTcpContract, CancelEndsWhatIsOutstandingWithFailure) {
    End* connector = nullptr;
    End* acceptor = nullptr;
    std::tie(connector, acceptor) = connect();
    connector->readAll();
    settle();
    connector->cancel();
    connector->send("too late");
    EXPECT_TRUE(until([&] { return connector->seen().isComplete && !connector->seen().writes.empty(); }));
    EXPECT_THAT(connector->seen().writes, ElementsAre(false));
    EXPECT_EQ(connector->received(), 0U);
}

TEST_P(LoopbackTcpContract, AReceiveAfterCancelCompletesEmpty) {
    End* connector = nullptr;
    End* acceptor = nullptr;
    std::tie(connector, acceptor) = connect();
    acceptor->send("never read");
    EXPECT_TRUE(until([&] { return acceptor->seen().writes.size() == 1; }));
    connector->cancel();
    connector->readAll();
    EXPECT_TRUE(until([&] { return connector->seen().isComplete; }));
    EXPECT_EQ(connector->received(), 0U);
}

TEST_P(LoopbackTcpContract, APeerThatNeverReadsLeavesTheRestUnwritten) {
    End* connector = nullptr;
    End* acceptor = nullptr;
    std::tie(connector, acceptor) = connect();
    connector->send("taken");
    std::vector<Bytes> buffers;
    buffers.emplace_back(32U << 20U);
    connector->send(std::move(buffers));
    EXPECT_TRUE(until([&] { return !connector->seen().writes.empty(); }));
    settle();
    EXPECT_THAT(connector->seen().writes, ElementsAre(true));
    connector->cancel();
    EXPECT_TRUE(until([&] { return connector->seen().writes.size() == 2; }));
    EXPECT_THAT(connector->seen().writes, ElementsAre(true, false));
}

TEST_P(LoopbackTcpContract, APeerThatEndsFailsWhatItDidNotTake) {
    End* connector = nullptr;
    End* acceptor = nullptr;
    std::tie(connector, acceptor) = connect();
    std::vector<Bytes> buffers;
    buffers.emplace_back(32U << 20U);
    connector->send(std::move(buffers));
    settle();
    acceptor->drop();
    EXPECT_TRUE(until([&] { return connector->seen().writes.size() == 1 && connector->seen().states.size() == 2; }));
    EXPECT_THAT(connector->seen().writes, ElementsAre(false));
    EXPECT_THAT(connector->seen().states, ElementsAre(State::ready, State::failed));
}

TEST_P(LoopbackTcpContract, AConnectToADeadPortFailsAndSoDoesWhatWasAskedOfIt) {
    End& connector = hold(network().connect(deadPort()));
    connector.start();
    connector.send("to nobody");
    connector.readAll();
    EXPECT_TRUE(until([&] { return connector.seen().isComplete && !connector.seen().writes.empty(); }));
    EXPECT_THAT(connector.seen().states, ElementsAre(State::failed));
    EXPECT_THAT(connector.seen().writes, ElementsAre(false));
    connector.send("again");
    EXPECT_TRUE(until([&] { return connector.seen().writes.size() == 2; }));
    EXPECT_THAT(connector.seen().writes, ElementsAre(false, false));
}

TEST_P(LoopbackTcpContract, ADroppedListenerTakesNoMoreConnectionsAndLeavesThoseItGave) {
    End* connector = nullptr;
    End* acceptor = nullptr;
    std::tie(connector, acceptor) = connect();
    listener.reset();
    settle();
    End& late = hold(network().connect(port));
    late.start();
    EXPECT_TRUE(until([&] { return !late.seen().states.empty(); }));
    EXPECT_THAT(late.seen().states, ElementsAre(State::failed));
    acceptor->readAll();
    connector->send("still here");
    EXPECT_TRUE(until([a = acceptor] { return a->text() == "still here"; }));
}

TEST_P(LoopbackTcpContract, AListenerMayBeDroppedByItsOwnCallbacks) {
    bool isReady = false;
    listener = network().listen({[&](std::uint16_t) {
                                     listener.reset();
                                     isReady = true;
                                 },
                                 [] {}, [](std::unique_ptr<TcpStream>) {}});
    EXPECT_TRUE(until([&] { return isReady; }));
    std::unique_ptr<TcpStream> taken;
    std::uint16_t ready = 0;
    listener = network().listen({[&](std::uint16_t chosen) { ready = chosen; }, [] {},
                                 [&](std::unique_ptr<TcpStream> stream) {
                                     listener.reset();
                                     taken = std::move(stream);
                                 }});
    EXPECT_TRUE(until([&] { return ready != 0; }));
    End& connector = hold(network().connect(ready));
    connector.start();
    EXPECT_TRUE(until([&] { return taken != nullptr; }));
}

TEST_P(LoopbackTcpContract, AConnectionThatIsDroppedUnstartedEndsForThePeer) {
    listener = network().listen({[this](std::uint16_t ready) { port = ready; }, [] {},
                                 [](std::unique_ptr<TcpStream> stream) { stream.reset(); }});
    ASSERT_TRUE(until([&] { return port != 0; }));
    End& connector = hold(network().connect(port));
    connector.start();
    connector.readAll();
    EXPECT_TRUE(until([&] { return connector.seen().isComplete; }));
    EXPECT_EQ(connector.received(), 0U);
}

TEST_P(LoopbackTcpContract, HoldsManyConnectionsAtOnce) {
    constexpr int kPairs = 60;
    std::vector<std::pair<End*, End*>> pairs;
    for (int i = 0; i < kPairs; ++i)
        pairs.push_back(connect());
    for (int i = 0; i < kPairs; ++i) {
        pairs[static_cast<std::size_t>(i)].first->readAll();
        pairs[static_cast<std::size_t>(i)].second->send(std::to_string(i));
    }
    for (int i = 0; i < kPairs; ++i) {
        const End* reader = pairs[static_cast<std::size_t>(i)].first;
        EXPECT_TRUE(until([&] { return reader->text() == std::to_string(i); }));
    }
}

TEST_P(LoopbackTcpContract, AStreamMayBeDestroyedByEachOfItsCallbacks) {
    listen();
    for (int which = 0; which < 3; ++which) {
        SCOPED_TRACE(which);
        const std::size_t before = accepted.size();
        End& connector = hold(network().connect(port));
        std::atomic<bool> isGone = false;
        connector.on([&, which](const auto& shared) {
            const auto destroy = [&, which, shared](int callback) {
                if (callback != which)
                    return;
                shared->stream.reset();
                isGone = true;
                queue().post([] {});
            };
            shared->stream->start([destroy](State) { destroy(0); });
            shared->stream->receive([destroy](TcpStream::Received) { destroy(1); });
            std::vector<Bytes> buffers;
            buffers.push_back(copyOf(bytesOf("x")));
            shared->stream->send(std::move(buffers), [destroy](bool) { destroy(2); });
        });
        EXPECT_TRUE(until([&] { return accepted.size() > before; }));
        accepted[before]->start();
        accepted[before]->send("hello");
        EXPECT_TRUE(until([&] { return isGone.load(); }));
    }
}

TEST_P(LoopbackTcpContract, NoCallbackComesOnceADestructionOnAnotherThreadHasSettled) {
    for (int round = 0; round < 50; ++round) {
        End* connector = nullptr;
        End* acceptor = nullptr;
        std::tie(connector, acceptor) = connect();
        auto stream = connector->release();
        std::atomic<bool> isAsked = false;
        std::atomic<int> calls = 0;
        network().queue().post([&, raw = stream.get()] {
            raw->receive([&](TcpStream::Received) { ++calls; });
            isAsked = true;
            queue().post([] {});
        });
        ASSERT_TRUE(until([&] { return isAsked.load(); }));
        acceptor->send("as it goes");
        stream.reset();
        network().queue().post([] {});
        settle();
        const int before = calls;
        acceptor->send("when it has gone");
        settle();
        EXPECT_EQ(calls, before);
    }
}

TEST_P(LoopbackTcpContract, DestructionDestroysTheCallbacks) {
    End* connector = nullptr;
    End* acceptor = nullptr;
    std::tie(connector, acceptor) = connect();
    const auto token = std::make_shared<int>();
    connector->on([token](const auto& shared) { shared->stream->receive([token](TcpStream::Received) {}); });
    settle();
    EXPECT_EQ(token.use_count(), 2);
    connector->drop();
    settle();
    EXPECT_EQ(token.use_count(), 1);
}

TEST_P(LoopbackTcpContract, StreamsAndListenersOutliveTheNetworkInSilence) {
    End* connector = nullptr;
    End* acceptor = nullptr;
    std::tie(connector, acceptor) = connect();
    connector->readAll();
    settle();
    std::vector<std::unique_ptr<TcpStream>> survivors;
    survivors.push_back(connector->release());
    survivors.push_back(acceptor->release());
    survivors.push_back(network().connect(port));
    ends.clear();
    world.network = nullptr;
    survivors.clear();
    listener.reset();
}

INSTANTIATE_TEST_SUITE_P(Memory, LoopbackTcpContract, testing::Values(makeMemoryWorld));
INSTANTIATE_TEST_SUITE_P(Asio, LoopbackTcpContract, testing::Values(makeAsioWorld));

} // namespace
} // namespace vexil
