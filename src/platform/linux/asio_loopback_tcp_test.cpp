// SPDX-License-Identifier: Apache-2.0
// What real sockets add; what every network does is in platform/contract.
#include "platform/linux/asio_loopback_tcp.h"
#include "platform/linux/glib_main_queue.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vexil {
namespace {

using namespace std::chrono_literals;

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    [[nodiscard]] int number() const { return number_; }
    void reset() {
        if (number_ >= 0)
            ::close(number_);
        number_ = -1;
    }

private:
    int number_;
};

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

int connectTo(int socket, const sockaddr_in& address) {
    return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

std::optional<sockaddr_in> localAddress(int socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0 || address.sin_family != AF_INET)
        return std::nullopt;
    return address;
}

// The sockets of this process that are bound to `port`.
std::vector<int> socketsOn(std::uint16_t port) {
    std::vector<int> found;
    for (int number = 0; number < 1024; ++number) {
        const auto address = localAddress(number);
        if (address && ntohs(address->sin_port) == port)
            found.push_back(number);
    }
    return found;
}

class AsioLoopbackTcpTest : public testing::Test {
protected:
    void listen() {
        listener = network.listen({[this](std::uint16_t ready) {
                                       port = ready;
                                       queue.quit();
                                   },
                                   [] {},
                                   [this](std::unique_ptr<TcpStream> stream) {
                                       accepted = std::move(stream);
                                       queue.quit();
                                   }});
        ASSERT_NE(listener, nullptr);
        queue.run();
    }
    // The first state of a stream, and what its first receive yields where `andReceive`.
    void start(TcpStream& stream) {
        network.queue().post([&] {
            stream.start([this](TcpStream::State reported) {
                state = reported;
                queue.quit();
            });
        });
        queue.run();
    }

    GlibMainQueue queue;
    AsioLoopbackTcp network{queue};
    std::unique_ptr<TcpListener> listener;
    std::unique_ptr<TcpStream> accepted;
    std::uint16_t port = 0;
    std::atomic<TcpStream::State> state = TcpStream::State::ready;
};

TEST_F(AsioLoopbackTcpTest, ListensOnTheLoopbackAddressOnly) {
    listen();
    const auto sockets = socketsOn(port);
    ASSERT_EQ(sockets.size(), 1U);
    EXPECT_EQ(ntohl(localAddress(sockets[0])->sin_addr.s_addr), INADDR_LOOPBACK);
    EXPECT_NE(::fcntl(sockets[0], F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(AsioLoopbackTcpTest, SendsWithoutDelayAndGivesNoSocketToChildren) {
    listen();
    const Descriptor peer(::socket(AF_INET, SOCK_STREAM, 0));
    ASSERT_EQ(connectTo(peer.number(), loopback(port)), 0);
    queue.run();
    ASSERT_NE(accepted, nullptr);
    start(*accepted);
    listener.reset();
    network.queue().post([this] { queue.quit(); });
    queue.run();
    const auto sockets = socketsOn(port);
    ASSERT_EQ(sockets.size(), 1U);
    int noDelay = 0;
    socklen_t size = sizeof noDelay;
    EXPECT_EQ(::getsockopt(sockets[0], IPPROTO_TCP, TCP_NODELAY, &noDelay, &size), 0);
    EXPECT_NE(noDelay, 0);
    EXPECT_NE(::fcntl(sockets[0], F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(AsioLoopbackTcpTest, AResetFailsTheStreamOnce) {
    listen();
    Descriptor peer(::socket(AF_INET, SOCK_STREAM, 0));
    ASSERT_EQ(connectTo(peer.number(), loopback(port)), 0);
    queue.run();
    std::atomic<int> failures = 0;
    std::atomic<bool> isComplete = false;
    network.queue().post([&] {
        accepted->start([&](TcpStream::State reported) { failures += reported == TcpStream::State::failed ? 1 : 0; });
        accepted->receive([&](TcpStream::Received received) {
            isComplete = received.isComplete;
            std::vector<Bytes> buffers;
            buffers.push_back(copyOf(bytesOf("too late")));
            accepted->send(std::move(buffers), [&](bool isWritten) {
                EXPECT_FALSE(isWritten);
                queue.quit();
            });
        });
        queue.quit();
    });
    queue.run();
    const linger reset{.l_onoff = 1, .l_linger = 0};
    ASSERT_EQ(::setsockopt(peer.number(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset), 0);
    peer.reset();
    queue.run();
    EXPECT_TRUE(isComplete);
    EXPECT_EQ(failures, 1);
    accepted.reset();
}

TEST_F(AsioLoopbackTcpTest, AConnectWithoutAnswerGivesUpAfterThreeSeconds) {
    // A queue of one that is full: the system answers no further SYN.
    const Descriptor full(::socket(AF_INET, SOCK_STREAM, 0));
    auto address = loopback(0);
    ASSERT_EQ(::bind(full.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(full.number(), 0), 0);
    address = *localAddress(full.number());
    const Descriptor first(::socket(AF_INET, SOCK_STREAM, 0));
    ASSERT_EQ(connectTo(first.number(), address), 0);
    const Descriptor second(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
    connectTo(second.number(), address);

    const auto stream = network.connect(ntohs(address.sin_port));
    const auto before = Clock::now();
    start(*stream);
    EXPECT_EQ(state, TcpStream::State::failed);
    EXPECT_GE(Clock::now() - before, 3s);
    EXPECT_LT(Clock::now() - before, 6s);
}

} // namespace
} // namespace vexil
