// SPDX-License-Identifier: Apache-2.0
// One link between the companion and the main application, seen from either end.
#pragma once

#include "base/bytes.h"
#include "base/lifetime.h"
#include "base/result.h"
#include "base/unique_function.h"
#include "link/clipboard_link_envelope.h"
#include "link/clipboard_link_method.h"
#include "link/clipboard_link_payload.h"
#include "platform/loopback_tcp.h"
#include "platform/main_queue.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

namespace vexil {

// Turns a TCP stream into requests, responses and events. Frames are cut, and JSON is read and written, on the
// network's queue; this object, its callbacks and its completions belong to the main queue, which only ever sees
// finished values. Any callback may close the connection; onClose may destroy it as well.
//
// What a peer can make us hold is bounded; past a bound the link closes (1, 2) or reading pauses (3):
//   1. attachments whose envelope has not come: kMaxStagedBytes;
//   2. what the peer does not take off the wire: kMaxUnsentBytes;
//   3. envelopes that the main queue has not handled yet: kMaxUnhandledBytes and kMaxUnhandledEnvelopes, after which
//      the peer waits in TCP's own flow control until the main queue has caught up.
class ClipboardLinkConnection {
public:
    struct Message {
        ClipboardLinkHeader header;
        ClipboardLinkPayload payload; // std::monostate where absent, undecodable, or of an unknown method
        std::optional<Bytes> attachment;
    };
    using Request = Message;
    using Response = Message;
    using Completion = UniqueFunction<void(Result<Response, ClipboardLinkError>)>;
    using Reply = Result<ClipboardLinkPayload, ClipboardLinkError>;

    static constexpr Duration kRequestTimeout = std::chrono::seconds(5);
    static constexpr std::size_t kMaxStagedBytes = 64U << 20;
    static constexpr std::size_t kMaxUnsentBytes = 64U << 20;
    static constexpr std::size_t kMaxUnhandledBytes = 32U << 20;
    static constexpr std::size_t kMaxUnhandledEnvelopes = 1024;

    // `mainQueue` and `network` outlive the connection. Destroying it closes the stream and drops completions unrun.
    ClipboardLinkConnection(MainQueue& mainQueue, LoopbackTcp& network, std::unique_ptr<TcpStream> stream);
    ~ClipboardLinkConnection();
    ClipboardLinkConnection(const ClipboardLinkConnection&) = delete;
    ClipboardLinkConnection& operator=(const ClipboardLinkConnection&) = delete;

    // Set before start().
    UniqueFunction<void()> onReady;
    UniqueFunction<void(Request)> onRequest;
    UniqueFunction<void(Message)> onEvent;
    UniqueFunction<void()> onClose; // once, after all completions have been failed

    void start();

    // Returns the id of the request. The completion, where given, runs exactly once: with the response, the error that
    // the peer answered, "timeout" after kRequestTimeout, or "closed". Without one the response is ignored.
    std::string sendRequest(ClipboardLinkMethod method, ClipboardLinkPayload payload,
                            std::optional<Bytes> attachment = std::nullopt, Completion completion = nullptr);

    void sendEvent(ClipboardLinkMethod method, ClipboardLinkPayload payload,
                   std::optional<Bytes> attachment = std::nullopt);

    // `onWritten` runs when the system has taken the reply, not when it could not.
    void respond(const Request& request, Reply reply, std::optional<Bytes> attachment = std::nullopt,
                 Task onWritten = nullptr);

    // Any number of times. Fails what is pending with "closed" / "Link closed", then calls onClose. Nothing that
    // arrives afterwards is delivered.
    void close();
    [[nodiscard]] bool isClosed() const { return isClosed_; }

private:
    class Pipeline;
    struct Pending {
        Completion completion;
        Timer timeout;
    };

    void deliver(Message message);
    void call(UniqueFunction<void(Message)>& callback, Message message);
    void complete(const std::string& id, Result<Response, ClipboardLinkError> outcome);
    void failLater(Completion completion);

    MainQueue& mainQueue_;
    std::shared_ptr<Pipeline> pipeline_;
    std::unordered_map<std::string, Pending> pending_;
    bool isClosed_ = false;
    Lifetime lifetime_;
};

} // namespace vexil
