// SPDX-License-Identifier: Apache-2.0
// TCP on 127.0.0.1, driven from one serial queue.
#pragma once

#include "base/bytes.h"
#include "base/unique_function.h"
#include "platform/serial_queue.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace vexil {

// One stream, from LoopbackTcp::connect or a listener. All methods but sendNow() and the destructor are called on
// LoopbackTcp::queue(), and all callbacks come there, from the top of a task. Destroying the stream, on any thread,
// closes the socket and drops its callbacks; one that is just running on the queue finishes.
class TcpStream {
public:
    enum class State { ready, failed };
    // `bytes` is valid during the callback only. Where `isComplete` is set the stream has ended or failed, and
    // nothing more will come; bytes may still accompany it.
    struct Received {
        ByteView bytes;
        bool isComplete = false;
    };
    static constexpr std::size_t kMaxReceive = 65'536;

    virtual ~TcpStream() = default;

    // Once, before anything else. `onState` gets ready or failed, and failed at most once after ready.
    virtual void start(UniqueFunction<void(State)> onState) = 0;

    // Waits for 1 to kMaxReceive bytes. At most one receive is outstanding.
    virtual void receive(UniqueFunction<void(Received)> onReceived) = 0;

    // Queues the buffers behind what is queued already and writes them as one, in order. `onWritten` is told true when
    // the system has taken all of them, false when the stream failed first.
    virtual void send(std::vector<Bytes> buffers, UniqueFunction<void(bool)> onWritten) = 0;

    // Spares a short message the way through the queue. Where the stream is ready and everything sent before is with
    // the system, hands `bytes` to it without waiting and returns true; else does nothing and returns false. What the
    // system does not take at once still goes out before anything sent later. On the main queue or the network's; no
    // send may be on its way to the queue.
    [[nodiscard]] virtual bool sendNow(ByteView bytes) = 0;

    // Ends the stream both ways; what is queued is dropped. Callbacks still outstanding may come, with failure.
    virtual void cancel() = 0;
};

// Callbacks come on the main queue. Dropping the listener closes it; connections that it gave away live on.
class TcpListener {
public:
    virtual ~TcpListener() = default;
};

class LoopbackTcp {
public:
    struct ListenerEvents {
        UniqueFunction<void(std::uint16_t port)> onReady;              // once
        UniqueFunction<void()> onFailed;                               // at most once, and nothing after it
        UniqueFunction<void(std::unique_ptr<TcpStream>)> onConnection; // a stream that is not started yet
    };

    virtual ~LoopbackTcp() = default;

    // The queue on which streams live.
    [[nodiscard]] virtual SerialQueue& queue() = 0;

    // Listens on 127.0.0.1 on a port that the system chooses, IPv4 only, with no-delay set on what it accepts. None
    // where a listener cannot be made. Main queue only.
    [[nodiscard]] virtual std::unique_ptr<TcpListener> listen(ListenerEvents events) = 0;

    // A stream to 127.0.0.1:`port`, connected by its start(), which gives up after 3 s. Main queue only.
    [[nodiscard]] virtual std::unique_ptr<TcpStream> connect(std::uint16_t port) = 0;
};

} // namespace vexil
