// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/queue_driver.h"
#include "platform/contract/test_bus.h"
#include "platform/linux/dbus_notifications.h"
#include "platform/memory/memory_notifications.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace vexil {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::Each;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using UserInfo = DistributedNotifications::UserInfo;

constexpr const char* kName = "com.orvane.vexil.shortcut.heartbeat";
constexpr const char* kOther = "com.orvane.vexil.shortcut.other";

class World {
public:
    virtual ~World() = default;
    [[nodiscard]] virtual QueueDriver& driver() = 0;
    [[nodiscard]] virtual std::unique_ptr<DistributedNotifications> join() = 0; // as one program of the session
    virtual void setDown(bool down) = 0;
};

class MemoryWorld final : public World {
public:
    QueueDriver& driver() override { return *driver_; }
    std::unique_ptr<DistributedNotifications> join() override { return std::make_unique<MemoryNotifications>(bus_); }
    void setDown(bool down) override { bus_.setDown(down); }

private:
    std::unique_ptr<QueueDriver> driver_ = makeMemoryQueueDriver();
    MemoryNotificationBus bus_{driver_->queue()};
};

class DBusWorld final : public World {
public:
    DBusWorld() { EXPECT_TRUE(bus.start()); }
    QueueDriver& driver() override { return *driver_; }
    std::unique_ptr<DistributedNotifications> join() override { return joinAt(bus.address()); }
    void setDown(bool down) override {
        if (down)
            bus.kill();
        else
            EXPECT_TRUE(bus.start());
    }
    [[nodiscard]] std::unique_ptr<DistributedNotifications> joinAt(std::optional<std::string> address) {
        return std::make_unique<DBusNotifications>(queue(), std::move(address));
    }
    [[nodiscard]] GlibMainQueue& queue() { return dynamic_cast<GlibMainQueue&>(driver_->queue()); }

    TestBus bus;

private:
    std::unique_ptr<QueueDriver> driver_ = makeGlibQueueDriver();
};

// What one observation heard.
struct Ear {
    std::vector<UserInfo> heard;
    std::unique_ptr<NotificationObservation> observation;

    void listen(DistributedNotifications& notifications, const std::string& name = kName) {
        observation = notifications.observe(name, [this](const UserInfo& userInfo) { heard.push_back(userInfo); });
    }
};

// Delivery is best effort, and an observation takes effect when the bus has heard of it: so a test posts again and
// again, as a heartbeat does, until what it waits for comes.
bool postUntil(QueueDriver& driver, DistributedNotifications& from, const std::string& name, const UserInfo& userInfo,
               const std::function<bool()>& condition) {
    Timer again;
    std::function<void()> post = [&] {
        from.post(name, userInfo);
        again = driver.queue().after(20ms, [&] { post(); });
    };
    post();
    return driver.runUntil(condition);
}

template <class T> class NotificationsContract : public testing::Test {
protected:
    bool postUntil(DistributedNotifications& from, const std::string& name, const UserInfo& userInfo,
                   const std::function<bool()>& condition) {
        return vexil::postUntil(world.driver(), from, name, userInfo, condition);
    }
    // All that was posted on `from` so far has been heard by whomever hears it on `to`.
    void settle(DistributedNotifications& from, DistributedNotifications& to) {
        Ear ear;
        ear.listen(to, "com.orvane.vexil.settled");
        EXPECT_TRUE(postUntil(from, "com.orvane.vexil.settled", {}, [&] { return !ear.heard.empty(); }));
    }

    T world;
};

using Worlds = testing::Types<MemoryWorld, DBusWorld>;
TYPED_TEST_SUITE(NotificationsContract, Worlds);

TYPED_TEST(NotificationsContract, AnotherProgramHearsWhatIsPosted) {
    const auto poster = this->world.join();
    const auto observer = this->world.join();
    Ear ear;
    ear.listen(*observer);
    const UserInfo userInfo{{"port", "4711"}, {"nonce", "a+/="}, {"empty", ""}, {"text", "Grüße 世界"}};
    EXPECT_TRUE(this->postUntil(*poster, kName, userInfo, [&] { return !ear.heard.empty(); }));
    EXPECT_THAT(ear.heard, Each(userInfo));
}

