// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/dbus_notifications.h"

#include "base/text.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace vexil {

// What is heard under one name, on whichever connection there is.
class DBusNotifications::Observation : public std::enable_shared_from_this<Observation> {
public:
    Observation(GlibMainQueue& queue, Signal signal, UniqueFunction<void(const UserInfo&)> onNotice)
        : queue_(queue), signal_(std::move(signal)), onNotice_(std::move(onNotice)) {}
    ~Observation() { unsubscribe(); }
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;

    void subscribe(GDBusConnection* connection) {
        unsubscribe();
        if (connection == nullptr || hasEnded_)
            return;
        connection_.reset(G_DBUS_CONNECTION(g_object_ref(connection)));
        g_main_context_push_thread_default(queue_.context());
        subscription_ = g_dbus_connection_signal_subscribe(connection, nullptr, signal_.interface.c_str(),
                                                           signal_.member.c_str(), signal_.path.c_str(), nullptr,
                                                           G_DBUS_SIGNAL_FLAGS_NONE, heard, this, nullptr);
        g_main_context_pop_thread_default(queue_.context());
    }

    // The callback may be what is running: it goes with the observation, not before.
    void end() {
        hasEnded_ = true;
        unsubscribe();
    }

private:
    void unsubscribe() {
        if (connection_)
            g_dbus_connection_signal_unsubscribe(connection_.get(), subscription_);
        connection_.reset();
    }

    static void heard(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant* parameters,
                      gpointer self) {
        auto userInfo = userInfoOf(parameters);
        if (!userInfo)
            return;
        auto& observation = *static_cast<Observation*>(self);
        observation.queue_.post([weak = observation.weak_from_this(), userInfo = std::move(*userInfo)] {
            if (const auto alive = weak.lock(); alive && !alive->hasEnded_)
                alive->onNotice_(userInfo);
        });
    }

    GlibMainQueue& queue_;
    const Signal signal_;
    UniqueFunction<void(const UserInfo&)> onNotice_;
    GlibPtr<GDBusConnection> connection_;
    guint subscription_ = 0;
    bool hasEnded_ = false;
};

class DBusNotifications::Handle final : public NotificationObservation {
public:
    explicit Handle(std::shared_ptr<Observation> observation) : observation_(std::move(observation)) {}
    ~Handle() override { observation_->end(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

private:
    std::shared_ptr<Observation> observation_;
};

DBusNotifications::DBusNotifications(GlibMainQueue& queue, std::optional<std::string> address)
    : queue_(queue),
      connection_(queue, std::move(address), lifetime_.guard([this](GDBusConnection*) { changeConnection(); })) {
    connection_.retry();
}

DBusNotifications::~DBusNotifications() {
    for (const auto& weak : observations_) {
        if (const auto observation = weak.lock())
            observation->end();
    }
}

void DBusNotifications::post(const std::string& name, const UserInfo& userInfo) {
    if (connection_.current() != nullptr) {
        emit(name, userInfo);
        return;
    }
    connection_.retry();
    if (connection_.isConnecting())
        held_[name] = userInfo;
}

std::unique_ptr<NotificationObservation> DBusNotifications::observe(const std::string& name,
                                                                    UniqueFunction<void(const UserInfo&)> onNotice) {
    const auto signal = signalOf(name);
    assert(signal);
    if (!signal)
        return nullptr;
    std::erase_if(observations_, [](const auto& observation) { return observation.expired(); });
    auto observation = std::make_shared<Observation>(queue_, *signal, std::move(onNotice));
    observation->subscribe(connection_.current());
    observations_.push_back(observation);
    return std::make_unique<Handle>(std::move(observation));
}

void DBusNotifications::changeConnection() {
    for (const auto& weak : observations_) {
        if (const auto observation = weak.lock())
            observation->subscribe(connection_.current());
    }
    const auto held = std::exchange(held_, {});
    if (connection_.current() == nullptr)
        return;
    for (const auto& [name, userInfo] : held)
        emit(name, userInfo);
}

void DBusNotifications::emit(const std::string& name, const UserInfo& userInfo) {
    const auto signal = signalOf(name);
    assert(signal);
    if (!signal)
        return;
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
    for (const auto& [key, value] : userInfo)
        g_variant_builder_add(&builder, "{ss}", text::repairedUtf8(key).c_str(), text::repairedUtf8(value).c_str());
    // Fails where the bus has just died, of which the connection hears by itself.
    g_dbus_connection_emit_signal(connection_.current(), nullptr, signal->path.c_str(), signal->interface.c_str(),
                                  signal->member.c_str(), g_variant_new("(a{ss})", &builder), nullptr);
}

std::optional<DBusNotifications::Signal> DBusNotifications::signalOf(const std::string& name) {
    const auto lastDot = name.rfind('.');
    if (lastDot == std::string::npos)
        return std::nullopt;
    Signal signal{"/" + name.substr(0, lastDot), name.substr(0, lastDot), name.substr(lastDot + 1)};
    std::replace(signal.path.begin(), signal.path.end(), '.', '/');
    if (!g_variant_is_object_path(signal.path.c_str()) || !g_dbus_is_interface_name(signal.interface.c_str()) ||
        !g_dbus_is_member_name(signal.member.c_str()))
        return std::nullopt;
    return signal;
}

std::optional<DBusNotifications::UserInfo> DBusNotifications::userInfoOf(GVariant* parameters) {
    if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(a{ss})")))
        return std::nullopt;
    UserInfo userInfo;
    GVariantIter* entries = nullptr;
    g_variant_get(parameters, "(a{ss})", &entries);
    const gchar* key = nullptr;
    const gchar* value = nullptr;
    while (g_variant_iter_next(entries, "{&s&s}", &key, &value))
        userInfo.insert_or_assign(key, value);
    g_variant_iter_free(entries);
    return userInfo;
}

} // namespace vexil
