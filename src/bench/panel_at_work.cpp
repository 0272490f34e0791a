// SPDX-License-Identifier: Apache-2.0
#include "bench/panel_at_work.h"

#include "bench/harness.h"

#include <algorithm>
#include <stdexcept>

namespace vexil::bench {

Task TimedMainQueue::timed(Task task) {
    return [this, task = std::move(task)]() mutable { longest_ = std::max(longest_, millisecondsOf(task)); };
}

PanelAtWork::PanelAtWork() {
    server_.start();
    queue_.runUntilIdle();
    model_ = std::make_unique<ClipboardPanelModel>(server_, watcher_,
                                                   PanelServices{.mainQueue = modelQueue_,
                                                                 .pasteboard = pasteboard_,
                                                                 .imageCodec = codec_,
                                                                 .worker = worker_,
                                                                 .defaults = defaults_});
    model_->setShowFavorites(false);
    reload_ = std::move(server_.onSnapshotChange);
    server_.onSnapshotChange = [this] { reloadTime_ = millisecondsOf(reload_); };
    main_ = std::make_unique<TestMainApplication>(queue_, network_, server_.port().value());
    if (!main_->hello(server_.nonce()))
        throw std::runtime_error("the server does not let the main application in");
}

double PanelAtWork::receive(std::vector<ClipboardRowSummary> history) {
    ClipboardStoreSnapshot snapshot;
    snapshot.history = std::move(history);
    const std::size_t rows = snapshot.history.size();
    worker_.hold(true);
    if (main_->requests.empty())
        server_.refreshSnapshot(true);
    queue_.runUntilIdle();
    main_->connection().respond(main_->requests.at(0), ClipboardLinkPayload(std::move(snapshot)));
    main_->requests.clear();
    queue_.runUntilIdle();
    if (model_->history().size() != rows)
        throw std::runtime_error("the snapshot does not arrive");
    return reloadTime_;
}

double PanelAtWork::afterwards() {
    return millisecondsOf([this] {
        worker_.hold(false);
        queue_.runUntilIdle();
    });
}

} // namespace vexil::bench
