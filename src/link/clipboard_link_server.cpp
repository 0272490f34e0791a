// SPDX-License-Identifier: Apache-2.0
#include "link/clipboard_link_server.h"

#include "base/base64.h"
#include "base/constant_time.h"
#include "link/clipboard_link_errors.h"

#include <array>
#include <chrono>
#include <random>
#include <utility>

namespace vexil {

namespace {

constexpr std::size_t kNonceBytes = 32;

// What this companion serves or sends, as told to the main application.
constexpr std::array kFeatures{
    ClipboardLinkMethod::storeSnapshot, ClipboardLinkMethod::entryPayload,  ClipboardLinkMethod::entryUse,
    ClipboardLinkMethod::entryPin,      ClipboardLinkMethod::entryFavorite, ClipboardLinkMethod::entryEdit,
    ClipboardLinkMethod::entryEditText, ClipboardLinkMethod::entryDelete,   ClipboardLinkMethod::pasteboardChanged,
    ClipboardLinkMethod::hostsSnapshot, ClipboardLinkMethod::hostsApply,
};

// For the case that the system has no secret bytes to give. Hard to guess, yet no secret: what then keeps strangers out
// is that the link listens on the loopback interface only.
void fillFromGeneralPurposeGenerator(std::array<std::uint8_t, kNonceBytes>& bytes) {
    const auto clock = static_cast<std::uint64_t>(std::chrono::high_resolution_clock::now().time_since_epoch().count());
    const auto place = reinterpret_cast<std::uintptr_t>(&bytes);
    std::seed_seq seed{clock, clock >> 32, static_cast<std::uint64_t>(place), static_cast<std::uint64_t>(place) >> 32};
    std::mt19937_64 generator(seed);
    std::uniform_int_distribution<int> byte(0, 255);
    for (auto& each : bytes)
        each = static_cast<std::uint8_t>(byte(generator));
}

template <class T> std::optional<T> takePayload(ClipboardLinkConnection::Message& message) {
    if (auto* payload = std::get_if<T>(&message.payload))
        return std::move(*payload);
    return std::nullopt;
}

} // namespace

ClipboardLinkServer::ClipboardLinkServer(MainQueue& mainQueue, LoopbackTcp& network, SecureRandom& random)
    : mainQueue_(mainQueue), network_(network), random_(random), nonce_(makeNonce()) {}

ClipboardLinkServer::~ClipboardLinkServer() = default;

std::string ClipboardLinkServer::makeNonce() {
    std::array<std::uint8_t, kNonceBytes> bytes{};
    if (!random_.fill(bytes))
        fillFromGeneralPurposeGenerator(bytes);
    return base64::encode(bytes);
}

void ClipboardLinkServer::start() {
    if (listener_)
        return;
    LoopbackTcp::ListenerEvents events;
    events.onReady = lifetime_.guard([this](std::uint16_t port) { port_ = port; });
    events.onFailed = lifetime_.guard([this] { listenerFailed(); });
    events.onConnection = lifetime_.guard([this](std::unique_ptr<TcpStream> stream) { accept(std::move(stream)); });
    listener_ = network_.listen(std::move(events));
}

void ClipboardLinkServer::listenerFailed() {
    // The listener is telling us this itself: it must outlive the call.
    mainQueue_.post([dying = std::exchange(listener_, nullptr)] {});
    port_.reset();
    listenerRestart_ = mainQueue_.after(kListenerRestartDelay, lifetime_.guard([this] { start(); }));
}

void ClipboardLinkServer::accept(std::unique_ptr<TcpStream> stream) {
    if (link_)
        return; // one at a time, even before it has said hello; dropping the stream closes it
    link_ = std::make_unique<ClipboardLinkConnection>(mainQueue_, network_, std::move(stream));
    link_->onRequest = lifetime_.guard([this](const auto& request) { receiveRequest(request); });
    link_->onEvent = lifetime_.guard([this](auto event) { receiveEvent(std::move(event)); });
    link_->onClose = lifetime_.guard([this] { linkClosed(); });
    closeDeadline_ = mainQueue_.after(kHelloTimeout, lifetime_.guard([this] {
        if (!isAuthenticated_)
            link_->close();
    }));
    link_->start();
}

void ClipboardLinkServer::receiveRequest(const ClipboardLinkConnection::Request& request) {
    if (isRefused_)
        return;
    if (methodNamed(request.header.m) != ClipboardLinkMethod::hello)
        link_->respond(request, Failure{Error(link_error::kUnknownMessage)});
    else if (request.header.v != kClipboardLinkVersion)
        refuse(request, link_error::kVersionMismatch);
    else
        receiveHello(request);
}

void ClipboardLinkServer::receiveHello(const ClipboardLinkConnection::Request& request) {
    const auto* hello = std::get_if<ClipboardHello>(&request.payload);
    if (hello == nullptr || !equalInConstantTime(hello->nonce, nonce_)) {
        refuse(request, link_error::kBadNonce);
        return;
    }
    nonce_ = makeNonce();
    isAuthenticated_ = true;
    ClipboardHelloAck ack{.app = "Vexil Shortcut", .features = {}};
    for (const auto method : kFeatures)
        ack.features.emplace_back(nameOf(method));
    link_->respond(request, ClipboardLinkPayload(std::move(ack)));
    if (!std::exchange(isConnected_, true) && onConnectionChange)
        onConnectionChange(true);
    isSnapshotStale_ = true;
    refreshSnapshot(false);
    if (onHostsChanged)
        onHostsChanged();
}

void ClipboardLinkServer::refuse(const ClipboardLinkConnection::Request& request, Error error) {
    isRefused_ = true;
    auto close = [this] {
        if (link_)
            link_->close();
    };
    link_->respond(request, Failure{std::move(error)}, std::nullopt, linkLifetime_.guard(close));
    if (isAuthenticated_) // otherwise the deadline of the hello stands
        closeDeadline_ = mainQueue_.after(kHelloTimeout, lifetime_.guard(close));
}

void ClipboardLinkServer::receiveEvent(ClipboardLinkConnection::Message event) {
    if (!isAuthenticated_ || isRefused_)
        return;
    const auto method = methodNamed(event.header.m);
    if (method == ClipboardLinkMethod::storeChanged) {
        isSnapshotStale_ = true;
    } else if (method == ClipboardLinkMethod::hostsChanged) {
        if (onHostsChanged)
            onHostsChanged();
    } else if (method == ClipboardLinkMethod::hostsApply) {
        if (auto command = takePayload<HostsApplyCommand>(event); command && onHostsApply)
            onHostsApply(*command);
    }
}

void ClipboardLinkServer::linkClosed() {
    closeDeadline_.cancel();
    linkLifetime_.renew();
    link_.reset();
    isAuthenticated_ = false;
    isRefused_ = false;
    isRefreshing_ = false;
    dropSnapshot();
    isSnapshotStale_ = true;
    if (std::exchange(isConnected_, false) && onConnectionChange)
        onConnectionChange(false);
    if (onSnapshotChange)
        onSnapshotChange();
    if (onHostsDisconnect)
        onHostsDisconnect();
}

void ClipboardLinkServer::refreshSnapshot(bool force, Task completion) {
    const bool isFresh = !isSnapshotStale_ && snapshot_ != nullptr;
    if (!isLinkUp() || (!force && isFresh) || isRefreshing_) {
        if (completion)
            completion();
        return;
    }
    requestSnapshot(std::move(completion));
}

void ClipboardLinkServer::requestSnapshot(Task completion) {
    isRefreshing_ = true;
    auto received = [this, completion = std::move(completion)](auto response) mutable {
        isRefreshing_ = false;
        if (response) {
            if (auto snapshot = takePayload<ClipboardStoreSnapshot>(*response))
                storeSnapshot(std::move(*snapshot));
        }
        if (completion)
            completion();
    };
    link_->sendRequest(ClipboardLinkMethod::storeSnapshot, ClipboardLinkEmpty{}, std::nullopt,
                       lifetime_.guard(std::move(received)));
}

void ClipboardLinkServer::storeSnapshot(ClipboardStoreSnapshot snapshot) {
    dropSnapshot();
    snapshot_ = std::make_shared<const ClipboardStoreSnapshot>(std::move(snapshot));
    isSnapshotStale_ = false;
    if (onSnapshotChange)
        onSnapshotChange();
}

void ClipboardLinkServer::dropSnapshot() {
    // Giving back a hundred thousand rows takes milliseconds that the main queue has better use for.
    if (snapshot_)
        network_.queue().post([old = std::exchange(snapshot_, nullptr)] {});
}

void ClipboardLinkServer::publishPasteboardChange(ClipboardKind kind, std::optional<std::string> text,
                                                  std::optional<Bytes> imageData) {
    if (!isLinkUp())
        return;
    if (imageData && imageData->size() > kMaxAttachmentBytes)
        imageData.reset();
    ClipboardPasteboardChange change{.kind = kind, .text = std::move(text), .hasAttachment = imageData.has_value()};
    link_->sendEvent(ClipboardLinkMethod::pasteboardChanged, std::move(change), std::move(imageData));
}

void ClipboardLinkServer::fetchPayload(const ClipboardEntryRef& ref,
                                       UniqueFunction<void(Result<EntryContent, Error>)> completion) {
    if (!isLinkUp()) {
        completion(Failure{Error(link_error::kClosed)});
        return;
    }
    auto received = [completion = std::move(completion)](auto response) mutable {
        if (!response)
            completion(Failure{std::move(response).error()});
        else if (auto payload = takePayload<ClipboardEntryPayload>(*response))
            completion(EntryContent{std::move(*payload), std::move(response->attachment)});
        else
            completion(Failure{Error(link_error::kNotFound)});
    };
    link_->sendRequest(ClipboardLinkMethod::entryPayload, ref, std::nullopt, std::move(received));
}

void ClipboardLinkServer::performEntryAction(ClipboardLinkMethod method, ClipboardLinkPayload payload) {
    if (!isLinkUp())
        return;
    auto received = [this](const auto& response) {
        if (!response)
            resynchronise();
    };
    link_->sendRequest(method, std::move(payload), std::nullopt, lifetime_.guard(received));
}

void ClipboardLinkServer::resynchronise() {
    if (isLinkUp() && !isRefreshing_)
        requestSnapshot(nullptr);
}

void ClipboardLinkServer::useEntry(const ClipboardEntryRef& ref) {
    performEntryAction(ClipboardLinkMethod::entryUse, ref);
}

void ClipboardLinkServer::pinEntry(const Uuid& id, bool isPinned) {
    performEntryAction(ClipboardLinkMethod::entryPin, ClipboardPinRequest{.id = id, .isPinned = isPinned});
}

void ClipboardLinkServer::favoriteEntry(const Uuid& id, ClipboardScope scope, bool isFavorite,
                                        std::optional<Uuid> categoryID) {
    performEntryAction(
        ClipboardLinkMethod::entryFavorite,
        ClipboardFavoriteRequest{.id = id, .scope = scope, .isFavorite = isFavorite, .categoryID = categoryID});
}

void ClipboardLinkServer::deleteEntry(const ClipboardEntryRef& ref) {
    performEntryAction(ClipboardLinkMethod::entryDelete, ref);
}

void ClipboardLinkServer::editEntry(ClipboardEditRequest request,
                                    UniqueFunction<void(Result<Done, Error>)> completion) {
    if (!isLinkUp()) {
        completion(Failure{Error(link_error::kClosed)});
        return;
    }
    const bool editsText = request.text.has_value();
    auto received = [editsText, completion = std::move(completion)](auto response) mutable {
        if (response) {
            completion(Done{});
            return;
        }
        Error error = std::move(response).error();
        if (editsText && error.code == link_error::kUnknownMessage.code)
            error.message = "Update Vexil to edit clipboard content."; // it is older than text editing
        completion(Failure{std::move(error)});
    };
    link_->sendRequest(editsText ? ClipboardLinkMethod::entryEditText : ClipboardLinkMethod::entryEdit,
                       std::move(request), std::nullopt, std::move(received));
}

void ClipboardLinkServer::sendShortcutState(bool hotkeyActive) {
    if (isLinkUp())
        link_->sendEvent(ClipboardLinkMethod::shortcutState, ClipboardShortcutState{.hotkeyActive = hotkeyActive});
}

void ClipboardLinkServer::fetchHostsSnapshot(UniqueFunction<void(std::optional<HostsSnapshot>)> completion) {
    if (!isLinkUp()) {
        completion(std::nullopt);
        return;
    }
    auto received = [completion = std::move(completion)](auto response) mutable {
        completion(response ? takePayload<HostsSnapshot>(*response) : std::nullopt);
    };
    link_->sendRequest(ClipboardLinkMethod::hostsSnapshot, ClipboardLinkEmpty{}, std::nullopt, std::move(received));
}

void ClipboardLinkServer::sendHostsState(const HostsCompanionState& state) {
    if (isLinkUp())
        link_->sendEvent(ClipboardLinkMethod::hostsState, state);
}

} // namespace vexil
