// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/lifetime.h"
#include "platform/distributed_notifications.h"
#include "platform/main_queue.h"

#include <string>
#include <vector>

namespace vexil {

// The session bus of a test: every MemoryNotifications made on it is one program.
class MemoryNotificationBus {
public:
    struct Notice {
        std::string name;
        DistributedNotifications::UserInfo userInfo;
        bool operator==(const Notice&) const = default;
    };

    explicit MemoryNotificationBus(MainQueue& mainQueue) : mainQueue_(mainQueue) {}
    ~MemoryNotificationBus() = default;
    MemoryNotificationBus(const MemoryNotificationBus&) = delete;
    MemoryNotificationBus& operator=(const MemoryNotificationBus&) = delete;

    // While it is down, notices are lost; observers stay.
    void setDown(bool down) { isDown_ = down; }
    // Everything posted while it was up, oldest first.
    [[nodiscard]] const std::vector<Notice>& posted() const { return posted_; }
    void forgetPosted() { posted_.clear(); }

private:
    friend class MemoryNotifications;
    class Observation;

    void post(const std::string& name, const DistributedNotifications::UserInfo& userInfo);
    void deliver(const Notice& notice);

    MainQueue& mainQueue_;
    std::vector<Notice> posted_;
    std::vector<std::weak_ptr<Observation>> observations_;
    bool isDown_ = false;
    Lifetime lifetime_;
};

class MemoryNotifications final : public DistributedNotifications {
public:
    explicit MemoryNotifications(MemoryNotificationBus& bus) : bus_(bus) {}

    void post(const std::string& name, const UserInfo& userInfo) override;
    [[nodiscard]] std::unique_ptr<NotificationObservation>
    observe(const std::string& name, UniqueFunction<void(const UserInfo&)> onNotice) override;

private:
    MemoryNotificationBus& bus_;
};

} // namespace vexil
