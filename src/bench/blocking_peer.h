// SPDX-License-Identifier: Apache-2.0
// The plainest main application there can be: one thread, one blocking socket.
#pragma once

#include <sched.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <semaphore>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace vexil::bench {

// A blocking TCP socket on 127.0.0.1. Failures throw std::system_error.
class BlockingSocket {
public:
    explicit BlockingSocket(std::uint16_t connectTo);
    BlockingSocket(const BlockingSocket&) = delete;
    BlockingSocket& operator=(const BlockingSocket&) = delete;
    BlockingSocket(BlockingSocket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    BlockingSocket& operator=(BlockingSocket&&) = delete;
    ~BlockingSocket();

    // Listens on a free port, runs `connect(port)`, and yields what that connected.
    template <class F> static BlockingSocket acceptFrom(F&& connect) {
        const BlockingSocket listener{Listening{}};
        connect(listener.port());
        return BlockingSocket(Adopted{listener.acceptOne()});
    }

    void sendAll(const void* bytes, std::size_t size) const;
    // 1 to `size` bytes, or 0 at the end.
    [[nodiscard]] std::size_t receiveSome(void* bytes, std::size_t size) const;
    void receiveAll(void* bytes, std::size_t size) const;
    void shutDown() const;

private:
    struct Listening {};
    struct Adopted {
        int fd;
    };
    explicit BlockingSocket(Listening);
    explicit BlockingSocket(Adopted adopted);
    [[nodiscard]] std::uint16_t port() const;
    [[nodiscard]] int acceptOne() const;

    int fd_;
};

// Connects, and on its own thread answers every request at once with an empty success, and counts attachments.
class BlockingPeer {
public:
    explicit BlockingPeer(std::uint16_t port);
    BlockingPeer(const BlockingPeer&) = delete;
    BlockingPeer& operator=(const BlockingPeer&) = delete;
    ~BlockingPeer();

    void sayHello(const std::string& nonce) const;
    void stayOn(const cpu_set_t& processors);

    // Waits until one more event has come in whole, its attachment included.
    void awaitEvent() { events_.acquire(); }

private:
    void serve();
    // Bytes of whole frames at the start of `buffered`, each of which was dealt with.
    [[nodiscard]] std::size_t takeFrames(std::string_view buffered);
    void takeEnvelope(std::string_view body);

    BlockingSocket socket_;
    std::counting_semaphore<> events_{0};
    std::size_t attachmentBytesToCome_ = 0;
    std::thread thread_;
};

// An envelope frame: length, type and JSON.
[[nodiscard]] std::string envelopeFrame(std::string_view json);

} // namespace vexil::bench
