// SPDX-License-Identifier: Apache-2.0
// A display that is not there yet, goes, and comes back.
#include "platform/contract/child_process.h"
#include "platform/contract/waiting_main_queue.h"
#include "platform/contract/x11_peer.h"
#include "platform/linux/x11_pasteboard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace vexil {

namespace {

using testing::ElementsAre;
using namespace std::chrono_literals;

// A display that is free, and that no server takes which picks its own number: those start at zero. It is tried again
// after the end of a server, so it must not be given to a test that runs beside this one.
std::string freeDisplay() {
    for (int number = 200 + getpid() % 500;; ++number) {
        const std::string digits = std::to_string(number);
        // A server that reports its number makes no lock file.
        if (!std::filesystem::exists("/tmp/.X" + digits + "-lock") &&
            !std::filesystem::exists("/tmp/.X11-unix/X" + digits))
            return ":" + digits;
    }
}

class Server {
public:
    explicit Server(std::string display = freeDisplay()) : Server(makePipe(), std::move(display)) {}

    [[nodiscard]] const std::string& display() const { return display_; }
    void signal(int number) const { process_.signal(number); }
    void end() {
        process_.signal(SIGTERM);
        process_.wait();
    }

private:
    struct Pipe {
        int reading, writing;
    };
    static Pipe makePipe() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe(ends), 0);
        return {ends[0], ends[1]};
    }
    static std::vector<std::string> command(const std::string& display) {
        return {"Xvfb", display, "-displayfd", "3", "-nolisten", "tcp", "-noreset"};
    }
    Server(Pipe ends, std::string display)
        : process_(command(display), "", "", ends.writing), display_(std::move(display)) {
        close(ends.writing);
        char byte = 0;
        std::string number;
        while (read(ends.reading, &byte, 1) == 1 && byte != '\n')
            number += byte;
        close(ends.reading);
        EXPECT_EQ(":" + number, display_); // it is there, and on that display
    }

    ChildProcess process_;
    std::string display_;
};

class X11ServerLoss : public testing::Test {
protected:
    void connectTo(const std::string& display) {
        pasteboard = std::make_unique<X11Pasteboard>(queue, display,
                                                     [this](bool isConnected) { connections.push_back(isConnected); });
    }
    // Waits for a number of reports on the connection.
    void expectReports(std::size_t count) {
        ASSERT_TRUE(queue.runUntil([this, count] { return connections.size() >= count; }));
    }
    std::optional<std::string> read() {
        std::optional<std::optional<std::string>> answer;
        pasteboard->string([&answer](auto text) { answer = std::move(text); });
        EXPECT_TRUE(queue.runUntil([&answer] { return answer.has_value(); }));
        return answer.value_or(std::nullopt);
    }
    std::optional<std::int64_t> write(std::string text) {
        std::optional<std::optional<std::int64_t>> answer;
        pasteboard->write({.text = std::move(text), .data = {}}, [&answer](auto count) { answer = count; });
        EXPECT_TRUE(queue.runUntil([&answer] { return answer.has_value(); }));
        return answer.value_or(std::nullopt);
    }

    WaitingMainQueue queue;
    std::vector<bool> connections;
    std::unique_ptr<X11Pasteboard> pasteboard;
};

// Takes connections, and never says a word.
class SilentServer {
public:
    SilentServer() : display_(freeDisplay()), descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const std::string name = std::string(1, '\0') + "/tmp/.X11-unix/X" + display_.substr(1);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, name.size());
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        EXPECT_EQ(bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), size), 0);
        EXPECT_EQ(listen(descriptor_, 4), 0);
    }
    SilentServer(const SilentServer&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;
    ~SilentServer() { close(descriptor_); }

    [[nodiscard]] const std::string& display() const { return display_; }
    // False where nobody connects within 5 s. The connection lasts as long as the test.
    [[nodiscard]] bool accepts() const {
        pollfd readable{descriptor_, POLLIN, 0};
        return poll(&readable, 1, 5000) == 1;
    }

private:
    std::string display_;
    int descriptor_;
};

} // namespace

