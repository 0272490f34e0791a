// SPDX-License-Identifier: Apache-2.0
#include "store/store_watch.h"

#include <utility>

namespace vexil {

StoreWatch::StoreWatch(MainQueue& mainQueue, StoreDatabase& database) : mainQueue_(mainQueue), database_(database) {}

void StoreWatch::start() {
    seen_ = read();
    wait();
}

void StoreWatch::wait() {
    timer_ = mainQueue_.after(kInterval, lifetime_.guard([this] { look(); }));
}

void StoreWatch::look() {
    wait();
    const auto version = read();
    if (!version || std::exchange(seen_, version) == version)
        return;
    if (onChange)
        onChange();
}

std::optional<std::int64_t> StoreWatch::read() {
    const auto version = database_.dataVersion();
    if (version) {
        isFailing_ = false;
        return *version;
    }
    if (!std::exchange(isFailing_, true) && onFailure)
        onFailure("changes by other programs are not seen: " + version.error().sentence);
    return std::nullopt;
}

} // namespace vexil
