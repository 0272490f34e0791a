// SPDX-License-Identifier: Apache-2.0
// The companion's side of the link: listens, lets one main application in, and speaks with it.
#pragma once

#include "base/bytes.h"
#include "base/lifetime.h"
#include "base/result.h"
#include "base/unique_function.h"
#include "link/clipboard_link_connection.h"
#include "link/clipboard_records.h"
#include "link/hosts_records.h"
#include "platform/loopback_tcp.h"
#include "platform/main_queue.h"
#include "platform/secure_random.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace vexil {

// Main queue only. Made once, started once, lives until the process ends. An operation that sends does nothing while
// no authenticated link is up; one with a completion then completes at once, with "closed" where it can carry an error.
class ClipboardLinkServer {
public:
    using Error = ClipboardLinkError;
    struct EntryContent {
        ClipboardEntryPayload payload;
        std::optional<Bytes> attachment;
    };

    static constexpr std::size_t kMaxAttachmentBytes = 12'582'912;
    static constexpr Duration kHelloTimeout = std::chrono::seconds(3);
    static constexpr Duration kListenerRestartDelay = std::chrono::seconds(2);

    // All that is given outlives the server.
    ClipboardLinkServer(MainQueue& mainQueue, LoopbackTcp& network, SecureRandom& random);
    ~ClipboardLinkServer();
    ClipboardLinkServer(const ClipboardLinkServer&) = delete;
    ClipboardLinkServer& operator=(const ClipboardLinkServer&) = delete;

    UniqueFunction<void(bool isConnected)> onConnectionChange;
    UniqueFunction<void()> onSnapshotChange; // the snapshot was replaced or dropped
    UniqueFunction<void()> onHostsChanged;   // also after every accepted hello
    UniqueFunction<void(HostsApplyCommand)> onHostsApply;
    UniqueFunction<void()> onHostsDisconnect; // the link went away, authenticated or not

    [[nodiscard]] std::optional<std::uint16_t> port() const { return port_; } // none until the listener is ready
    [[nodiscard]] const std::string& nonce() const { return nonce_; }         // what the next hello must carry
    [[nodiscard]] bool isConnected() const { return isConnected_; }
    // Whether what is sent now goes out: an authenticated link is there, and not just closing.
    [[nodiscard]] bool isLinkUp() const { return link_ && isAuthenticated_ && !link_->isClosed(); }
    // The last one received; null before the first and after the link has gone. May be kept.
    [[nodiscard]] const std::shared_ptr<const ClipboardStoreSnapshot>& snapshot() const { return snapshot_; }
    [[nodiscard]] bool isSnapshotStale() const { return isSnapshotStale_; }

    // Opens the listener if there is none.
    void start();

    // Fetches the snapshot unless a fresh one is there; `force` fetches all the same. A caller that comes while a
    // fetch is in flight is completed at once: it sees the outcome through onSnapshotChange.
    void refreshSnapshot(bool force, Task completion = nullptr);

    // An image of more than kMaxAttachmentBytes is announced without its bytes.
    void publishPasteboardChange(ClipboardKind kind, std::optional<std::string> text, std::optional<Bytes> imageData);
    void fetchPayload(const ClipboardEntryRef& ref, UniqueFunction<void(Result<EntryContent, Error>)> completion);

    // These fetch the snapshot again when they fail, since the caller may have shown the outcome already.
    void useEntry(const ClipboardEntryRef& ref);
    void pinEntry(const Uuid& id, bool isPinned);
    void favoriteEntry(const Uuid& id, ClipboardScope scope, bool isFavorite, std::optional<Uuid> categoryID);
    void deleteEntry(const ClipboardEntryRef& ref);

    // Changes the text too where the request carries one.
    void editEntry(ClipboardEditRequest request, UniqueFunction<void(Result<Done, Error>)> completion);

    void sendShortcutState(bool hotkeyActive);
    // None where the request failed or its answer was not understood.
    void fetchHostsSnapshot(UniqueFunction<void(std::optional<HostsSnapshot>)> completion);
    void sendHostsState(const HostsCompanionState& state);

private:
    [[nodiscard]] std::string makeNonce();

    void listenerFailed();
    void accept(std::unique_ptr<TcpStream> stream);
    void receiveRequest(const ClipboardLinkConnection::Request& request);
    void receiveHello(const ClipboardLinkConnection::Request& request);
    void refuse(const ClipboardLinkConnection::Request& request, Error error);
    void receiveEvent(ClipboardLinkConnection::Message event);
    void linkClosed();

    void requestSnapshot(Task completion);
    void storeSnapshot(ClipboardStoreSnapshot snapshot);
    void dropSnapshot();
    void performEntryAction(ClipboardLinkMethod method, ClipboardLinkPayload payload);
    void resynchronise();

    MainQueue& mainQueue_;
    LoopbackTcp& network_;
    SecureRandom& random_;
    std::optional<std::uint16_t> port_;
    std::string nonce_;
    bool isConnected_ = false;
    std::shared_ptr<const ClipboardStoreSnapshot> snapshot_;
    std::unique_ptr<TcpListener> listener_;
    std::unique_ptr<ClipboardLinkConnection> link_;
    bool isAuthenticated_ = false;
    bool isRefused_ = false; // the link was answered a fatal error and closes once that is written
    bool isSnapshotStale_ = true;
    bool isRefreshing_ = false;
    Timer listenerRestart_;
    Timer closeDeadline_;   // for a link that has not said hello, or was refused and does not read why
    Lifetime linkLifetime_; // renewed with the link
    Lifetime lifetime_;
};

} // namespace vexil
