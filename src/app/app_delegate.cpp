// SPDX-License-Identifier: Apache-2.0
#include "app/app_delegate.h"

namespace vexil {

AppDelegate::AppDelegate(const AppServices& services)
    : services_(services),
      heartbeat_(services.mainQueue, services.notifications),
      linkServer_(services.mainQueue, services.network, services.random) {}

void AppDelegate::applicationDidFinishLaunching() {
    // The server listens before the first heartbeat, so that the port follows within one beat; the watcher comes
    // last, since it has nobody to report to before.
    linkServer_.start();
    const auto isHotKeyActive = [] { return false; }; // no hot key is registered in this version
    heartbeat_.start(linkServer_, isHotKeyActive);
    clipboardWatcher().start();
}

ClipboardWatcher& AppDelegate::clipboardWatcher() {
    if (!clipboardWatcher_)
        clipboardWatcher_ =
            std::make_unique<ClipboardWatcher>(services_.mainQueue, services_.pasteboard, services_.clipboardProcessing,
                                               services_.imageCodec, linkServer_);
    return *clipboardWatcher_;
}

} // namespace vexil
