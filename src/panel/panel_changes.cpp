// SPDX-License-Identifier: Apache-2.0
#include "panel/panel_changes.h"

#include <utility>

namespace vexil {

class PanelChanges::Observation final : public PanelObservation {
public:
    explicit Observation(std::shared_ptr<Observer> observer) : observer_(std::move(observer)) {}

private:
    std::shared_ptr<Observer> observer_;
};

std::unique_ptr<PanelObservation> PanelChanges::observe(Observer observer) {
    auto shared = std::make_shared<Observer>(std::move(observer));
    observers_.push_back(shared);
    return std::make_unique<Observation>(std::move(shared));
}

void PanelChanges::assigned(PanelField field) {
    ++assignments_;
    untold_.insert(field);
    if (!std::exchange(isTellingPosted_, true))
        mainQueue_.post(lifetime_.guard([this] { tell(); }));
}

void PanelChanges::tell() {
    isTellingPosted_ = false;
    const PanelFields assigned = std::exchange(untold_, {});
    std::erase_if(observers_, [](const auto& observer) { return observer.expired(); });
    // An observer may come, go, or end the model while it is called.
    const auto told = observers_;
    for (const auto& each : told) {
        if (const auto observer = each.lock())
            (*observer)(assigned);
    }
}

} // namespace vexil
