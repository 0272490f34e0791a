// SPDX-License-Identifier: Apache-2.0
// TCP streams on the link thread. Internal to asio_loopback_tcp.
#pragma once

#include "platform/loopback_tcp.h"

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_set>
#include <vector>

namespace vexil {

// Bound to the context's own executor: the general one costs an indirection on every operation.
using AsioExecutor = asio::io_context::executor_type;
using AsioSocket = asio::basic_stream_socket<asio::ip::tcp, AsioExecutor>;
using AsioTimer =
    asio::basic_waitable_timer<std::chrono::steady_clock, asio::wait_traits<std::chrono::steady_clock>, AsioExecutor>;

// Something that holds a socket of the link thread's context, and gives it back when the context ends first.
class AsioLinkMember {
public:
    virtual ~AsioLinkMember() = default;
    // After the link thread has ended.
    virtual void abandon() = 0;
};

// What the network shares with the sockets on it.
struct AsioLink {
    std::mutex mutex; // guards members
    std::unordered_set<AsioLinkMember*> members;
    asio::io_context context{1};

    void add(AsioLinkMember& member);
    void remove(AsioLinkMember& member);
};

// One connection. Its own thread is the link thread; only drop() and sendNow() come from elsewhere. It lives as long as
// an operation of the system refers to it.
class AsioTcpConnection final : public AsioLinkMember, public std::enable_shared_from_this<AsioTcpConnection> {
public:
    AsioTcpConnection(AsioLink& link, AsioSocket socket);                   // accepted
    AsioTcpConnection(AsioLink& link, const asio::ip::tcp::endpoint& peer); // to be connected by start()
    ~AsioTcpConnection() override;
    AsioTcpConnection(const AsioTcpConnection&) = delete;
    AsioTcpConnection& operator=(const AsioTcpConnection&) = delete;

    void start(UniqueFunction<void(TcpStream::State)> onState);
    void receive(UniqueFunction<void(TcpStream::Received)> onReceived);
    void send(std::vector<Bytes> buffers, UniqueFunction<void(bool)> onWritten);
    [[nodiscard]] bool sendNow(ByteView bytes);
    void cancel();
    // From any thread: no callback begins after this.
    void drop();
    void abandon() override;

private:
    struct Send {
        std::vector<Bytes> buffers;
        UniqueFunction<void(bool)> onWritten;
    };

    void connect();
    void establish(std::error_code error);
    void report(TcpStream::State state);
    void readSome();
    void finishReceive(std::error_code error, std::size_t size);
    void scheduleFlush();
    void flush();
    // Writes until the system takes no more; the error, if any, is not "would block".
    [[nodiscard]] std::error_code writeSome();
    void consume(std::size_t written);
    void openShortCut(int fd);
    void setBusy(bool isBusy);
    void reportWritten();
    void failSends();
    void close();
    void forget();

    AsioLink* link_; // none once abandoned
    std::atomic<bool> isDropped_ = false;
    std::optional<AsioSocket> socket_;
    std::optional<asio::ip::tcp::endpoint> peer_; // still to be connected to
    std::optional<AsioTimer> connectTimeout_;
    UniqueFunction<void(TcpStream::State)> onState_;
    UniqueFunction<void(TcpStream::Received)> onReceived_;
    std::unique_ptr<std::array<std::uint8_t, TcpStream::kMaxReceive>> input_; // made by the first receive
    std::uint64_t received_ = 0;                                              // bytes, over the whole stream
    // Sends that are not reported yet, oldest first. Of those, `taken_` are with the system entirely, and of the next
    // one the buffers before `buffer_` and `offset_` bytes of that one.
    std::deque<Send> sends_;
    std::size_t taken_ = 0;
    std::size_t buffer_ = 0;
    std::size_t offset_ = 0;
    // What sendNow() may touch.
    struct ShortCut {
        std::mutex mutex;    // guards the rest, and is held while the descriptor is used or closed
        int fd = -1;         // of the socket while it is ready
        bool isBusy = false; // something waits in sends_, or is about to
    };
    ShortCut shortCut_;
    bool isReady_ = false;
    bool hasFailed_ = false;  // nothing can be written any more
    bool isFlushing_ = false; // a flush is posted, or waits for the socket
};

// The handle that owns a connection.
class AsioTcpStream final : public TcpStream {
public:
    explicit AsioTcpStream(std::shared_ptr<AsioTcpConnection> connection) : connection_(std::move(connection)) {}
    ~AsioTcpStream() override { connection_->drop(); }
    AsioTcpStream(const AsioTcpStream&) = delete;
    AsioTcpStream& operator=(const AsioTcpStream&) = delete;

    void start(UniqueFunction<void(State)> onState) override { connection_->start(std::move(onState)); }
    void receive(UniqueFunction<void(Received)> onReceived) override { connection_->receive(std::move(onReceived)); }
    void send(std::vector<Bytes> buffers, UniqueFunction<void(bool)> onWritten) override {
        connection_->send(std::move(buffers), std::move(onWritten));
    }
    [[nodiscard]] bool sendNow(ByteView bytes) override { return connection_->sendNow(bytes); }
    void cancel() override { connection_->cancel(); }

private:
    std::shared_ptr<AsioTcpConnection> connection_;
};

} // namespace vexil
