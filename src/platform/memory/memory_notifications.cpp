// SPDX-License-Identifier: Apache-2.0
#include "platform/memory/memory_notifications.h"

#include <utility>

namespace vexil {

class MemoryNotificationBus::Observation {
public:
    Observation(std::string name, UniqueFunction<void(const DistributedNotifications::UserInfo&)> onNotice)
        : name_(std::move(name)), onNotice_(std::move(onNotice)) {}

    void hear(const Notice& notice) {
        if (isObserving_ && notice.name == name_)
            onNotice_(notice.userInfo);
    }
    void end() { isObserving_ = false; }

private:
    std::string name_;
    UniqueFunction<void(const DistributedNotifications::UserInfo&)> onNotice_;
    bool isObserving_ = true;
};

void MemoryNotificationBus::post(const std::string& name, const DistributedNotifications::UserInfo& userInfo) {
    if (isDown_)
        return;
    posted_.push_back({name, userInfo});
    mainQueue_.post(lifetime_.guard([this, notice = posted_.back()] { deliver(notice); }));
}

void MemoryNotificationBus::deliver(const Notice& notice) {
    std::erase_if(observations_, [](const auto& observation) { return observation.expired(); });
    // A callback may observe or stop observing.
    const auto observations = observations_;
    for (const auto& weak : observations) {
        if (const auto observation = weak.lock())
            observation->hear(notice);
    }
}

void MemoryNotifications::post(const std::string& name, const UserInfo& userInfo) {
    bus_.post(name, userInfo);
}

std::unique_ptr<NotificationObservation> MemoryNotifications::observe(const std::string& name,
                                                                      UniqueFunction<void(const UserInfo&)> onNotice) {
    class Handle final : public NotificationObservation {
    public:
        explicit Handle(std::shared_ptr<MemoryNotificationBus::Observation> observation)
            : observation_(std::move(observation)) {}
        Handle(const Handle&) = delete;
        Handle& operator=(const Handle&) = delete;
        ~Handle() override { observation_->end(); }

    private:
        std::shared_ptr<MemoryNotificationBus::Observation> observation_;
    };
    auto observation = std::make_shared<MemoryNotificationBus::Observation>(name, std::move(onNotice));
    bus_.observations_.push_back(observation);
    return std::make_unique<Handle>(std::move(observation));
}

} // namespace vexil
