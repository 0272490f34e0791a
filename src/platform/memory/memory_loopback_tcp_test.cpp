// SPDX-License-Identifier: Apache-2.0
// The faults; what every network does is in platform/contract.
#include "platform/memory/memory_loopback_tcp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Way = MemoryLoopbackTcp::Way;

class MemoryLoopbackTcpTest : public testing::Test {
protected:
    // A connection whose accepted end is `accepted`, both ends started.
    void connect() {
        listener = network.listen({[this](std::uint16_t ready) { port = ready; }, [this] { ++listenerFailures; },
                                   [this](std::unique_ptr<TcpStream> stream) { accepted = std::move(stream); }});
        queue.runUntilIdle();
        connector = network.connect(port);
        connector->start([this](TcpStream::State state) { connectorStates.push_back(state); });
        queue.runUntilIdle();
        if (!accepted)
            return;
        accepted->start([this](TcpStream::State state) { acceptedStates.push_back(state); });
        queue.runUntilIdle();
    }

    void readAll(TcpStream& stream) {
        stream.receive([this, &stream](TcpStream::Received received) {
            if (!received.bytes.empty())
                pieces.emplace_back(textOf(received.bytes));
            isComplete = received.isComplete;
            if (!received.isComplete)
                readAll(stream);
        });
        queue.runUntilIdle();
    }

    void send(TcpStream& stream, std::string_view text) {
        std::vector<Bytes> buffers;
        buffers.push_back(copyOf(bytesOf(text)));
        stream.send(std::move(buffers), [this](bool isWritten) { writes.push_back(isWritten); });
        queue.runUntilIdle();
    }

    MemoryMainQueue queue;
    MemoryLoopbackTcp network{queue};
    std::unique_ptr<TcpListener> listener;
    std::unique_ptr<TcpStream> connector;
    std::unique_ptr<TcpStream> accepted;
    std::uint16_t port = 0;
    int listenerFailures = 0;
    std::vector<TcpStream::State> connectorStates;
    std::vector<TcpStream::State> acceptedStates;
    std::vector<std::string> pieces;
    std::vector<bool> writes;
    bool isComplete = false;
};

TEST_F(MemoryLoopbackTcpTest, DeliversInPiecesOfTheAskedSize) {
    network.setFaultsOfNew(Way::toListener, {.piece = 2});
    connect();
    send(*connector, "abcde");
    readAll(*accepted);
    EXPECT_THAT(pieces, ElementsAre("ab", "cd", "e"));
    EXPECT_THAT(writes, ElementsAre(true));
}

TEST_F(MemoryLoopbackTcpTest, LeavesUnwrittenWhatDoesNotFitTheWindow) {
    connect();
    network.setFaults(0, Way::toListener, {.window = 3});
    send(*connector, "abcde");
    EXPECT_THAT(writes, IsEmpty());
    EXPECT_EQ(network.carried(0, Way::toListener), 3U);
    readAll(*accepted);
    EXPECT_THAT(writes, ElementsAre(true));
    EXPECT_THAT(pieces, ElementsAre("abc", "de"));
}

TEST_F(MemoryLoopbackTcpTest, AHeldReaderGetsEverythingOnceItIsReleased) {
    connect();
    network.setFaults(0, Way::toListener, {.isHeld = true});
    readAll(*accepted);
    send(*connector, "abc");
    EXPECT_THAT(pieces, IsEmpty());
    network.setFaults(0, Way::toListener, {});
    queue.runUntilIdle();
    EXPECT_THAT(pieces, ElementsAre("abc"));
}

TEST_F(MemoryLoopbackTcpTest, CutsTheStreamAfterTheAskedNumberOfBytes) {
    connect();
    network.setFaults(0, Way::toListener, {.cutAfter = 4});
    readAll(*accepted);
    send(*connector, "abc");
    send(*connector, "def");
    EXPECT_THAT(pieces, ElementsAre("abc", "d"));
    EXPECT_TRUE(isComplete);
    EXPECT_THAT(writes, ElementsAre(true, false));
    EXPECT_THAT(connectorStates, ElementsAre(TcpStream::State::ready, TcpStream::State::failed));
    EXPECT_THAT(acceptedStates, ElementsAre(TcpStream::State::ready, TcpStream::State::failed));
}

TEST_F(MemoryLoopbackTcpTest, ACutReachesBothEnds) {
    connect();
    readAll(*accepted);
    network.cut(0);
    queue.runUntilIdle();
    EXPECT_TRUE(isComplete);
    EXPECT_THAT(connectorStates, ElementsAre(TcpStream::State::ready, TcpStream::State::failed));
}

TEST_F(MemoryLoopbackTcpTest, AListenerFailsInPlaceOfBecomingReady) {
    network.failNextListener();
    connect();
    EXPECT_EQ(port, 0);
    EXPECT_EQ(listenerFailures, 1);
    EXPECT_THAT(connectorStates, ElementsAre(TcpStream::State::failed));
}

TEST_F(MemoryLoopbackTcpTest, AListenerFailsLaterAndTakesNoMoreConnections) {
    connect();
    network.failListener(port);
    queue.runUntilIdle();
    EXPECT_EQ(listenerFailures, 1);
    EXPECT_EQ(network.openListeners(), 0U);
    const auto late = network.connect(port);
    std::vector<TcpStream::State> states;
    late->start([&](TcpStream::State state) { states.push_back(state); });
    queue.runUntilIdle();
    EXPECT_THAT(states, ElementsAre(TcpStream::State::failed));
    EXPECT_EQ(network.connections(), 1U);
}

TEST_F(MemoryLoopbackTcpTest, RefusesOneListen) {
    network.refuseNextListen();
    EXPECT_EQ(network.listen({}), nullptr);
    connect();
    EXPECT_NE(listener, nullptr);
}

TEST_F(MemoryLoopbackTcpTest, ASwallowedConnectGivesUpAfterThreeSeconds) {
    network.swallowConnects(true);
    connect();
    queue.advance(std::chrono::milliseconds(2999));
    EXPECT_THAT(connectorStates, IsEmpty());
    queue.advance(std::chrono::milliseconds(1));
    EXPECT_THAT(connectorStates, ElementsAre(TcpStream::State::failed));
}

TEST_F(MemoryLoopbackTcpTest, StreamsMayOutliveTheNetwork) {
    std::unique_ptr<TcpStream> survivor;
    {
        MemoryLoopbackTcp shortLived(queue);
        survivor = shortLived.connect(1);
        survivor->start([](TcpStream::State) {});
    }
    queue.runUntilIdle();
    survivor.reset();
}

} // namespace
} // namespace vexil
