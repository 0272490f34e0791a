// SPDX-License-Identifier: Apache-2.0
#include "platform/memory/memory_loopback_tcp.h"

#include <algorithm>
#include <cassert>
#include <deque>
#include <map>
#include <utility>
#include <vector>

namespace vexil {

namespace {
constexpr Duration kConnectTimeout = std::chrono::seconds(3);
constexpr std::uint16_t kFirstPort = 49'152;
} // namespace

// What the system holds of one way of a connection: taken from the writer, not yet read.
struct MemoryLoopbackTcp::Flow {
    MemoryTcpFaults faults;
    std::size_t carried = 0;
    std::vector<std::uint8_t> pipe;
    std::size_t read = 0;

    [[nodiscard]] std::size_t waiting() const { return pipe.size() - read; }

    [[nodiscard]] std::size_t room() const {
        const std::size_t window = faults.window - std::min(faults.window, waiting());
        return faults.cutAfter ? std::min(window, *faults.cutAfter - std::min(*faults.cutAfter, carried)) : window;
    }

    [[nodiscard]] bool isSpent() const { return faults.cutAfter && carried >= *faults.cutAfter; }

    void take(ByteView bytes) {
        pipe.insert(pipe.end(), bytes.data(), bytes.data() + bytes.size());
        carried += bytes.size();
    }

    Bytes give(std::size_t size) {
        Bytes bytes(size);
        std::copy_n(pipe.data() + read, size, bytes.data());
        read += size;
        if (read == pipe.size()) {
            pipe.clear();
            read = 0;
        }
        return bytes;
    }
};

struct MemoryLoopbackTcp::ListenerState {
    std::uint16_t port = 0;
    ListenerEvents events;
    bool isOpen = true;
};

class MemoryLoopbackTcp::Core : public std::enable_shared_from_this<Core> {
public:
    explicit Core(MemoryMainQueue& main) : mainQueue(main), queue(main) {}

    void open(const std::shared_ptr<ListenerState>& listener);
    void becomeReady(const std::shared_ptr<ListenerState>& listener, bool works);
    void fail(std::uint16_t port);
    bool join(std::uint16_t port, const std::shared_ptr<Endpoint>& connector);
    void wake(std::size_t connection);

    struct Connection {
        std::shared_ptr<Flow> toListener;
        std::shared_ptr<Flow> toConnector;
        std::weak_ptr<Endpoint> connector;
        std::weak_ptr<Endpoint> acceptor;
    };

    MemoryMainQueue& mainQueue;
    MemorySerialQueue queue;
    std::map<std::uint16_t, std::weak_ptr<ListenerState>> listeners;
    std::vector<Connection> connections;
    MemoryTcpFaults faultsToListener;
    MemoryTcpFaults faultsToConnector;
    std::uint16_t nextPort = kFirstPort;
    bool refusesNextListen = false;
    bool failsNextListener = false;
    bool swallowsConnects = false;
};

// One end of a connection. Every change schedules a step on the network's queue, and a step makes at most one
// callback, as its last act: so callbacks come from the top of a task and may do anything to the stream.
class MemoryLoopbackTcp::Endpoint : public std::enable_shared_from_this<Endpoint> {
public:
    explicit Endpoint(const std::shared_ptr<Core>& core) : core_(core) {}

    void connectTo(std::uint16_t port) { port_ = port; }
    void join(std::shared_ptr<Flow> in, std::shared_ptr<Flow> out, const std::shared_ptr<Endpoint>& peer) {
        in_ = std::move(in);
        out_ = std::move(out);
        peer_ = peer;
        phase_ = Phase::joined;
    }

    void start(UniqueFunction<void(TcpStream::State)> onState);
    void receive(UniqueFunction<void(TcpStream::Received)> onReceived);
    void send(std::vector<Bytes> buffers, UniqueFunction<void(bool)> onWritten);
    [[nodiscard]] bool sendNow(ByteView bytes);
    // The owner's own end: what was taken still reaches the peer.
    void cancel();
    void drop();
    // The peer's end; what it sent can still be read.
    void end();
    // A reset: both sides hear of it.
    void breakOff();
    void schedule();

private:
    enum class Phase { fresh, joined, ended, broken, cancelled };
    struct Send {
        std::vector<Bytes> buffers;
        std::size_t buffer = 0;
        std::size_t offset = 0;
        UniqueFunction<void(bool)> onWritten;
    };

