// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/asio_tcp_stream.h"

#include <asio/buffer.hpp>
#include <asio/dispatch.hpp>
#include <asio/error.hpp>
#include <asio/post.hpp>
#include <fcntl.h>
#include <malloc.h>
#include <sys/socket.h>

#include <algorithm>
#include <cassert>
#include <chrono>
#include <utility>

namespace vexil {

namespace {

constexpr auto kConnectTimeout = std::chrono::seconds(3);
constexpr std::size_t kMaxGather = 64; // buffers in one system call

// What a peer made its reader keep in many small pieces lies scattered over pages that the allocator does not give
// back by itself. After a stream of more bytes than this it is told to.
constexpr std::uint64_t kTrimAfter = 1U << 20;

// Up to kMaxGather buffers of one write, without memory of its own.
class Gather {
public:
    using const_iterator = const asio::const_buffer*;
    [[nodiscard]] const_iterator begin() const { return buffers_.data(); }
    [[nodiscard]] const_iterator end() const { return buffers_.data() + size_; }
    [[nodiscard]] bool isFull() const { return size_ == buffers_.size(); }
    void add(ByteView bytes) {
        if (!bytes.empty())
            buffers_[size_++] = asio::const_buffer(bytes.data(), bytes.size());
    }

private:
    std::array<asio::const_buffer, kMaxGather> buffers_;
    std::size_t size_ = 0;
};

// Nothing waits for the peer in a write, and what the program starts does not inherit the socket.
std::error_code prepare(AsioSocket& socket) {
    std::error_code error;
    if (::fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC) != 0)
        return {errno, std::system_category()};
    socket.non_blocking(true, error);
    if (!error)
        socket.set_option(asio::ip::tcp::no_delay(true), error);
    return error;
}

} // namespace

void AsioLink::add(AsioLinkMember& member) {
    const std::lock_guard lock(mutex);
    members.insert(&member);
}

void AsioLink::remove(AsioLinkMember& member) {
    const std::lock_guard lock(mutex);
    members.erase(&member);
}

AsioTcpConnection::AsioTcpConnection(AsioLink& link, AsioSocket socket) : link_(&link), socket_(std::move(socket)) {
    link.add(*this);
}

AsioTcpConnection::AsioTcpConnection(AsioLink& link, const asio::ip::tcp::endpoint& peer) : link_(&link), peer_(peer) {
    link.add(*this);
}

AsioTcpConnection::~AsioTcpConnection() {
    if (link_ != nullptr)
        link_->remove(*this);
}

void AsioTcpConnection::abandon() {
    openShortCut(-1);
    connectTimeout_.reset();
    socket_.reset();
    link_ = nullptr;
}

void AsioTcpConnection::drop() {
    isDropped_ = true;
    if (link_ == nullptr) {
        forget();
        return;
    }
    asio::dispatch(link_->context, [self = shared_from_this()] {
        self->close();
        self->forget();
        if (self->received_ > kTrimAfter)
            ::malloc_trim(0);
    });
}

void AsioTcpConnection::forget() {
    // A callback may own the very object that a neighbour of it refers to: none is destroyed before all are out.
    const auto onState = std::exchange(onState_, nullptr);
    const auto onReceived = std::exchange(onReceived_, nullptr);
    const auto sends = std::exchange(sends_, {});
    taken_ = buffer_ = offset_ = 0;
}

void AsioTcpConnection::close() {
    connectTimeout_.reset();
    if (!socket_)
        return;
    openShortCut(-1);
    std::error_code ignored; // a socket that was never connected, or is broken, has nothing left to shut down
    socket_->shutdown(AsioSocket::shutdown_both, ignored);
    socket_->close(ignored);
    socket_.reset();
}

// --- Becoming ready

void AsioTcpConnection::start(UniqueFunction<void(TcpStream::State)> onState) {
    assert(!onState_);
    if (link_ == nullptr)
        return;
    onState_ = std::move(onState);
    if (peer_)
        connect();
    else
        asio::post(link_->context, [self = shared_from_this()] { self->establish({}); });
}

