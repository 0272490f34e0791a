// SPDX-License-Identifier: Apache-2.0
// The link over the real loopback interface, beside a bare blocking socket doing the same with the same peer.
#include "bench/blocking_peer.h"
#include "bench/harness.h"
#include "link/clipboard_link_server.h"
#include "platform/linux/asio_loopback_tcp.h"
#include "platform/linux/glib_main_queue.h"
#include "platform/linux/system_secure_random.h"

#include <sched.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace vexil::bench {
namespace {

constexpr std::size_t kImageBytes = 12U << 20;
constexpr std::size_t kRequestBytes = 300;
constexpr int kTripsPerRound = 500;

double median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// A listening server, linked with a peer that has said hello. The main queue runs only within runUntil().
class LinkedServer {
public:
    LinkedServer() {
        server.start();
        runUntil([this] { return server.port().has_value(); });
        peer.emplace(*server.port());
        peer->sayHello(server.nonce());
        runUntil([this] { return server.isConnected(); });
    }

    void runUntil(const std::function<bool()>& isDone) {
        const Timer check = checkUntil(isDone);
        queue.run();
    }

    GlibMainQueue queue;
    AsioLoopbackTcp network{queue};
    SystemSecureRandom random;
    ClipboardLinkServer server{queue, network, random};
    std::optional<BlockingPeer> peer;

private:
    Timer checkUntil(const std::function<bool()>& isDone) {
        return queue.after(std::chrono::milliseconds(1), [this, &isDone] {
            if (isDone())
                queue.quit();
            else
                next_ = checkUntil(isDone);
        });
    }

    Timer next_;
};

// The same peer at the other end of a bare socket.
struct PlainLink {
    PlainLink() : socket(BlockingSocket::acceptFrom([this](std::uint16_t port) { peer.emplace(port); })) {}
    PlainLink(const PlainLink&) = delete;
    PlainLink& operator=(const PlainLink&) = delete;
    ~PlainLink() { socket.shutDown(); }

    std::optional<BlockingPeer> peer;
    BlockingSocket socket;
};

Trial imageEvent() {
    auto linked = std::make_shared<LinkedServer>();
    auto plain = std::make_shared<PlainLink>();
    const Bytes image(kImageBytes, 0x5A);

    auto frames = std::make_shared<std::string>();
    const std::uint32_t length = kImageBytes + 37;
    for (int shift = 24; shift >= 0; shift -= 8)
        frames->push_back(static_cast<char>((length >> shift) & 0xFF));
    frames->push_back(2);
    frames->append(36, 'A');
    frames->append(kImageBytes, 0x5A);
    frames->append(envelopeFrame(R"({"v":1,"id":"A","t":"event","m":"pasteboard.changed","p":{"kind":"image"}})"));

    return {.measured =
                [linked, image] {
                    Bytes copy = image;
                    return millisecondsOf([&] {
                        linked->server.publishPasteboardChange(ClipboardKind::image, std::nullopt, std::move(copy));
                        linked->peer->awaitEvent();
                    });
                },
            .reference =
                [plain, frames] {
                    return millisecondsOf([&] {
                        plain->socket.sendAll(frames->data(), frames->size());
                        plain->peer->awaitEvent();
                    });
                }};
}

// A request whose frame is of kRequestBytes.
ClipboardEditRequest requestOfSize() {
    constexpr std::size_t kOverhead = 166; // the frame of the same request with an empty alias
    return {.id = Uuid(),
            .scope = ClipboardScope::history,
            .alias = std::string(kRequestBytes - kOverhead, 'a'),
            .categoryID = std::nullopt,
            .text = std::nullopt};
}

class RoundTrips {
public:
    explicit RoundTrips(LinkedServer& linked) : linked_(linked) {}

    double medianMicroseconds() {
        trips_.clear();
        linked_.queue.post([this] { next(); });
        linked_.queue.run();
        return median(trips_);
    }

private:
    void next() {
        const auto begin = std::chrono::steady_clock::now();
        linked_.server.editEntry(request_, [this, begin](const auto& outcome) {
            if (!outcome)
                throw std::runtime_error("the peer did not answer");
            trips_.push_back(
                std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count());
            if (trips_.size() < kTripsPerRound)
                next();
            else
                linked_.queue.quit();
        });
    }

    LinkedServer& linked_;
    ClipboardEditRequest request_ = requestOfSize();
    std::vector<double> trips_;
};

double plainRoundTrips(const BlockingSocket& socket, const std::string& request) {
    std::vector<double> trips(kTripsPerRound);
    std::vector<char> reply(4096);
    for (double& trip : trips) {
        trip = microsecondsOf([&] {
            socket.sendAll(request.data(), request.size());
            if (socket.receiveSome(reply.data(), reply.size()) == 0)
                throw std::runtime_error("the peer did not answer");
        });
    }
    return median(trips);
}

cpu_set_t only(std::size_t processor) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor, &one);
    return one;
}

// The first and the last of the processors that we may use: on a machine with one they are the same.
std::pair<std::size_t, std::size_t> twoProcessors() {
    static const cpu_set_t kAllowed = [] { // before a measure narrows it
        cpu_set_t set;
        if (::sched_getaffinity(0, sizeof set, &set) != 0)
            throw std::runtime_error("the processors are not known");
        return set;
    }();
    std::pair<std::size_t, std::size_t> found{CPU_SETSIZE, 0};
    for (std::size_t i = 0; i < CPU_SETSIZE; ++i) {
        if (CPU_ISSET(i, &kAllowed))
            found = {std::min(found.first, i), i};
    }
    return found;
}

// Whom a round trip is made with.
enum class Peer {
    onItsOwnProcessor, // as another program mostly is
    onOurs,
};

// Left alone it is chance where the scheduler wakes a thread, and waking a sleeping processor costs more than a whole
// trip on one: the bare socket alone then takes 14 us or 60. So every thread of ours stays on one processor, and the
// peer's on another, or on the same.
Trial roundTrip(Peer where) {
    const auto [ours, others] = twoProcessors();
    const cpu_set_t here = only(ours);
    const cpu_set_t there = only(where == Peer::onOurs ? ours : others);
    if (::sched_setaffinity(0, sizeof here, &here) != 0)
        throw std::runtime_error("cannot stay on one processor");
    auto linked = std::make_shared<LinkedServer>();
    linked->peer->stayOn(there);
    auto trips = std::make_shared<RoundTrips>(*linked);
    auto plain = std::make_shared<PlainLink>();
    plain->peer->stayOn(there);
    auto request = std::make_shared<std::string>(
        R"({"v":1,"id":"00000000-0000-0000-0000-000000000000","t":"request","m":"entry.edit","p":{"alias":")");
    request->append(kRequestBytes - request->size() - 5 - 3, 'a').append(R"("}})");
    return {.measured = [linked, trips] { return trips->medianMicroseconds(); },
            .reference = [plain, frame = envelopeFrame(*request)] { return plainRoundTrips(plain->socket, frame); }};
}

} // namespace
} // namespace vexil::bench

int main(int argc, char** argv) {
    using namespace vexil::bench;
    return vexil::bench::run(
        argc, argv,
        {{.name = "link.image-event", .unit = "ms", .prepare = imageEvent},
         {.name = "link.round-trip", .unit = "us", .prepare = [] { return roundTrip(Peer::onItsOwnProcessor); }},
         {.name = "link.round-trip-one-processor", .unit = "us", .prepare = [] { return roundTrip(Peer::onOurs); }}});
}
