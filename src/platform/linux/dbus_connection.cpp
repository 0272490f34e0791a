// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/dbus_connection.h"

#include "platform/linux/worker_thread.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace vexil {

std::optional<std::string> sessionBusAddress() {
    // GIO's own look-up starts a daemon of its own where it finds none.
    if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address != nullptr && *address != '\0') {
        const std::string found(address);
        return found.starts_with("autolaunch:") ? std::nullopt : std::optional(found);
    }
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime == nullptr || *runtime == '\0')
        return std::nullopt;
    const GlibPtr<gchar> path(g_dbus_address_escape_value((std::string(runtime) + "/bus").c_str()));
    return "unix:path=" + std::string(path.get());
}

DBusConnection::DBusConnection(GlibMainQueue& queue, std::optional<std::string> address,
                               UniqueFunction<void(GDBusConnection*)> onChange)
    : queue_(queue), address_(std::move(address)), onChange_(std::move(onChange)) {}

DBusConnection::~DBusConnection() {
    if (attempt_) {
        g_cancellable_cancel(attempt_->cancellable.get());
        attempt_->thread.join();
    }
    // The last reference closes the connection; GIO's own way to close one leaves threads behind.
    if (current_)
        g_signal_handlers_disconnect_by_data(current_.get(), this);
}

void DBusConnection::retry() {
    if (!address_ || current_ || attempt_)
        return;
    retry_.cancel();
    // Made here, so that it reports to this context; connected on a thread of its own that ends with the attempt,
    // because GIO's asynchronous way leaves threads behind.
    constexpr auto kFlags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_main_context_push_thread_default(queue_.context());
    GlibPtr<GDBusConnection> connection(G_DBUS_CONNECTION(g_object_new(
        G_TYPE_DBUS_CONNECTION, "address", address_->c_str(), "flags", kFlags, "exit-on-close", FALSE, nullptr)));
    g_main_context_pop_thread_default(queue_.context());

    GlibPtr<GCancellable> cancellable(g_cancellable_new());
    auto* const initable = G_INITABLE(connection.get());
    auto* const cancel = cancellable.get();
    attempt_.emplace(Attempt{std::move(connection), std::move(cancellable), {}, {}});
    attempt_->patience = queue_.after(kPatience, [cancel] { g_cancellable_cancel(cancel); });
    auto finish = lifetime_.guard([this](bool isConnected) { finishAttempt(isConnected); });
    attempt_->thread = startWorker(
        "vexil-bus", WorkerPriority::normal, [&queue = queue_, initable, cancel, finish = std::move(finish)]() mutable {
            const bool isConnected = g_initable_init(initable, cancel, nullptr) != FALSE;
            queue.post([finish = std::move(finish), isConnected]() mutable { finish(isConnected); });
        });
}

void DBusConnection::finishAttempt(bool isConnected) {
    attempt_->thread.join();
    GlibPtr<GDBusConnection> connection = std::move(attempt_->connection);
    attempt_.reset();
    if (!isConnected || g_dbus_connection_is_closed(connection.get())) {
        connection.reset();
        retryLater();
        onChange_(nullptr);
        return;
    }
    current_ = std::move(connection);
    delay_ = kFirstDelay;
    g_signal_connect(current_.get(), "closed", G_CALLBACK(closed), this);
    onChange_(current_.get());
}

void DBusConnection::closed(GDBusConnection*, gboolean, GError*, gpointer self) {
    auto& connection = *static_cast<DBusConnection*>(self);
    connection.queue_.post(connection.lifetime_.guard([&connection] { connection.lose(); }));
}

void DBusConnection::lose() {
    if (!current_)
        return;
    g_signal_handlers_disconnect_by_data(current_.get(), this);
    const GlibPtr<GDBusConnection> dead = std::move(current_);
    retryLater();
    onChange_(nullptr);
}

void DBusConnection::retryLater() {
    retry_ = queue_.after(delay_, lifetime_.guard([this] { retry(); }));
    delay_ = std::min(delay_ * 2, kLongestDelay);
}

} // namespace vexil