TEST_F(X11ServerLoss, AServerThatNeverFinishesTheConnectionHoldsUpNeitherOthersNorTheEnd) {
    const Server server;
    const SilentServer silent;
    connectTo(silent.display());
    ASSERT_TRUE(silent.accepts());
    const X11Peer peer(server.display()); // by way of the same authority file
    const auto start = Clock::now();
    pasteboard.reset();
    EXPECT_LT(Clock::now() - start, X11ClipboardThread::kRetryInterval);
    EXPECT_THAT(connections, testing::IsEmpty());
}

TEST_F(X11ServerLoss, WithoutADisplayThereIsNeverAnything) {
    connectTo("");
    EXPECT_FALSE(pasteboard->hasDisplay());
    EXPECT_EQ(read(), std::nullopt);
    EXPECT_EQ(write("text"), std::nullopt);
    EXPECT_EQ(pasteboard->changeCount(), 0);
    EXPECT_THAT(connections, testing::IsEmpty());
}

TEST_F(X11ServerLoss, ADisplayThatComesLaterIsFound) {
    Server first;
    first.end();
    connectTo(first.display());
    EXPECT_TRUE(pasteboard->hasDisplay());
    expectReports(1);
    EXPECT_EQ(read(), std::nullopt);
    EXPECT_EQ(write("too early"), std::nullopt);
    const Server second(first.display());
    expectReports(2);
    EXPECT_THAT(connections, ElementsAre(false, true));
    EXPECT_TRUE(write("text").has_value());
    EXPECT_EQ(read(), "text");
}

TEST_F(X11ServerLoss, AServerThatEndsTakesTheContentAlongAndTheCountGoesOn) {
    Server first;
    connectTo(first.display());
    expectReports(1);
    const auto written = write("text");
    ASSERT_TRUE(written.has_value());
    first.end();
    expectReports(2);
    EXPECT_EQ(read(), std::nullopt);
    const std::int64_t atTheEnd = pasteboard->changeCount(); // the loss itself may have been told as a change
    EXPECT_GE(atTheEnd, *written);

    const Server second(first.display());
    ScriptedOwner owner(honest({{"UTF8_STRING", "copied meanwhile"}}), second.display());
    expectReports(3);
    EXPECT_THAT(connections, ElementsAre(true, false, true));
    EXPECT_EQ(read(), "copied meanwhile");
    const std::int64_t meanwhile = pasteboard->changeCount();
    EXPECT_GT(meanwhile, atTheEnd);
    const auto next = write("next");
    ASSERT_TRUE(next.has_value());
    EXPECT_GT(*next, meanwhile);
}

TEST_F(X11ServerLoss, CallsUnderWayAreAnsweredWhenTheServerDies) {
    Server server;
    connectTo(server.display());
    expectReports(1);
    const ScriptedOwner silent([](auto&, const auto&, const auto&) {}, server.display());
    ASSERT_TRUE(queue.runUntil([this] { return pasteboard->changeCount() > 0; }));
    bool isAnswered = false;
    pasteboard->types([&isAnswered](const auto& types) { isAnswered = !types; });
    server.signal(SIGKILL);
    // By the death, not by the deadline of a read.
    EXPECT_TRUE(queue.runUntil([&isAnswered] { return isAnswered; }, X11SelectionReader::kDeadline - 100ms));
}

TEST_F(X11ServerLoss, AServerThatHangsHoldsUpNeitherReadsNorTheEnd) {
    const Server server;
    connectTo(server.display());
    expectReports(1);
    ASSERT_TRUE(write("text").has_value());
    {
        ScriptedOwner owner(honest({{"UTF8_STRING", "theirs"}}), server.display());
        ASSERT_TRUE(queue.runUntil([this] { return pasteboard->changeCount() > 1; }));
        server.signal(SIGSTOP);
        EXPECT_EQ(read(), std::nullopt);
        pasteboard.reset();
        server.signal(SIGCONT);
    }
}

} // namespace vexil
