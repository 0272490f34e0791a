// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/asio_loopback_tcp.h"

#include "platform/linux/asio_tcp_stream.h"
#include "platform/linux/worker_thread.h"

#include <asio/dispatch.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>
#include <fcntl.h>

#include <thread>
#include <utility>

namespace vexil {

namespace {

using asio::ip::tcp;
using AsioAcceptor = asio::basic_socket_acceptor<tcp, AsioExecutor>;

// A connection that was gone before it was accepted, or whose network error accept() passes on: the next may do.
bool concernsOneConnection(std::error_code error) {
    for (const int code : {ECONNABORTED, EPROTO, ENETDOWN, ENOPROTOOPT, EHOSTDOWN, ENONET, EHOSTUNREACH, EOPNOTSUPP,
                           ENETUNREACH, EINTR, EPERM}) {
        if (error.value() == code)
            return true;
    }
    return false;
}

// What the main queue sees of a listener.
struct ListenerState {
    LoopbackTcp::ListenerEvents events;
    bool isOpen = true;
};

// Accepts on the link thread; shares `state` with the handle, but never looks into it there.
class Acceptor final : public AsioLinkMember, public std::enable_shared_from_this<Acceptor> {
public:
    Acceptor(AsioLink& link, MainQueue& mainQueue, std::shared_ptr<ListenerState> state)
        : link_(&link), mainQueue_(mainQueue), state_(std::move(state)), acceptor_(std::in_place, link.context) {
        link.add(*this);
    }
    ~Acceptor() override {
        if (link_ != nullptr)
            link_->remove(*this);
    }
    Acceptor(const Acceptor&) = delete;
    Acceptor& operator=(const Acceptor&) = delete;

    // The port, none where the system refuses.
    [[nodiscard]] std::optional<std::uint16_t> open() {
        std::error_code error;
        acceptor_->open(tcp::v4(), error);
        if (!error && ::fcntl(acceptor_->native_handle(), F_SETFD, FD_CLOEXEC) != 0)
            error = {errno, std::system_category()};
        if (!error)
            acceptor_->set_option(AsioAcceptor::reuse_address(true), error);
        if (!error)
            acceptor_->bind({asio::ip::address_v4::loopback(), 0}, error);
        if (!error)
            acceptor_->listen(asio::socket_base::max_listen_connections, error);
        const auto local = error ? tcp::endpoint() : acceptor_->local_endpoint(error);
        return error ? std::nullopt : std::optional(local.port());
    }

    void accept() {
        if (link_ == nullptr)
            return;
        asio::dispatch(link_->context, [self = shared_from_this()] { self->acceptNext(); });
    }

    void close() {
        if (link_ == nullptr)
            return;
        asio::dispatch(link_->context, [self = shared_from_this()] { self->acceptor_.reset(); });
    }

    void abandon() override {
        acceptor_.reset();
        link_ = nullptr;
    }

private:
    void acceptNext() {
        if (!acceptor_)
            return;
        acceptor_->async_accept([self = shared_from_this()](std::error_code error, AsioSocket socket) {
            if (!error) {
                self->giveAway(std::move(socket));
                return;
            }
            if (!concernsOneConnection(error))
                self->fail();
            self->acceptNext();
        });
    }

    // The next one is accepted when the main queue has taken this one: a flood of connections waits in the system's
    // backlog, and does not use up the descriptors of the program.
    void giveAway(AsioSocket socket) {
        auto connection = std::make_shared<AsioTcpConnection>(*link_, std::move(socket));
        auto stream = std::make_unique<AsioTcpStream>(std::move(connection));
        mainQueue_.post([self = shared_from_this(), state = state_, stream = std::move(stream)]() mutable {
            if (!state->isOpen)
                return;
            state->events.onConnection(std::move(stream));
            self->accept();
        });
    }

    void fail() {
        if (!acceptor_)
            return; // closed by its owner
        acceptor_.reset();
        mainQueue_.post([state = state_] {
            if (std::exchange(state->isOpen, false))
                state->events.onFailed();
        });
    }

    AsioLink* link_; // none once abandoned
    MainQueue& mainQueue_;
    std::shared_ptr<ListenerState> state_;
    std::optional<AsioAcceptor> acceptor_;
};

class AsioTcpListener final : public TcpListener {
public:
    AsioTcpListener(MainQueue& mainQueue, std::shared_ptr<ListenerState> state, std::shared_ptr<Acceptor> acceptor)
        : mainQueue_(mainQueue), state_(std::move(state)), acceptor_(std::move(acceptor)) {}
    ~AsioTcpListener() override {
        state_->isOpen = false;
        acceptor_->close();
        // The callbacks belong to the main queue, and one of them may be running: they end there, and not now.
        mainQueue_.post([state = state_] { state->events = {}; });
    }
    AsioTcpListener(const AsioTcpListener&) = delete;
    AsioTcpListener& operator=(const AsioTcpListener&) = delete;

private:
    MainQueue& mainQueue_;
    std::shared_ptr<ListenerState> state_;
    std::shared_ptr<Acceptor> acceptor_;
};

} // namespace

class AsioLoopbackTcp::Core final : public SerialQueue {
public:
    explicit Core(MainQueue& queue)
        : mainQueue(queue),
          work_(link.context.get_executor()),
          thread_(startWorker("vexil-link", WorkerPriority::normal, [this] { link.context.run(); })) {}

    ~Core() override {
        link.context.stop();
        thread_.join();
        for (AsioLinkMember* member : std::exchange(link.members, {}))
            member->abandon();
    }
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    void post(Task task) override {
        asio::post(link.context, [task = std::move(task)]() mutable { task(); });
    }

    MainQueue& mainQueue;
    AsioLink link;

private:
    asio::executor_work_guard<asio::io_context::executor_type> work_;
    std::thread thread_;
};

AsioLoopbackTcp::AsioLoopbackTcp(MainQueue& mainQueue) : core_(std::make_unique<Core>(mainQueue)) {}

AsioLoopbackTcp::~AsioLoopbackTcp() = default;

SerialQueue& AsioLoopbackTcp::queue() {
    return *core_;
}

std::unique_ptr<TcpListener> AsioLoopbackTcp::listen(ListenerEvents events) {
    auto state = std::make_shared<ListenerState>();
    state->events = std::move(events);
    std::shared_ptr<Acceptor> acceptor;
    try {
        acceptor = std::make_shared<Acceptor>(core_->link, core_->mainQueue, state);
    } catch (const std::system_error&) { // the context has no way to watch sockets
        return nullptr;
    }
    const auto port = acceptor->open();
    if (!port)
        return nullptr;
    core_->mainQueue.post([state, port = *port] {
        if (state->isOpen)
            state->events.onReady(port);
    });
    acceptor->accept();
    return std::make_unique<AsioTcpListener>(core_->mainQueue, std::move(state), std::move(acceptor));
}

std::unique_ptr<TcpStream> AsioLoopbackTcp::connect(std::uint16_t port) {
    const tcp::endpoint peer(asio::ip::address_v4::loopback(), port);
    return std::make_unique<AsioTcpStream>(std::make_shared<AsioTcpConnection>(core_->link, peer));
}

} // namespace vexil
