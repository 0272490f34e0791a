// SPDX-License-Identifier: Apache-2.0
#include "bench/blocking_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace vexil::bench {

namespace {

constexpr std::size_t kHeaderBytes = 5;
constexpr std::size_t kBufferBytes = 262'144;
constexpr char kEnvelopeType = 1;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void setNoDelay(int fd) {
    const int on = 1;
    if (setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0)
        fail("TCP_NODELAY");
}

std::uint32_t lengthOf(std::string_view frame) {
    std::uint32_t length = 0;
    for (std::size_t i = 0; i < 4; ++i)
        length = (length << 8) | static_cast<unsigned char>(frame[i]);
    return length;
}

// The text after `key` up to the next quote.
std::string_view valueAfter(std::string_view json, std::string_view key) {
    const auto begin = json.find(key);
    if (begin == std::string_view::npos)
        return {};
    const auto value = json.substr(begin + key.size());
    return value.substr(0, value.find('"'));
}

} // namespace

BlockingSocket::BlockingSocket(std::uint16_t connectTo) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const auto address = loopback(connectTo);
    if (fd_ < 0 || connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        fail("connect");
    setNoDelay(fd_);
}

BlockingSocket::BlockingSocket(Listening) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const auto address = loopback(0);
    if (fd_ < 0 || bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(fd_, 1) != 0)
        fail("listen");
}

BlockingSocket::BlockingSocket(Adopted adopted) : fd_(adopted.fd) {
    setNoDelay(fd_);
}

BlockingSocket::~BlockingSocket() {
    if (fd_ >= 0)
        close(fd_);
}

std::uint16_t BlockingSocket::port() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        fail("getsockname");
    return ntohs(address.sin_port);
}

int BlockingSocket::acceptOne() const {
    const int fd = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0)
        fail("accept");
    return fd;
}

void BlockingSocket::sendAll(const void* bytes, std::size_t size) const {
    const auto* next = static_cast<const char*>(bytes);
    while (size > 0) {
        const auto sent = send(fd_, next, size, MSG_NOSIGNAL);
        if (sent < 0)
            fail("send");
        next += sent;
        size -= static_cast<std::size_t>(sent);
    }
}

std::size_t BlockingSocket::receiveSome(void* bytes, std::size_t size) const {
    const auto received = recv(fd_, bytes, size, 0);
    if (received < 0)
        fail("recv");
    return static_cast<std::size_t>(received);
}

void BlockingSocket::receiveAll(void* bytes, std::size_t size) const {
    auto* next = static_cast<char*>(bytes);
    while (size > 0) {
        const auto received = receiveSome(next, size);
        if (received == 0)
            fail("the stream ended");
        next += received;
        size -= received;
    }
}

void BlockingSocket::shutDown() const {
    shutdown(fd_, SHUT_RDWR);
}

BlockingPeer::BlockingPeer(std::uint16_t port) : socket_(port), thread_([this] { serve(); }) {}

BlockingPeer::~BlockingPeer() {
    socket_.shutDown();
    thread_.join();
}

void BlockingPeer::stayOn(const cpu_set_t& processors) {
    if (::pthread_setaffinity_np(thread_.native_handle(), sizeof processors, &processors) != 0)
        throw std::runtime_error("the peer cannot be placed");
}

void BlockingPeer::sayHello(const std::string& nonce) const {
    const auto frame = envelopeFrame(R"({"v":1,"id":"hello","t":"request","m":"hello","p":{"nonce":")" + nonce +
                                     R"(","app":"bench","build":"1"}})");
    socket_.sendAll(frame.data(), frame.size());
}

void BlockingPeer::serve() {
    std::vector<char> buffer(kBufferBytes);
    std::size_t have = 0;
    while (const auto received = socket_.receiveSome(buffer.data() + have, buffer.size() - have)) {
        have += received;
        const auto taken = takeFrames({buffer.data(), have});
        std::copy(buffer.begin() + static_cast<std::ptrdiff_t>(taken),
                  buffer.begin() + static_cast<std::ptrdiff_t>(have), buffer.begin());
        have -= taken;
    }
}

std::size_t BlockingPeer::takeFrames(std::string_view buffered) {
    const std::size_t whole = buffered.size();
    while (true) {
        const auto skipped = std::min(attachmentBytesToCome_, buffered.size());
        attachmentBytesToCome_ -= skipped;
        buffered.remove_prefix(skipped);
        if (buffered.size() < kHeaderBytes)
            break;
        const std::size_t body = lengthOf(buffered) - 1;
        if (buffered[4] != kEnvelopeType) {
            buffered.remove_prefix(kHeaderBytes);
            attachmentBytesToCome_ = body;
            continue;
        }
        if (buffered.size() < kHeaderBytes + body)
            break;
        takeEnvelope(buffered.substr(kHeaderBytes, body));
        buffered.remove_prefix(kHeaderBytes + body);
    }
    return whole - buffered.size();
}

void BlockingPeer::takeEnvelope(std::string_view body) {
    const auto kind = valueAfter(body, R"("t":")");
    if (kind == "event")
        events_.release();
    if (kind != "request")
        return;
    const auto reply =
        envelopeFrame(R"({"v":1,"id":")" + std::string(valueAfter(body, R"("id":")")) + R"(","t":"response","m":")" +
                      std::string(valueAfter(body, R"("m":")")) + R"(","p":{}})");
    socket_.sendAll(reply.data(), reply.size());
}

std::string envelopeFrame(std::string_view json) {
    const auto length = static_cast<std::uint32_t>(json.size() + 1);
    std::string frame;
    for (int shift = 24; shift >= 0; shift -= 8)
        frame.push_back(static_cast<char>((length >> shift) & 0xFF));
    frame.push_back(kEnvelopeType);
    frame += json;
    return frame;
}

} // namespace vexil::bench
