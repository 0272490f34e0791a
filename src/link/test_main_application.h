// SPDX-License-Identifier: Apache-2.0
// A main application for tests: the other end of the link on a memory network.
#pragma once

#include "link/clipboard_link_connection.h"
#include "link/clipboard_records.h"
#include "platform/memory/memory_loopback_tcp.h"
#include "platform/memory/memory_main_queue.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vexil {

// Records what it is told and answers only what a test has it answer.
class TestMainApplication {
public:
    using Message = ClipboardLinkConnection::Message;
    using Outcome = Result<Message, ClipboardLinkError>;

    TestMainApplication(MemoryMainQueue& mainQueue, MemoryLoopbackTcp& network, std::uint16_t port)
        : mainQueue_(mainQueue), connection_(mainQueue, network, network.connect(port)) {
        connection_.onRequest = [this](Message request) { requests.push_back(std::move(request)); };
        connection_.onEvent = [this](Message event) { events.push_back(std::move(event)); };
        connection_.onClose = [this] { ++closes; };
        connection_.start();
        mainQueue_.runUntilIdle();
    }

    Outcome hello(const std::string& nonce) {
        return ask(ClipboardLinkMethod::hello, ClipboardHello{.nonce = nonce, .app = "Test", .build = "1"});
    }

    // The outcome of a request once nothing more happens; "unanswered" where there is none yet.
    Outcome ask(ClipboardLinkMethod method, ClipboardLinkPayload payload) {
        auto outcome = std::make_shared<std::optional<Outcome>>();
        connection_.sendRequest(method, std::move(payload), std::nullopt,
                                [outcome](Outcome result) { *outcome = std::move(result); });
        mainQueue_.runUntilIdle();
        if (*outcome)
            return std::move(**outcome);
        return Failure{ClipboardLinkError{"unanswered", ""}};
    }

    void tell(ClipboardLinkMethod method, ClipboardLinkPayload payload = {}) {
        connection_.sendEvent(method, std::move(payload));
        mainQueue_.runUntilIdle();
    }

    // Answers the oldest request that has not been answered.
    void answer(ClipboardLinkConnection::Reply reply, std::optional<Bytes> attachment = std::nullopt) {
        connection_.respond(requests.front(), std::move(reply), std::move(attachment));
        requests.erase(requests.begin());
        mainQueue_.runUntilIdle();
    }

    [[nodiscard]] std::vector<std::string> requestedMethods() const {
        std::vector<std::string> methods;
        for (const auto& request : requests)
            methods.push_back(request.header.m);
        return methods;
    }

    ClipboardLinkConnection& connection() { return connection_; }

    std::vector<Message> requests; // not answered yet
    std::vector<Message> events;
    int closes = 0;

private:
    MemoryMainQueue& mainQueue_;
    ClipboardLinkConnection connection_;
};

// Names, for the records of a test.
inline ClipboardStoreSnapshot snapshotOfRevision(std::int64_t revision) {
    return {.revision = revision, .history = {}, .favorites = {}, .categories = {}};
}

} // namespace vexil