void AsioTcpConnection::connect() {
    std::error_code error;
    try {
        socket_.emplace(link_->context);
        connectTimeout_.emplace(link_->context, kConnectTimeout);
    } catch (const std::system_error& failure) { // the context has no way to watch sockets
        error = failure.code();
    }
    if (!error)
        socket_->open(peer_->protocol(), error);
    if (error) {
        asio::post(link_->context, [self = shared_from_this(), error] { self->establish(error); });
        return;
    }
    socket_->async_connect(*peer_, [self = shared_from_this()](std::error_code result) { self->establish(result); });
    connectTimeout_->async_wait([weak = weak_from_this()](std::error_code cancelled) {
        const auto self = weak.lock();
        std::error_code ignored;
        // Closing makes the connect complete, with an error.
        if (self && !cancelled && !self->isReady_ && self->socket_)
            self->socket_->close(ignored);
    });
}

void AsioTcpConnection::establish(std::error_code error) {
    connectTimeout_.reset();
    if (!socket_ && !error)
        return; // cancelled meanwhile
    if (!error)
        error = prepare(*socket_);
    // A connect to a free port of the range that the system hands out may, once in a while, meet itself.
    if (!error && peer_ && socket_->local_endpoint(error) == *peer_)
        error = asio::error::connection_refused;
    if (error) {
        if (error != asio::error::operation_aborted || socket_)
            report(TcpStream::State::failed);
        close();
        if (onReceived_)
            finishReceive(error, 0);
        failSends();
        return;
    }
    isReady_ = true;
    openShortCut(socket_->native_handle());
    if (!sends_.empty())
        scheduleFlush();
    if (onReceived_)
        readSome();
    report(TcpStream::State::ready);
}

void AsioTcpConnection::report(TcpStream::State state) {
    if (state == TcpStream::State::failed && std::exchange(hasFailed_, true))
        return;
    if (isDropped_ || !onState_)
        return;
    auto onState = std::move(onState_);
    onState(state);
    if (!isDropped_)
        onState_ = std::move(onState);
}

// --- Reading

void AsioTcpConnection::receive(UniqueFunction<void(TcpStream::Received)> onReceived) {
    assert(!onReceived_);
    if (link_ == nullptr)
        return;
    onReceived_ = std::move(onReceived);
    if (socket_ && isReady_) {
        readSome();
    } else if (!socket_ && (isReady_ || hasFailed_)) {
        asio::post(link_->context,
                   [self = shared_from_this()] { self->finishReceive(asio::error::operation_aborted, 0); });
    }
}

void AsioTcpConnection::readSome() {
    if (!input_)
        input_ = std::make_unique_for_overwrite<std::array<std::uint8_t, TcpStream::kMaxReceive>>();
    // Tries the socket at once, unless the last read has emptied it, and completes from the top of a task either way.
    socket_->async_read_some(
        asio::buffer(*input_),
        [self = shared_from_this()](std::error_code error, std::size_t size) { self->finishReceive(error, size); });
}

void AsioTcpConnection::finishReceive(std::error_code error, std::size_t size) {
    if (isDropped_ || !onReceived_)
        return;
    received_ += size;
    if (!socket_)
        error = asio::error::operation_aborted; // what came just before the end is not delivered after it
    auto onReceived = std::exchange(onReceived_, nullptr);
    const bool isComplete = static_cast<bool>(error);
    onReceived({isComplete ? ByteView() : ByteView(input_->data(), size), isComplete});
    if (isComplete && error != asio::error::eof && error != asio::error::operation_aborted)
        report(TcpStream::State::failed);
}

// --- Writing

void AsioTcpConnection::send(std::vector<Bytes> buffers, UniqueFunction<void(bool)> onWritten) {
    if (link_ == nullptr)
        return;
    setBusy(true);
    sends_.push_back({std::move(buffers), std::move(onWritten)});
    if (isReady_ || hasFailed_)
        scheduleFlush();
}

// The write waits for the tasks that are queued already, so that what they send goes out with it.
void AsioTcpConnection::scheduleFlush() {
    if (std::exchange(isFlushing_, true))
        return;
    asio::post(link_->context, [self = shared_from_this()] {
        self->isFlushing_ = false;
        self->flush();
    });
}