TYPED_TEST(NotificationsContract, APosterHearsItself) {
    const auto both = this->world.join();
    Ear ear;
    ear.listen(*both);
    EXPECT_TRUE(this->postUntil(*both, kName, {{"a", "b"}}, [&] { return !ear.heard.empty(); }));
}

TYPED_TEST(NotificationsContract, EveryObserverHearsAndOnlyUnderItsName) {
    const auto poster = this->world.join();
    const auto observer = this->world.join();
    Ear first;
    Ear second;
    Ear other;
    first.listen(*observer);
    second.listen(*observer);
    other.listen(*observer, kOther);
    EXPECT_TRUE(this->postUntil(*poster, kName, {}, [&] { return !first.heard.empty() && !second.heard.empty(); }));
    this->settle(*poster, *observer);
    EXPECT_THAT(other.heard, IsEmpty());
}

TYPED_TEST(NotificationsContract, CallsBackFromTheTopOfATurn) {
    const auto both = this->world.join();
    Ear ear;
    ear.listen(*both);
    this->settle(*both, *both);
    both->post(kName, {});
    EXPECT_THAT(ear.heard, IsEmpty());
    EXPECT_TRUE(this->world.driver().runUntil([&] { return !ear.heard.empty(); }));
}

TYPED_TEST(NotificationsContract, AnObservationThatIsDroppedHearsNothingMore) {
    const auto poster = this->world.join();
    const auto observer = this->world.join();
    Ear dropped;
    dropped.listen(*observer);
    EXPECT_TRUE(this->postUntil(*poster, kName, {}, [&] { return !dropped.heard.empty(); }));
    dropped.observation.reset();
    const auto before = dropped.heard.size();
    poster->post(kName, {});
    this->settle(*poster, *observer);
    EXPECT_EQ(dropped.heard.size(), before);
}

TYPED_TEST(NotificationsContract, AnObservationMayBeDroppedByItsOwnCallback) {
    const auto both = this->world.join();
    int calls = 0;
    std::unique_ptr<NotificationObservation> observation;
    observation = both->observe(kName, [&](const UserInfo&) {
        ++calls;
        observation.reset();
    });
    EXPECT_TRUE(this->postUntil(*both, kName, {}, [&] { return calls > 0; }));
    this->settle(*both, *both);
    EXPECT_EQ(calls, 1);
}

TYPED_TEST(NotificationsContract, ObserversHearAgainAfterTheBusWasDown) {
    const auto poster = this->world.join();
    const auto observer = this->world.join();
    Ear ear;
    ear.listen(*observer);
    EXPECT_TRUE(this->postUntil(*poster, kName, {{"when", "before"}}, [&] { return !ear.heard.empty(); }));
    this->world.setDown(true);
    poster->post(kName, {{"when", "meanwhile"}});
    this->world.setDown(false);
    EXPECT_TRUE(this->postUntil(*poster, kName, {{"when", "after"}},
                                [&] { return !ear.heard.empty() && ear.heard.back().at("when") == "after"; }));
}

TYPED_TEST(NotificationsContract, MayBeDestroyedWithObservationsAndNoticesOutstanding) {
    Ear ear;
    {
        const auto both = this->world.join();
        ear.listen(*both);
        both->post(kName, {});
    }
    ear.observation.reset();
    const auto other = this->world.join();
    this->settle(*other, *other);
}

// --- What the bus adds

class DBusNotificationsTest : public testing::Test {
protected:
    bool runUntil(const std::function<bool()>& condition) { return world.driver().runUntil(condition); }
    bool postUntil(DistributedNotifications& from, const UserInfo& userInfo, const std::function<bool()>& condition) {
        return vexil::postUntil(world.driver(), from, kName, userInfo, condition);
    }
    // A stranger on the bus.
    GDBusConnection* stranger() {
        if (!connection.current()) {
            connection.retry();
            EXPECT_TRUE(runUntil([this] { return connection.current() != nullptr; }));
        }
        return connection.current();
    }

