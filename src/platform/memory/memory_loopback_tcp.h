// SPDX-License-Identifier: Apache-2.0
// A loopback network inside one object, with the faults of a real one on request.
#pragma once

#include "platform/loopback_tcp.h"
#include "platform/memory/memory_main_queue.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace vexil {

// How one way of a connection misbehaves.
struct MemoryTcpFaults {
    // Bytes that the system takes ahead of the reader; what does not fit stays unwritten. At 0 it takes nothing.
    std::size_t window = 262'144;
    // The most bytes that one receive yields.
    std::size_t piece = TcpStream::kMaxReceive;
    // The reader's receives wait, as if it had stopped reading.
    bool isHeld = false;
    // Breaks the connection, both ways, once this way has carried so many bytes in all.
    std::optional<std::size_t> cutAfter = std::nullopt;
};

// Everything runs on the thread that drives the main queue. Connections are counted from 0 in the order in which they
// reached a listener. The network outlives neither queue, but its streams and listeners may outlive it.
class MemoryLoopbackTcp final : public LoopbackTcp {
public:
    enum class Way { toListener, toConnector };

    explicit MemoryLoopbackTcp(MemoryMainQueue& mainQueue);
    MemoryLoopbackTcp(const MemoryLoopbackTcp&) = delete;
    MemoryLoopbackTcp& operator=(const MemoryLoopbackTcp&) = delete;
    ~MemoryLoopbackTcp() override;

    [[nodiscard]] MemorySerialQueue& queue() override;
    [[nodiscard]] std::unique_ptr<TcpListener> listen(ListenerEvents events) override;
    [[nodiscard]] std::unique_ptr<TcpStream> connect(std::uint16_t port) override;

    // The next listen() yields none.
    void refuseNextListen();
    // The next listener fails where it would have become ready.
    void failNextListener();
    // A listener that was ready fails.
    void failListener(std::uint16_t port);
    // Connects to come get no answer at all, and give up after their 3 s.
    void swallowConnects(bool swallowed);

    void setFaults(std::size_t connection, Way way, MemoryTcpFaults faults);
    // For connections to come.
    void setFaultsOfNew(Way way, MemoryTcpFaults faults);
    // Breaks a connection as a reset does.
    void cut(std::size_t connection);

    [[nodiscard]] std::size_t connections() const;
    [[nodiscard]] std::size_t openListeners() const;
    // Bytes that the system has taken from the writer of this way.
    [[nodiscard]] std::size_t carried(std::size_t connection, Way way) const;

private:
    class Core;
    class Endpoint;
    class Stream;
    class Listener;
    struct ListenerState;
    struct Flow;

    std::shared_ptr<Core> core_;
};

} // namespace vexil
