// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/lifetime.h"
#include "platform/distributed_notifications.h"
#include "platform/linux/dbus_connection.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vexil {

// Notices as signals of the session bus. The notice a.b.c.d is the signal d of the interface a.b.c at the path /a/b/c,
// with its user info as one a{ss}. Signals of another shape are not notices. What is posted while a connection is
// being made goes out with it, the last of each name; each post without a connection asks for one.
class DBusNotifications final : public DistributedNotifications {
public:
    // `address` is that of the bus, from sessionBusAddress() in a program.
    DBusNotifications(GlibMainQueue& queue, std::optional<std::string> address);
    ~DBusNotifications() override;
    DBusNotifications(const DBusNotifications&) = delete;
    DBusNotifications& operator=(const DBusNotifications&) = delete;

    void post(const std::string& name, const UserInfo& userInfo) override;
    [[nodiscard]] std::unique_ptr<NotificationObservation>
    observe(const std::string& name, UniqueFunction<void(const UserInfo&)> onNotice) override;

private:
    class Observation;
    class Handle;
    struct Signal {
        std::string path;
        std::string interface;
        std::string member;
    };

    // None for a name that no bus would carry.
    [[nodiscard]] static std::optional<Signal> signalOf(const std::string& name);
    [[nodiscard]] static std::optional<UserInfo> userInfoOf(GVariant* parameters);
    void emit(const std::string& name, const UserInfo& userInfo);
    void changeConnection();

    GlibMainQueue& queue_;
    std::map<std::string, UserInfo> held_; // while a connection is being made
    std::vector<std::weak_ptr<Observation>> observations_;
    Lifetime lifetime_;
    DBusConnection connection_;
};

} // namespace vexil
