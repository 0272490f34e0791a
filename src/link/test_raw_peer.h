// SPDX-License-Identifier: Apache-2.0
// The other end of a link for tests that write the bytes themselves.
#pragma once

#include "platform/memory/memory_loopback_tcp.h"
#include "platform/memory/memory_main_queue.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vexil {

class TestRawPeer {
public:
    TestRawPeer(MemoryMainQueue& mainQueue, MemoryLoopbackTcp& network, std::uint16_t port)
        : mainQueue_(mainQueue), network_(network), stream_(network.connect(port)) {
        network_.queue().post([this] {
            stream_->start([](TcpStream::State) {});
            receive();
        });
        mainQueue_.runUntilIdle();
    }

    void send(Bytes bytes) {
        queueSend(std::move(bytes));
        mainQueue_.runUntilIdle();
    }
    // Nothing runs yet.
    void queueSend(Bytes bytes) {
        network_.queue().post([this, bytes = std::move(bytes)]() mutable {
            std::vector<Bytes> buffers;
            buffers.push_back(std::move(bytes));
            stream_->send(std::move(buffers), [](bool) {});
        });
    }
    void end() {
        stream_.reset();
        mainQueue_.runUntilIdle();
    }

    [[nodiscard]] const Bytes& received() const { return received_; }
    // The JSON of the frames among the rest.
    [[nodiscard]] std::string text() const { return std::string(textOf(received_)); }
    [[nodiscard]] bool hasEnded() const { return hasEnded_; }

    static Bytes frame(std::uint8_t type, std::string_view body) {
        const auto length = static_cast<std::uint32_t>(body.size() + 1);
        Bytes bytes{static_cast<std::uint8_t>(length >> 24U), static_cast<std::uint8_t>(length >> 16U),
                    static_cast<std::uint8_t>(length >> 8U), static_cast<std::uint8_t>(length), type};
        const auto view = bytesOf(body);
        bytes.insert(bytes.end(), view.begin(), view.end());
        return bytes;
    }

    // An envelope frame without a payload.
    static Bytes envelope(std::string_view kind, std::string_view id, std::string_view method = "store.changed") {
        return frame(1, R"({"v":1,"id":")" + std::string(id) + R"(","t":")" + std::string(kind) + R"(","m":")" +
                            std::string(method) + "\"}");
    }

private:
    void receive() {
        stream_->receive([this](const TcpStream::Received& chunk) {
            received_.insert(received_.end(), chunk.bytes.begin(), chunk.bytes.end());
            hasEnded_ = chunk.isComplete;
            if (!hasEnded_)
                receive();
        });
    }

    MemoryMainQueue& mainQueue_;
    MemoryLoopbackTcp& network_;
    std::unique_ptr<TcpStream> stream_;
    Bytes received_;
    bool hasEnded_ = false;
};

} // namespace vexil
