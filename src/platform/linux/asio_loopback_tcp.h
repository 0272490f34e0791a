// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/loopback_tcp.h"
#include "platform/main_queue.h"

#include <memory>

namespace vexil {

// Sockets of the system, all on one thread, "vexil-link". Idle connections hold no timer and no operation but a read.
// Destroying the network ends that thread; streams and listeners that are left fall silent and may be destroyed later.
class AsioLoopbackTcp final : public LoopbackTcp {
public:
    explicit AsioLoopbackTcp(MainQueue& mainQueue);
    ~AsioLoopbackTcp() override;
    AsioLoopbackTcp(const AsioLoopbackTcp&) = delete;
    AsioLoopbackTcp& operator=(const AsioLoopbackTcp&) = delete;

    [[nodiscard]] SerialQueue& queue() override;
    [[nodiscard]] std::unique_ptr<TcpListener> listen(ListenerEvents events) override;
    [[nodiscard]] std::unique_ptr<TcpStream> connect(std::uint16_t port) override;

private:
    class Core;
    std::unique_ptr<Core> core_;
};

} // namespace vexil
