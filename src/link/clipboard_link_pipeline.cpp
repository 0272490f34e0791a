// SPDX-License-Identifier: Apache-2.0
#include "link/clipboard_link_pipeline.h"

#include "link/frame.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace vexil {

namespace {

// So short that to encode it costs the main queue less than to wake another thread. A reply repeats what the peer chose
// as id and method, which may be of any length.
bool isShort(const ClipboardLinkHeader& header, const ClipboardLinkPayload& payload) {
    constexpr std::size_t kMaxShort = 4096;
    return header.id.size() + header.m.size() + sizeHintOf(payload) <= kMaxShort;
}

} // namespace

ClipboardLinkConnection::Pipeline::Pipeline(MainQueue& mainQueue, LoopbackTcp& network,
                                            std::unique_ptr<TcpStream> stream, Events events)
    : mainQueue_(mainQueue), network_(network), stream_(std::move(stream)), events_(std::move(events)) {}

void ClipboardLinkConnection::Pipeline::start() {
    network_.queue().post([self = shared_from_this()] {
        self->stream_->start([weak = self->weak_from_this()](TcpStream::State state) {
            if (const auto alive = weak.lock())
                alive->stateChanged(state);
        });
    });
}

void ClipboardLinkConnection::Pipeline::await(const std::string& id) {
    const std::lock_guard lock(mutex_);
    awaited_.insert(id);
}

void ClipboardLinkConnection::Pipeline::forget(const std::string& id) {
    const std::lock_guard lock(mutex_);
    awaited_.erase(id);
}

bool ClipboardLinkConnection::Pipeline::isAwaited(const std::string& id) {
    const std::lock_guard lock(mutex_);
    return awaited_.contains(id);
}

void ClipboardLinkConnection::Pipeline::cancel() {
    network_.queue().post([self = shared_from_this()] {
        self->hasEnded_ = true;
        self->stream_->cancel();
    });
}

void ClipboardLinkConnection::Pipeline::stateChanged(TcpStream::State state) {
    if (hasEnded_)
        return;
    if (state == TcpStream::State::failed) {
        end();
        return;
    }
    mainQueue_.post([self = shared_from_this()] { self->events_.onReady(); });
    receive();
}

void ClipboardLinkConnection::Pipeline::receive() {
    stream_->receive([weak = weak_from_this()](const TcpStream::Received& chunk) {
        if (const auto alive = weak.lock())
            alive->received(chunk);
    });
}

void ClipboardLinkConnection::Pipeline::received(const TcpStream::Received& chunk) {
    if (hasEnded_)
        return;
    if (!takeFrames(chunk.bytes) || chunk.isComplete) {
        end();
        return;
    }
    if (isMainQueueBehind()) {
        isPaused_ = true;
        // The main queue may have caught up before it could see the flag.
        if (isMainQueueBehind() || !isPaused_.exchange(false))
            return;
    }
    receive();
}

// False where the link has to end: the stream is not one of frames, or stages more than we are ready to keep.
bool ClipboardLinkConnection::Pipeline::takeFrames(ByteView chunk) {
    while (auto item = decoder_.next(chunk)) {
        if (const auto* envelope = std::get_if<FrameDecoder::Envelope>(&*item))
            takeEnvelope(envelope->body);
        else if (auto* attachment = std::get_if<FrameDecoder::Attachment>(&*item);
                 attachment == nullptr || !stage_.put(std::move(attachment->id), std::move(attachment->bytes)))
            return false;
    }
    return true;
}

void ClipboardLinkConnection::Pipeline::takeEnvelope(const Bytes& body) {
    auto envelope = decodeEnvelope(body, [this](const ClipboardLinkHeader& header) {
        return header.t != ClipboardLinkEnvelopeKind::response || isAwaited(header.id);
    });
    if (!envelope)
        return;
    auto attachment = stage_.take(envelope->header.id);
    const std::size_t size = body.size() + (attachment ? attachment->size() : 0);
    deliver({.header = std::move(envelope->header),
             .payload = std::move(envelope->payload),
             .attachment = std::move(attachment)},
            size);
}

