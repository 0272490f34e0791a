// SPDX-License-Identifier: Apache-2.0
// Two connections joined by a real socket: their pipelines run on the link thread while the main queue is at work.
#include "link/clipboard_link_connection.h"
#include "platform/linux/asio_loopback_tcp.h"
#include "platform/linux/glib_main_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace vexil {
namespace {

using namespace std::chrono_literals;

class LinkOverSocketsTest : public testing::Test {
protected:
    using Message = ClipboardLinkConnection::Message;

    LinkOverSocketsTest() { open(); }

    void open() {
        isOpen = false;
        LoopbackTcp::ListenerEvents events;
        events.onReady = [this](std::uint16_t port) {
            near.emplace(queue, network, network.connect(port));
            near->start();
        };
        events.onFailed = [] { FAIL() << "the listener failed"; };
        events.onConnection = [this](std::unique_ptr<TcpStream> stream) {
            far.emplace(queue, network, std::move(stream));
            far->onReady = [this] { isOpen = true; };
            far->start();
        };
        listener = network.listen(std::move(events));
        runUntil([this] { return isOpen; });
    }

    // Fails the test where that takes longer than any sane run.
    void runUntil(const std::function<bool()>& isDone) {
        const TimePoint patience = queue.now() + 60s;
        std::function<void()> look = [&] {
            if (isDone() || queue.now() > patience)
                queue.quit();
            else
                poll = queue.after(1ms, [&] { look(); });
        };
        queue.post([&] { look(); });
        queue.run();
        EXPECT_TRUE(isDone());
    }

    static void keepBusy(Duration time) { std::this_thread::sleep_for(time); }

    GlibMainQueue queue;
    AsioLoopbackTcp network{queue};
    std::unique_ptr<TcpListener> listener;
    std::optional<ClipboardLinkConnection> near;
    std::optional<ClipboardLinkConnection> far;
    bool isOpen = false;
    Timer poll;
};

TEST_F(LinkOverSocketsTest, ShortAndLongMessagesArriveWholeAndInOrderWhileTheMainQueueIsSlow) {
    constexpr int kMessages = 1500;
    std::mt19937 random(std::random_device{}());
    const auto seed = random();
    SCOPED_TRACE("seed " + std::to_string(seed));
    random.seed(seed);
    const auto sizeOf = [](int number) { return number % 97 == 0 ? std::size_t{3} << 20U : std::size_t(number) * 7; };

    std::vector<int> received;
    far->onEvent = [&](const Message& event) {
        const auto& change = std::get<ClipboardPasteboardChange>(event.payload);
        const int number = std::stoi(change.text.value_or("-1"));
        received.push_back(number);
        ASSERT_EQ(event.attachment.has_value(), change.hasAttachment);
        if (event.attachment) {
            ASSERT_EQ(event.attachment->size(), sizeOf(number));
            EXPECT_TRUE(event.attachment->empty() || event.attachment->back() == static_cast<std::uint8_t>(number));
        }
        if (number % 50 == 0)
            keepBusy(5ms);
    };
    int sent = 0;
    std::function<void()> sendSome = [&] {
        for (auto burst = random() % 40; burst > 0 && sent < kMessages; --burst, ++sent) {
            const bool hasAttachment = random() % 3 == 0;
            std::optional<Bytes> attachment;
            if (hasAttachment)
                attachment.emplace(Bytes(sizeOf(sent), static_cast<std::uint8_t>(sent)));
            near->sendEvent(ClipboardLinkMethod::pasteboardChanged,
                            ClipboardPasteboardChange{ClipboardKind::text, std::to_string(sent), hasAttachment},
                            std::move(attachment));
        }
        if (sent < kMessages)
            queue.post([&] { sendSome(); });
    };
    queue.post([&] { sendSome(); });
    runUntil([&] { return received.size() == kMessages; });
    std::vector<int> expected(kMessages);
    for (int i = 0; i < kMessages; ++i)
        expected[static_cast<std::size_t>(i)] = i;
    EXPECT_EQ(received, expected);
}

TEST_F(LinkOverSocketsTest, EveryRequestIsAnsweredFromBothEndsAtOnce) {
    constexpr int kRequests = 2000;
    int answered = 0;
    const auto answer = [](std::optional<ClipboardLinkConnection>& end) {
        return [&end](const Message& request) {
            const auto& ref = std::get<ClipboardEntryRef>(request.payload);
            end->respond(request, ClipboardLinkPayload(ClipboardEntryPayload{
                                      ClipboardKind::text, ref.id.toString() + std::string(3000, 'x'), false}));
        };
    };
    near->onRequest = answer(near);
    far->onRequest = answer(far);
    for (int i = 0; i < kRequests; ++i) {
        const Uuid id = Uuid::random();
        auto& end = i % 2 == 0 ? near : far;
        end->sendRequest(ClipboardLinkMethod::entryPayload, ClipboardEntryRef{id, ClipboardScope::history},
                         std::nullopt, [&answered, id](const auto& outcome) {
                             ASSERT_TRUE(outcome) << outcome.error().code;
                             const auto& payload = std::get<ClipboardEntryPayload>(outcome->payload);
                             EXPECT_EQ(payload.text.value_or("").substr(0, 36), id.toString());
                             ++answered;
                         });
    }
    runUntil([&] { return answered == kRequests; });
}

TEST_F(LinkOverSocketsTest, AFloodWaitsForTheMainQueueAndNothingIsLost) {
    constexpr int kEvents = 20'000;
    int received = 0;
    far->onEvent = [&](const Message&) {
        if (++received % 4000 == 0)
            keepBusy(20ms);
    };
    for (int i = 0; i < kEvents; ++i)
        near->sendEvent(ClipboardLinkMethod::storeChanged, {});
    runUntil([&] { return received == kEvents; });
}

TEST_F(LinkOverSocketsTest, EitherEndMayCloseOrGoWhileMessagesAreUnderWay) {
    std::mt19937 random(7);
    for (int round = 0; round < 40; ++round) {
        if (round > 0)
            open();
        int completions = 0;
        int closes = 0;
        near->onClose = [&] { ++closes; };
        for (int i = 0; i < 30; ++i) {
            near->sendRequest(ClipboardLinkMethod::entryUse, ClipboardEntryRef{}, Bytes(random() % 300'000),
                              [&](const auto&) { ++completions; });
            far->sendEvent(ClipboardLinkMethod::storeChanged, {});
        }
        keepBusy(std::chrono::microseconds(random() % 2000));
        if (round % 3 == 0)
            far.reset();
        else if (round % 3 == 1)
            far->close();
        else
            near->close();
        runUntil([&] { return completions == 30 && closes == 1; });
        near.reset();
        far.reset();
    }
}

} // namespace
} // namespace vexil
