// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/x11_connect.h"

#include <X11/Xauth.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string_view>

namespace vexil {

namespace {

// As process-wide as the buffer that it guards.
std::mutex& authorityMutex() {
    static std::mutex mutex;
    return mutex;
}

// A connected socket, or -1; never waits. The name is that of a file, or of none where it begins with a zero.
int connectToSocket(std::string_view name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.size() >= sizeof address.sun_path)
        return -1;
    std::memcpy(address.sun_path, name.data(), name.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor >= 0 && connect(descriptor, reinterpret_cast<const sockaddr*>(&address), size) == 0)
        return descriptor;
    if (descriptor >= 0)
        close(descriptor);
    return -1;
}

using Authority = std::unique_ptr<Xauth, decltype(&XauDisposeAuth)>;

// What the authority file has for a display of this machine; null where there is no entry.
Authority authorityOf(const std::string& number) {
    static constexpr std::string_view kScheme = "MIT-MAGIC-COOKIE-1";
    std::array<char, 256> host{};
    if (gethostname(host.data(), host.size() - 1) != 0)
        return {nullptr, &XauDisposeAuth};
    std::string scheme(kScheme);
    char* schemes[] = {scheme.data()};
    const int lengths[] = {static_cast<int>(scheme.size())};
    const std::lock_guard lock(authorityMutex());
    return {XauGetBestAuthByAddr(FamilyLocal, static_cast<unsigned short>(std::strlen(host.data())), host.data(),
                                 static_cast<unsigned short>(number.size()), number.c_str(), 1, schemes, lengths),
            &XauDisposeAuth};
}

xcb_connection_t* connectThrough(int descriptor, const std::string& number) {
    const Authority authority = authorityOf(number);
    if (!authority)
        return xcb_connect_to_fd(descriptor, nullptr);
    xcb_auth_info_t info{authority->name_length, authority->name, authority->data_length, authority->data};
    return xcb_connect_to_fd(descriptor, &info);
}

} // namespace

xcb_connection_t* connectToX(const std::string& display, int* screen, UniqueFunction<void(int)> onSocket) {
    char* host = nullptr;
    int number = 0;
    const bool isParsed = xcb_parse_display(display.c_str(), &host, &number, screen) != 0;
    const std::unique_ptr<char, decltype(&std::free)> owned(host, &std::free);
    const bool isLocal = isParsed && (std::strlen(host) == 0 || std::strcmp(host, "unix") == 0);
    if (isLocal) {
        const std::string name = "/tmp/.X11-unix/X" + std::to_string(number);
        int descriptor = connectToSocket(std::string(1, '\0') + name);
        if (descriptor < 0)
            descriptor = connectToSocket(name);
        if (descriptor >= 0) {
            if (onSocket)
                onSocket(descriptor);
            return connectThrough(descriptor, std::to_string(number));
        }
    }
    const std::lock_guard lock(authorityMutex());
    return xcb_connect(display.c_str(), screen);
}

} // namespace vexil