    DBusWorld world;
    DBusConnection connection{world.queue(), world.bus.address(), [](GDBusConnection*) {}};
};

TEST_F(DBusNotificationsTest, ANoticeIsASignalOfTheNamesOwnShape) {
    struct Seen {
        std::string path;
        std::string interface;
        std::string member;
        std::string parameters;
    } seen;
    const guint subscription = g_dbus_connection_signal_subscribe(
        stranger(), nullptr, "com.orvane.vexil.shortcut", nullptr, nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar* path, const gchar* interface, const gchar* member,
           GVariant* parameters, gpointer data) {
            const GlibPtr<gchar> printed(g_variant_print(parameters, TRUE));
            *static_cast<Seen*>(data) = {path, interface, member, printed.get()};
        },
        &seen, nullptr);
    const auto poster = world.join();
    EXPECT_TRUE(postUntil(*poster, {{"port", "4711"}}, [&] { return !seen.member.empty(); }));
    EXPECT_EQ(seen.path, "/com/orvane/vexil/shortcut");
    EXPECT_EQ(seen.interface, "com.orvane.vexil.shortcut");
    EXPECT_EQ(seen.member, "heartbeat");
    EXPECT_EQ(seen.parameters, "({'port': '4711'},)");
    g_dbus_connection_signal_unsubscribe(stranger(), subscription);
}

TEST_F(DBusNotificationsTest, ASignalOfAnotherShapeIsNoNotice) {
    const auto observer = world.join();
    Ear ear;
    ear.listen(*observer);
    ASSERT_TRUE(postUntil(*observer, {{"kind", "real"}}, [&] { return !ear.heard.empty(); }));
    const auto emit = [this](const char* path, GVariant* parameters) {
        EXPECT_TRUE(g_dbus_connection_emit_signal(stranger(), nullptr, path, "com.orvane.vexil.shortcut", "heartbeat",
                                                  parameters, nullptr));
    };
    const auto of = [](const char* text) { return g_variant_new_parsed(text); };
    emit("/com/orvane/vexil/shortcut", nullptr);
    emit("/com/orvane/vexil/shortcut", of("('lie',)"));
    emit("/com/orvane/vexil/shortcut", of("({'kind': <'lie'>},)"));
    emit("/com/orvane/vexil/shortcut", of("({'kind': 'lie'}, 1)"));
    emit("/com/orvane/elsewhere", of("({'kind': 'lie'},)"));
    emit("/com/orvane/vexil/shortcut", of("({'kind': 'last'},)"));
    EXPECT_TRUE(runUntil([&] { return ear.heard.back().at("kind") == "last"; }));
    EXPECT_THAT(ear.heard, Each(Contains(Pair("kind", Not("lie")))));
}

TEST_F(DBusNotificationsTest, TheFirstPostIsNotLostToTheTimeThatConnectingTakes) {
    const auto observer = world.join();
    Ear ear;
    ear.listen(*observer);
    ASSERT_TRUE(postUntil(*observer, {{"from", "observer"}}, [&] { return !ear.heard.empty(); }));
    const auto poster = world.join();
    poster->post(kName, {{"from", "outdated"}});
    poster->post(kName, {{"from", "poster"}});
    EXPECT_TRUE(runUntil([&] { return ear.heard.back().at("from") == "poster"; }));
    EXPECT_THAT(ear.heard, Each(Contains(Pair("from", Not("outdated")))));
}

TEST_F(DBusNotificationsTest, TextThatIsNotUtf8IsRepaired) {
    const auto both = world.join();
    Ear ear;
    ear.listen(*both);
    EXPECT_TRUE(postUntil(*both, {{"key", "a\xff"}}, [&] { return !ear.heard.empty(); }));
    EXPECT_EQ(ear.heard.front().at("key"), "a\xEF\xBF\xBD");
}

TEST_F(DBusNotificationsTest, ABusThatComesLateIsFoundWithoutAPost) {
    world.setDown(true);
    const auto observer = world.join();
    Ear ear;
    ear.listen(*observer);
    EXPECT_TRUE(runUntil([start = world.queue().now(), this] { return world.queue().now() - start > 50ms; }));
    world.setDown(false);
    const auto poster = world.join();
    EXPECT_TRUE(postUntil(*poster, {}, [&] { return !ear.heard.empty(); }));
}

