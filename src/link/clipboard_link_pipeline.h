// SPDX-License-Identifier: Apache-2.0
// The half of a link connection that lives on the network's queue: bytes in, messages out, and the other way round.
#pragma once

#include "base/bytes.h"
#include "base/unique_function.h"
#include "link/attachment_stage.h"
#include "link/clipboard_link_connection.h"
#include "link/frame_decoder.h"
#include "platform/loopback_tcp.h"
#include "platform/main_queue.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace vexil {

// Shared between the connection and the callbacks of its stream. The public methods are called on the main queue and
// hand over to the network's queue; the events are called on the main queue. A short message that nothing waits in
// front of is written from the main queue: that takes less time than to wake the other thread for it.
class ClipboardLinkConnection::Pipeline : public std::enable_shared_from_this<Pipeline> {
public:
    struct Events {
        UniqueFunction<void()> onReady;
        UniqueFunction<void(Message)> onMessage;
        UniqueFunction<void()> onEnd; // possibly more than once
    };

    // What goes out: an envelope with its attachment, and whom to tell.
    struct Outgoing {
        ClipboardLinkHeader header;
        ClipboardLinkPayload payload = {};
        std::optional<Bytes> attachment = std::nullopt;
        Task onWritten = nullptr;  // main queue
        Task onTooLarge = nullptr; // main queue; no frame can hold it, and nothing was written
    };

    Pipeline(MainQueue& mainQueue, LoopbackTcp& network, std::unique_ptr<TcpStream> stream, Events events);

    void start();
    // Whether a response with this id is waited for: the payloads of others are not even read.
    void await(const std::string& id);
    void forget(const std::string& id);
    void send(Outgoing message);
    void cancel();

private:
    void stateChanged(TcpStream::State state);
    void receive();
    void received(const TcpStream::Received& chunk);
    [[nodiscard]] bool takeFrames(ByteView chunk);
    void takeEnvelope(const Bytes& body);
    [[nodiscard]] bool isAwaited(const std::string& id);
    void deliver(Message message, std::size_t size);
    void handled(std::size_t size);
    [[nodiscard]] bool isMainQueueBehind() const;
    void write(Outgoing message);
    [[nodiscard]] bool sendNow(Outgoing& message);
    [[nodiscard]] static std::vector<Bytes> encode(Outgoing& message);
    void written(std::size_t size, bool isWritten, Task onWritten);
    void end();

    MainQueue& mainQueue_;
    LoopbackTcp& network_;
    std::unique_ptr<TcpStream> stream_;
    Events events_;
    FrameDecoder decoder_;
    AttachmentStage stage_{kMaxStagedBytes};
    bool hasEnded_ = false;
    std::size_t unsentBytes_ = 0;
    std::atomic<std::size_t> unhandledBytes_ = 0;
    std::atomic<std::size_t> unhandledEnvelopes_ = 0;
    std::atomic<bool> isPaused_ = false;
    std::mutex mutex_; // guards awaited_
    std::unordered_set<std::string> awaited_;
    std::atomic<int> messagesOnTheWay_ = 0; // from send() to the stream
};

} // namespace vexil
