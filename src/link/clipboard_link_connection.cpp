// SPDX-License-Identifier: Apache-2.0
#include "link/clipboard_link_connection.h"

#include "base/uuid.h"
#include "link/clipboard_link_errors.h"
#include "link/clipboard_link_pipeline.h"

#include <utility>

namespace vexil {

namespace {

ClipboardLinkHeader makeHeader(std::string id, ClipboardLinkEnvelopeKind kind, std::string_view method) {
    return {.v = kClipboardLinkVersion, .id = std::move(id), .t = kind, .m = std::string(method), .e = std::nullopt};
}

} // namespace

ClipboardLinkConnection::ClipboardLinkConnection(MainQueue& mainQueue, LoopbackTcp& network,
                                                 std::unique_ptr<TcpStream> stream)
    : mainQueue_(mainQueue) {
    Pipeline::Events events;
    events.onReady = lifetime_.guard([this] {
        if (!isClosed_ && onReady)
            onReady();
    });
    events.onMessage = lifetime_.guard([this](Message message) { deliver(std::move(message)); });
    events.onEnd = lifetime_.guard([this] { close(); });
    pipeline_ = std::make_shared<Pipeline>(mainQueue, network, std::move(stream), std::move(events));
}

ClipboardLinkConnection::~ClipboardLinkConnection() {
    pipeline_->cancel();
}

void ClipboardLinkConnection::start() {
    pipeline_->start();
}

void ClipboardLinkConnection::deliver(Message message) {
    if (isClosed_)
        return;
    switch (message.header.t) {
    case ClipboardLinkEnvelopeKind::request:
        call(onRequest, std::move(message));
        break;
    case ClipboardLinkEnvelopeKind::event:
        call(onEvent, std::move(message));
        break;
    case ClipboardLinkEnvelopeKind::response: {
        const std::string id = message.header.id;
        if (message.header.e)
            complete(id, Failure{std::move(*message.header.e)});
        else
            complete(id, std::move(message));
        break;
    }
    }
}

// The callback may close the connection, and whoever hears of that may destroy it: it is kept outside while it runs.
void ClipboardLinkConnection::call(UniqueFunction<void(Message)>& callback, Message message) {
    if (!callback)
        return;
    auto running = std::exchange(callback, nullptr);
    auto putBack = lifetime_.guard([&callback, &running] {
        if (!callback)
            callback = std::move(running);
    });
    running(std::move(message));
    putBack();
}

void ClipboardLinkConnection::complete(const std::string& id, Result<Response, ClipboardLinkError> outcome) {
    auto found = pending_.extract(id);
    if (found.empty())
        return; // it came too late, or nobody asked
    pipeline_->forget(id);
    found.mapped().timeout.cancel();
    found.mapped().completion(std::move(outcome));
}

std::string ClipboardLinkConnection::sendRequest(ClipboardLinkMethod method, ClipboardLinkPayload payload,
                                                 std::optional<Bytes> attachment, Completion completion) {
    std::string id = Uuid::random().toString();
    Pipeline::Outgoing message{.header = makeHeader(id, ClipboardLinkEnvelopeKind::request, nameOf(method)),
                               .payload = std::move(payload),
                               .attachment = std::move(attachment)};
    if (isClosed_) {
        failLater(std::move(completion));
        return id;
    }
    if (completion) {
        auto failWith = [this, id](const link_error::Known& error) {
            return lifetime_.guard([this, id, error] { complete(id, Failure{ClipboardLinkError(error)}); });
        };
        pending_.emplace(id, Pending{.completion = std::move(completion),
                                     .timeout = mainQueue_.after(kRequestTimeout, failWith(link_error::kTimeout))});
        pipeline_->await(id);
        message.onTooLarge = failWith(link_error::kTooLarge);
    }
    pipeline_->send(std::move(message));
    return id;
}

void ClipboardLinkConnection::failLater(Completion completion) {
    if (!completion)
        return;
    mainQueue_.post([completion = std::move(completion)]() mutable {
        completion(Failure{ClipboardLinkError(link_error::kClosed)});
    });
}

void ClipboardLinkConnection::sendEvent(ClipboardLinkMethod method, ClipboardLinkPayload payload,
                                        std::optional<Bytes> attachment) {
    if (isClosed_)
        return;
    const auto id = Uuid::random().toString();
    pipeline_->send({.header = makeHeader(id, ClipboardLinkEnvelopeKind::event, nameOf(method)),
                     .payload = std::move(payload),
                     .attachment = std::move(attachment)});
}

void ClipboardLinkConnection::respond(const Request& request, Reply reply, std::optional<Bytes> attachment,
                                      Task onWritten) {
    if (isClosed_)
        return;
    Pipeline::Outgoing message{.header =
                                   makeHeader(request.header.id, ClipboardLinkEnvelopeKind::response, request.header.m),
                               .attachment = std::move(attachment),
                               .onWritten = std::move(onWritten)};
    if (reply) {
        message.payload = std::move(*reply);
        // The peer waits for an answer: tell it at least why there is none.
        message.onTooLarge = lifetime_.guard([this, header = message.header]() mutable {
            header.e = link_error::kTooLarge;
            pipeline_->send({.header = std::move(header)});
        });
    } else {
        message.header.e = std::move(reply).error();
    }
    pipeline_->send(std::move(message));
}

void ClipboardLinkConnection::close() {
    if (isClosed_)
        return;
    isClosed_ = true;
    pipeline_->cancel();
    auto pending = std::exchange(pending_, {});
    for (auto& [id, request] : pending)
        request.timeout.cancel();
    // A completion, and onClose itself, may be what destroys the connection.
    auto tellOwner = lifetime_.guard([this] {
        if (auto callback = std::exchange(onClose, nullptr))
            callback();
    });
    for (auto& [id, request] : pending)
        request.completion(Failure{ClipboardLinkError(link_error::kClosed)});
    tellOwner();
}

} // namespace vexil