void AsioTcpConnection::flush() {
    if (isDropped_)
        return;
    const bool isBroken = !socket_ || hasFailed_ || writeSome();
    if (!isBroken && taken_ < sends_.size()) {
        isFlushing_ = true;
        socket_->async_wait(AsioSocket::wait_write, [self = shared_from_this()](std::error_code) {
            self->isFlushing_ = false;
            self->flush();
        });
    }
    reportWritten();
    if (!isBroken || isDropped_)
        return;
    if (socket_)
        report(TcpStream::State::failed);
    failSends();
}

std::error_code AsioTcpConnection::writeSome() {
    while (taken_ < sends_.size()) {
        Gather gather;
        std::size_t buffer = buffer_;
        std::size_t offset = offset_;
        for (std::size_t i = taken_; i < sends_.size() && !gather.isFull(); ++i, buffer = 0) {
            for (; buffer < sends_[i].buffers.size() && !gather.isFull(); ++buffer, offset = 0)
                gather.add(ByteView(sends_[i].buffers[buffer]).subspan(offset));
        }
        std::error_code error;
        const std::size_t written = gather.begin() == gather.end() ? 0 : socket_->write_some(gather, error);
        if (error == asio::error::would_block || error == asio::error::try_again)
            return {};
        if (error)
            return error;
        consume(written);
    }
    return {};
}

void AsioTcpConnection::consume(std::size_t written) {
    while (taken_ < sends_.size()) {
        const auto& buffers = sends_[taken_].buffers;
        for (; buffer_ < buffers.size(); ++buffer_, offset_ = 0) {
            const std::size_t size = std::min(written, buffers[buffer_].size() - offset_);
            offset_ += size;
            written -= size;
            if (offset_ < buffers[buffer_].size())
                return;
        }
        ++taken_;
        buffer_ = 0;
    }
}

void AsioTcpConnection::reportWritten() {
    while (taken_ > 0 && !isDropped_) {
        Send send = std::move(sends_.front());
        sends_.pop_front();
        --taken_;
        if (sends_.empty())
            setBusy(false);
        if (send.onWritten)
            send.onWritten(true);
    }
}

// --- Writing from the main queue

void AsioTcpConnection::openShortCut(int fd) {
    const std::lock_guard lock(shortCut_.mutex);
    shortCut_.fd = fd;
}

void AsioTcpConnection::setBusy(bool isBusy) {
    const std::lock_guard lock(shortCut_.mutex);
    shortCut_.isBusy = isBusy;
}

bool AsioTcpConnection::sendNow(ByteView bytes) {
    const std::lock_guard lock(shortCut_.mutex);
    if (shortCut_.fd < 0 || shortCut_.isBusy)
        return false;
    const auto sent = ::send(shortCut_.fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0)
        return false; // a send through the queue meets the same, and deals with it
    const auto rest = bytes.subspan(static_cast<std::size_t>(sent));
    if (!rest.empty()) {
        shortCut_.isBusy = true;
        std::vector<Bytes> buffers;
        buffers.push_back(copyOf(rest));
        asio::post(link_->context, [self = shared_from_this(), buffers = std::move(buffers)]() mutable {
            self->send(std::move(buffers), nullptr);
        });
    }
    return true;
}

void AsioTcpConnection::failSends() {
    while (!sends_.empty() && !isDropped_) {
        Send send = std::move(sends_.front());
        sends_.pop_front();
        const bool isTaken = taken_ > 0;
        taken_ -= isTaken ? 1 : 0;
        buffer_ = offset_ = 0;
        if (send.onWritten)
            send.onWritten(isTaken);
    }
}

void AsioTcpConnection::cancel() {
    if (link_ == nullptr)
        return;
    close();
    hasFailed_ = true;
    // An operation of the socket completes with an error by itself; what waits for none is told here.
    asio::post(link_->context, [self = shared_from_this()] {
        self->finishReceive(asio::error::operation_aborted, 0);
        self->failSends();
    });
}

} // namespace vexil
