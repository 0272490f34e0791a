// SPDX-License-Identifier: Apache-2.0
// The companion on Linux: the one place that names the real services, made from top to bottom.
#include "app/app_delegate.h"
#include "platform/linux/asio_loopback_tcp.h"
#include "platform/linux/dbus_notifications.h"
#include "platform/linux/glib_main_queue.h"
#include "platform/linux/pixbuf_image_codec.h"
#include "platform/linux/standard_descriptors.h"
#include "platform/linux/system_secure_random.h"
#include "platform/linux/thread_serial_queue.h"
#include "platform/linux/x11_pasteboard.h"

#include <malloc.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

namespace {

using namespace vexil;

// Said once, however often the display comes and goes.
class NoDisplayNotice {
public:
    void say() {
        if (!std::exchange(isSaid_, true))
            std::fputs("vexil-shortcut: no X display answers; copies are not recorded until one does\n", stderr);
    }

private:
    bool isSaid_ = false;
};

// This program idles all day between images of megabytes: large buffers go back to the system when they are dropped,
// and the few threads share what the small ones come from.
void keepMemorySmall() {
    constexpr int kLargeBuffer = 128 * 1024;
    ::mallopt(M_MMAP_THRESHOLD, kLargeBuffer);
    ::mallopt(M_TRIM_THRESHOLD, kLargeBuffer);
    ::mallopt(M_ARENA_MAX, 2);
}

int serve() {
    keepMemorySmall();
    // A peer that goes away in mid-write is an error value of the write.
    std::signal(SIGPIPE, SIG_IGN);
    const char* const display = std::getenv("DISPLAY");
    NoDisplayNotice noDisplay;

    GlibMainQueue mainQueue;
    AsioLoopbackTcp network(mainQueue);
    SystemSecureRandom random;
    DBusNotifications notifications(mainQueue, sessionBusAddress());
    X11Pasteboard pasteboard(mainQueue, display != nullptr ? display : "", [&noDisplay](bool isConnected) {
        if (!isConnected)
            noDisplay.say();
    });
    if (!pasteboard.hasDisplay())
        noDisplay.say();
    PixbufImageCodec imageCodec;
    ThreadSerialQueue clipboardProcessing("vexil-clipboard", WorkerPriority::utility);

    AppDelegate delegate({.mainQueue = mainQueue,
                          .network = network,
                          .random = random,
                          .notifications = notifications,
                          .pasteboard = pasteboard,
                          .clipboardProcessing = clipboardProcessing,
                          .imageCodec = imageCodec});
    mainQueue.post([&delegate] { delegate.applicationDidFinishLaunching(); });
    mainQueue.runUntilTerminated();
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** /*argv*/) {
    occupyStandardDescriptors();
    if (argc > 1) {
        std::fputs("vexil-shortcut: takes no arguments; start it by its name alone\n", stderr);
        return 2;
    }
    return serve();
}