void ClipboardLinkConnection::Pipeline::deliver(Message message, std::size_t size) {
    unhandledBytes_ += size;
    ++unhandledEnvelopes_;
    mainQueue_.post([self = shared_from_this(), size, message = std::move(message)]() mutable {
        self->events_.onMessage(std::move(message));
        self->handled(size);
    });
}

bool ClipboardLinkConnection::Pipeline::isMainQueueBehind() const {
    return unhandledBytes_ > kMaxUnhandledBytes || unhandledEnvelopes_ > kMaxUnhandledEnvelopes;
}

void ClipboardLinkConnection::Pipeline::handled(std::size_t size) {
    unhandledBytes_ -= size;
    --unhandledEnvelopes_;
    if (isPaused_ && !isMainQueueBehind() && isPaused_.exchange(false))
        network_.queue().post([self = shared_from_this()] {
            if (!self->hasEnded_)
                self->receive();
        });
}

void ClipboardLinkConnection::Pipeline::send(Outgoing message) {
    if (sendNow(message))
        return;
    ++messagesOnTheWay_;
    network_.queue().post([self = shared_from_this(), message = std::move(message)]() mutable {
        if (!self->hasEnded_)
            self->write(std::move(message));
        --self->messagesOnTheWay_;
    });
}

bool ClipboardLinkConnection::Pipeline::sendNow(Outgoing& message) {
    // Whoever wants to know when a message is written closes the link then: all of it has to be out.
    if (message.attachment || message.onWritten || messagesOnTheWay_ > 0 || !isShort(message.header, message.payload))
        return false;
    const auto buffers = encode(message);
    return !buffers.empty() && stream_->sendNow(buffers.front());
}

void ClipboardLinkConnection::Pipeline::write(Outgoing message) {
    auto buffers = encode(message);
    if (buffers.empty()) {
        if (message.onTooLarge)
            mainQueue_.post(std::move(message.onTooLarge));
        return;
    }
    const std::size_t size = std::accumulate(buffers.begin(), buffers.end(), std::size_t{0},
                                             [](std::size_t sum, const Bytes& each) { return sum + each.size(); });
    unsentBytes_ += size;
    if (unsentBytes_ > kMaxUnsentBytes) {
        end();
        return;
    }
    stream_->send(std::move(buffers),
                  [weak = weak_from_this(), size, onWritten = std::move(message.onWritten)](bool isWritten) mutable {
                      if (const auto alive = weak.lock())
                          alive->written(size, isWritten, std::move(onWritten));
                  });
}

// The frames of a message, its attachment first; nothing where one of them would be too long.
std::vector<Bytes> ClipboardLinkConnection::Pipeline::encode(Outgoing& message) {
    Bytes envelope(kFrameHeaderSize);
    appendEnvelope(envelope, message.header, message.payload);
    const auto header = frameHeader(FrameType::envelope, envelope.size() - kFrameHeaderSize);
    if (!header)
        return {};
    std::copy(header->begin(), header->end(), envelope.begin());
    std::vector<Bytes> buffers;
    if (message.attachment) {
        const auto attachment = attachmentHeader(message.header.id, message.attachment->size());
        if (!attachment)
            return {};
        buffers.emplace_back(attachment->begin(), attachment->end());
        buffers.push_back(std::move(*message.attachment));
    }
    buffers.push_back(std::move(envelope));
    return buffers;
}

void ClipboardLinkConnection::Pipeline::written(std::size_t size, bool isWritten, Task onWritten) {
    unsentBytes_ -= size;
    if (isWritten && onWritten)
        mainQueue_.post(std::move(onWritten));
}

void ClipboardLinkConnection::Pipeline::end() {
    hasEnded_ = true;
    stream_->cancel();
    mainQueue_.post([self = shared_from_this()] { self->events_.onEnd(); });
}

} // namespace vexil