    void step();
    void establish();
    void carry();
    bool reportState();
    bool reportSend();
    bool reportReceive();
    void failState();

    std::weak_ptr<Core> core_;
    std::weak_ptr<Endpoint> peer_;
    std::optional<std::uint16_t> port_; // still to be connected to
    std::shared_ptr<Flow> in_;
    std::shared_ptr<Flow> out_;
    std::deque<Send> sends_;
    UniqueFunction<void(TcpStream::State)> onState_;
    UniqueFunction<void(TcpStream::Received)> onReceived_;
    std::deque<TcpStream::State> states_; // still to be reported
    Timer connectTimeout_;
    Phase phase_ = Phase::fresh;
    bool isStarted_ = false;
    bool hasFailed_ = false;
    bool isDropped_ = false;
    bool isScheduled_ = false;
};

class MemoryLoopbackTcp::Stream final : public TcpStream {
public:
    explicit Stream(std::shared_ptr<Endpoint> endpoint) : endpoint_(std::move(endpoint)) {}
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    ~Stream() override { endpoint_->drop(); }

    void start(UniqueFunction<void(State)> onState) override { endpoint_->start(std::move(onState)); }
    void receive(UniqueFunction<void(Received)> onReceived) override { endpoint_->receive(std::move(onReceived)); }
    void send(std::vector<Bytes> buffers, UniqueFunction<void(bool)> onWritten) override {
        endpoint_->send(std::move(buffers), std::move(onWritten));
    }
    [[nodiscard]] bool sendNow(ByteView bytes) override { return endpoint_->sendNow(bytes); }
    void cancel() override { endpoint_->cancel(); }

private:
    std::shared_ptr<Endpoint> endpoint_;
};

class MemoryLoopbackTcp::Listener final : public TcpListener {
public:
    explicit Listener(std::shared_ptr<ListenerState> state) : state_(std::move(state)) {}
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener() override { state_->isOpen = false; }

private:
    std::shared_ptr<ListenerState> state_;
};

// --- Endpoint

void MemoryLoopbackTcp::Endpoint::start(UniqueFunction<void(TcpStream::State)> onState) {
    assert(!isStarted_);
    isStarted_ = true;
    onState_ = std::move(onState);
    if (!port_)
        states_.push_back(TcpStream::State::ready);
    schedule();
}

void MemoryLoopbackTcp::Endpoint::receive(UniqueFunction<void(TcpStream::Received)> onReceived) {
    assert(isStarted_ && !onReceived_);
    onReceived_ = std::move(onReceived);
    schedule();
}

void MemoryLoopbackTcp::Endpoint::send(std::vector<Bytes> buffers, UniqueFunction<void(bool)> onWritten) {
    assert(isStarted_);
    sends_.push_back({std::move(buffers), 0, 0, std::move(onWritten)});
    schedule();
}

bool MemoryLoopbackTcp::Endpoint::sendNow(ByteView bytes) {
    if (phase_ != Phase::joined || !isStarted_ || !states_.empty() || !sends_.empty() || out_->room() < bytes.size())
        return false;
    std::vector<Bytes> buffers;
    buffers.push_back(copyOf(bytes));
    sends_.push_back({std::move(buffers), 0, 0, nullptr});
    carry();
    schedule();
    return true;
}

void MemoryLoopbackTcp::Endpoint::cancel() {
    phase_ = Phase::cancelled;
    states_.clear();
    connectTimeout_.cancel();
    if (const auto peer = peer_.lock())
        peer->end();
    schedule();
}

void MemoryLoopbackTcp::Endpoint::drop() {
    cancel();
    isDropped_ = true;
    // A callback may own the stream's owner: none may be destroyed while this object is half-way.
    const auto self = shared_from_this();
    const auto sends = std::exchange(sends_, {});
    const auto onState = std::exchange(onState_, nullptr);
    const auto onReceived = std::exchange(onReceived_, nullptr);
}

void MemoryLoopbackTcp::Endpoint::end() {
    if (phase_ == Phase::joined)
        phase_ = Phase::ended;
    schedule();
}

void MemoryLoopbackTcp::Endpoint::breakOff() {
    if (phase_ != Phase::joined && phase_ != Phase::ended)
        return;
    failState();
    if (const auto peer = peer_.lock())
        peer->breakOff();
}

void MemoryLoopbackTcp::Endpoint::failState() {
    phase_ = Phase::broken;
    if (!std::exchange(hasFailed_, true))
        states_.push_back(TcpStream::State::failed);
    schedule();
}

void MemoryLoopbackTcp::Endpoint::schedule() {
    const auto core = core_.lock();
    if (!core || isDropped_ || isScheduled_)
        return;
    isScheduled_ = true;
    core->queue.post([weak = weak_from_this()] {
        if (const auto self = weak.lock()) {
            self->isScheduled_ = false;
            self->step();
        }
    });
}

void MemoryLoopbackTcp::Endpoint::step() {
    if (isDropped_ || !isStarted_)
        return;
    if (port_ && phase_ == Phase::fresh)
        establish();
    carry();
    if (reportState() || reportSend() || reportReceive())
        schedule();
}

void MemoryLoopbackTcp::Endpoint::establish() {
    const auto core = core_.lock();
    if (!core)
        return;
    const std::uint16_t port = *std::exchange(port_, std::nullopt);
    if (core->swallowsConnects) {
        connectTimeout_ = core->mainQueue.after(kConnectTimeout, [weak = weak_from_this()] {
            if (const auto self = weak.lock())
                self->failState();
        });
        return;
    }
    if (core->join(port, shared_from_this()))
        states_.push_back(TcpStream::State::ready);
    else
        failState();
}

void MemoryLoopbackTcp::Endpoint::carry() {
    if (phase_ != Phase::joined)
        return;
    const std::size_t before = out_->carried;
    for (Send& send : sends_) {
        while (send.buffer < send.buffers.size()) {
            const Bytes& bytes = send.buffers[send.buffer];
            const std::size_t size = std::min(out_->room(), bytes.size() - send.offset);
            out_->take(ByteView(bytes).subspan(send.offset, size));
            send.offset += size;
            if (send.offset < bytes.size())
                break;
            ++send.buffer;
            send.offset = 0;
        }
        if (send.buffer < send.buffers.size())
            break;
    }
    if (out_->isSpent())
        breakOff();
    if (const auto peer = peer_.lock(); peer && out_->carried != before)
        peer->schedule();
}

bool MemoryLoopbackTcp::Endpoint::reportState() {
    if (states_.empty() || !onState_)
        return false;
    const TcpStream::State state = states_.front();
    states_.pop_front();
    auto onState = std::move(onState_);
    onState(state);
    if (!isDropped_)
        onState_ = std::move(onState);
    return true;
}

bool MemoryLoopbackTcp::Endpoint::reportSend() {
    if (sends_.empty() || phase_ == Phase::fresh)
        return false;
    const bool isTaken = sends_.front().buffer == sends_.front().buffers.size();
    if (phase_ == Phase::joined && !isTaken)
        return false;
    Send send = std::move(sends_.front());
    sends_.pop_front();
    if (phase_ == Phase::ended && !isTaken)
        failState();
    if (send.onWritten)
        send.onWritten(isTaken);
    return true;
}

bool MemoryLoopbackTcp::Endpoint::reportReceive() {
    if (!onReceived_ || phase_ == Phase::fresh)
        return false;
    Bytes bytes;
    if (in_ && phase_ != Phase::cancelled && !in_->faults.isHeld)
        bytes = in_->give(std::min({in_->waiting(), in_->faults.piece, TcpStream::kMaxReceive}));
    const bool isDrained = !in_ || in_->waiting() == 0 || phase_ == Phase::cancelled;
    const bool isComplete = phase_ != Phase::joined && isDrained;
    if (bytes.empty() && !isComplete)
        return false;
    if (const auto peer = peer_.lock(); peer && !bytes.empty())
        peer->schedule();
    auto onReceived = std::exchange(onReceived_, nullptr);
    onReceived({ByteView(bytes), isComplete});
    return true;
}

// --- Core

void MemoryLoopbackTcp::Core::open(const std::shared_ptr<ListenerState>& listener) {
    listener->port = nextPort++;
    const bool works = !std::exchange(failsNextListener, false);
    mainQueue.post([weak = weak_from_this(), listener, works] {
        if (const auto core = weak.lock(); core && listener->isOpen)
            core->becomeReady(listener, works);
    });
}

void MemoryLoopbackTcp::Core::becomeReady(const std::shared_ptr<ListenerState>& listener, bool works) {
    if (works) {
        listeners[listener->port] = listener;
        listener->events.onReady(listener->port);
    } else {
        listener->isOpen = false;
        listener->events.onFailed();
    }
}

void MemoryLoopbackTcp::Core::fail(std::uint16_t port) {
    const auto found = listeners.find(port);
    const auto listener = found == listeners.end() ? nullptr : found->second.lock();
    if (!listener || !listener->isOpen)
        return;
    listeners.erase(found);
    mainQueue.post([listener] {
        if (std::exchange(listener->isOpen, false))
            listener->events.onFailed();
    });
}

bool MemoryLoopbackTcp::Core::join(std::uint16_t port, const std::shared_ptr<Endpoint>& connector) {
    const auto found = listeners.find(port);
    const auto listener = found == listeners.end() ? nullptr : found->second.lock();
    if (!listener || !listener->isOpen)
        return false;
    const auto acceptor = std::make_shared<Endpoint>(shared_from_this());
    const auto toListener = std::make_shared<Flow>();
    const auto toConnector = std::make_shared<Flow>();
    toListener->faults = faultsToListener;
    toConnector->faults = faultsToConnector;
    connector->join(toConnector, toListener, acceptor);
    acceptor->join(toListener, toConnector, connector);
    connections.push_back({toListener, toConnector, connector, acceptor});
    mainQueue.post([listener, stream = std::unique_ptr<TcpStream>(new Stream(acceptor))]() mutable {
        if (listener->isOpen)
            listener->events.onConnection(std::move(stream));
    });
    return true;
}

void MemoryLoopbackTcp::Core::wake(std::size_t connection) {
    for (const auto& end : {connections[connection].connector.lock(), connections[connection].acceptor.lock()}) {
        if (end)
            end->schedule();
    }
}

// --- The network

MemoryLoopbackTcp::MemoryLoopbackTcp(MemoryMainQueue& mainQueue) : core_(std::make_shared<Core>(mainQueue)) {}

MemoryLoopbackTcp::~MemoryLoopbackTcp() = default;

MemorySerialQueue& MemoryLoopbackTcp::queue() {
    return core_->queue;
}

std::unique_ptr<TcpListener> MemoryLoopbackTcp::listen(ListenerEvents events) {
    if (std::exchange(core_->refusesNextListen, false))
        return nullptr;
    auto state = std::make_shared<ListenerState>();
    state->events = std::move(events);
    core_->open(state);
    return std::make_unique<Listener>(std::move(state));
}

std::unique_ptr<TcpStream> MemoryLoopbackTcp::connect(std::uint16_t port) {
    auto endpoint = std::make_shared<Endpoint>(core_);
    endpoint->connectTo(port);
    return std::make_unique<Stream>(std::move(endpoint));
}

void MemoryLoopbackTcp::refuseNextListen() {
    core_->refusesNextListen = true;
}

void MemoryLoopbackTcp::failNextListener() {
    core_->failsNextListener = true;
}

void MemoryLoopbackTcp::failListener(std::uint16_t port) {
    core_->fail(port);
}

void MemoryLoopbackTcp::swallowConnects(bool swallowed) {
    core_->swallowsConnects = swallowed;
}

void MemoryLoopbackTcp::setFaults(std::size_t connection, Way way, MemoryTcpFaults faults) {
    auto& found = core_->connections.at(connection);
    (way == Way::toListener ? found.toListener : found.toConnector)->faults = faults;
    core_->wake(connection);
}

void MemoryLoopbackTcp::setFaultsOfNew(Way way, MemoryTcpFaults faults) {
    (way == Way::toListener ? core_->faultsToListener : core_->faultsToConnector) = faults;
}

void MemoryLoopbackTcp::cut(std::size_t connection) {
    const auto& found = core_->connections.at(connection);
    for (const auto& end : {found.connector.lock(), found.acceptor.lock()}) {
        if (end)
            end->breakOff();
    }
}

std::size_t MemoryLoopbackTcp::connections() const {
    return core_->connections.size();
}

std::size_t MemoryLoopbackTcp::openListeners() const {
    return static_cast<std::size_t>(std::count_if(core_->listeners.begin(), core_->listeners.end(), [](const auto& l) {
        const auto state = l.second.lock();
        return state && state->isOpen;
    }));
}

std::size_t MemoryLoopbackTcp::carried(std::size_t connection, Way way) const {
    const auto& found = core_->connections.at(connection);
    return (way == Way::toListener ? found.toListener : found.toConnector)->carried;
}

} // namespace vexil
