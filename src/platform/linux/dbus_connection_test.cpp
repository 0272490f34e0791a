// SPDX-License-Identifier: Apache-2.0
// Where the bus is looked for; how a connection lives and dies is in platform/contract, with the notices.
#include "platform/linux/dbus_connection.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace vexil {
namespace {

class SessionBusAddressTest : public testing::Test {
protected:
    static void set(const char* name, const char* value) {
        value != nullptr ? ::setenv(name, value, 1) : ::unsetenv(name);
    }
    static std::optional<std::string> saved(const char* name) {
        const char* value = std::getenv(name);
        return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
    }
    void TearDown() override {
        set("DBUS_SESSION_BUS_ADDRESS", address ? address->c_str() : nullptr);
        set("XDG_RUNTIME_DIR", runtime ? runtime->c_str() : nullptr);
    }
    std::optional<std::string> address = saved("DBUS_SESSION_BUS_ADDRESS");
    std::optional<std::string> runtime = saved("XDG_RUNTIME_DIR");
};

TEST_F(SessionBusAddressTest, IsTheOneThatTheSessionNames) {
    set("DBUS_SESSION_BUS_ADDRESS", "unix:path=/there");
    set("XDG_RUNTIME_DIR", "/run/user/7");
    EXPECT_EQ(sessionBusAddress(), "unix:path=/there");
}

TEST_F(SessionBusAddressTest, IsTheUsersRuntimeBusElseWhichMayComeLater) {
    set("DBUS_SESSION_BUS_ADDRESS", nullptr);
    set("XDG_RUNTIME_DIR", "/run/user/7 x");
    EXPECT_EQ(sessionBusAddress(), "unix:path=/run/user/7%20x/bus");
}

TEST_F(SessionBusAddressTest, IsNeverOneThatStartsADaemon) {
    set("DBUS_SESSION_BUS_ADDRESS", "autolaunch:");
    EXPECT_EQ(sessionBusAddress(), std::nullopt);
    set("DBUS_SESSION_BUS_ADDRESS", "");
    set("XDG_RUNTIME_DIR", nullptr);
    EXPECT_EQ(sessionBusAddress(), std::nullopt);
}

} // namespace
} // namespace vexil