TEST_F(DBusNotificationsTest, APostBringsTheBusBackAheadOfTheDelay) {
    bool isConnected = false;
    int failures = 0;
    world.setDown(true);
    DBusConnection late(world.queue(), world.bus.address(), [&](GDBusConnection* found) {
        isConnected = found != nullptr;
        failures += isConnected ? 0 : 1;
    });
    // Each failure doubles the delay: far more patience than the retry below needs.
    while (failures < 8) {
        late.retry();
        const int before = failures;
        ASSERT_TRUE(runUntil([&] { return failures > before; }));
    }
    world.setDown(false);
    const auto before = Clock::now();
    late.retry();
    EXPECT_TRUE(runUntil([&] { return isConnected; }));
    EXPECT_LT(Clock::now() - before, 5s);
}

TEST_F(DBusNotificationsTest, AMuteBusBlocksNobodyAndIsLeftAtOnce) {
    world.bus.freeze(true);
    const auto before = Clock::now();
    auto stuck = world.join();
    stuck->post(kName, {});
    bool hasRun = false;
    world.queue().post([&] { hasRun = true; });
    EXPECT_TRUE(runUntil([&] { return hasRun; }));
    stuck.reset();
    EXPECT_LT(Clock::now() - before, 5s);
    world.bus.freeze(false);
}

TEST_F(DBusNotificationsTest, WithoutAnAddressNothingIsTriedAndNothingIsHeard) {
    const auto nowhere = world.joinAt(std::nullopt);
    Ear ear;
    ear.listen(*nowhere);
    nowhere->post(kName, {});
    const auto observer = world.join();
    Ear sentinel;
    sentinel.listen(*observer);
    EXPECT_TRUE(postUntil(*observer, {}, [&] { return !sentinel.heard.empty(); }));
    EXPECT_THAT(ear.heard, IsEmpty());
}

TEST_F(DBusNotificationsTest, NothingIsWrittenToStandardErrorWhateverTheBusDoes) {
    testing::internal::CaptureStderr();
    {
        const auto both = world.join();
        Ear ear;
        ear.listen(*both);
        EXPECT_TRUE(postUntil(*both, {}, [&] { return !ear.heard.empty(); }));
        world.setDown(true);
        both->post(kName, {});
        EXPECT_TRUE(runUntil([start = world.queue().now(), this] { return world.queue().now() - start > 100ms; }));
        ear.observation.reset();
        both->post(kName, {});
        const auto nonsense = world.joinAt("nonsense");
        const auto wrong = world.joinAt("tcp:host=");
        EXPECT_TRUE(runUntil([start = world.queue().now(), this] { return world.queue().now() - start > 100ms; }));
        world.setDown(false);
        ear.listen(*both);
        ear.heard.clear();
        EXPECT_TRUE(postUntil(*both, {}, [&] { return !ear.heard.empty(); }));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// GLib's own two are the price of GDBus; neither the attempt nor a pool of GIO's may stay.
TEST_F(DBusNotificationsTest, AddsNoThreadButThoseThatGLibSharesAmongAllConnections) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer starts a thread of its own with the first one";
#endif
    const auto names = [] {
        std::multiset<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
            std::string name;
            std::getline(std::ifstream(entry.path() / "comm"), name);
            found.insert(name);
        }
        return found;
    };
    const auto before = names();
    const auto both = world.join();
    Ear ear;
    ear.listen(*both);
    EXPECT_TRUE(postUntil(*both, {}, [&] { return !ear.heard.empty(); }));
    const auto after = names();
    EXPECT_EQ(after.count("gdbus"), 1U);
    EXPECT_LE(after.count("gmain"), 1U);
    for (const auto& name : after) {
        if (name != "gdbus" && name != "gmain") {
            EXPECT_LE(after.count(name), before.count(name)) << name;
        }
    }
}

} // namespace
} // namespace vexil
