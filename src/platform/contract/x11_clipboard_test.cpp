// SPDX-License-Identifier: Apache-2.0
// The clipboard without its thread, where no time passes between a change of owner and what follows from it.
#include "platform/contract/x11_peer.h"
#include "platform/linux/x11_clipboard.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

namespace vexil {

namespace {

// Processes until the change count has risen: what a change does is done by then.
void awaitChange(X11Clipboard& clipboard, std::int64_t before) {
    while (clipboard.changeCount() == before) {
        pollfd readable{clipboard.descriptor(), POLLIN, 0};
        ASSERT_EQ(poll(&readable, 1, 20'000), 1);
        ASSERT_TRUE(clipboard.process());
    }
}

} // namespace

TEST(X11ClipboardTest, OwnersThatFollowEachOtherAndNeverAnswerPileUpNoReads) {
    auto connection = X11Connection::open(std::getenv("DISPLAY"));
    ASSERT_TRUE(connection);
    X11Clipboard clipboard(std::move(connection), 0, [](auto) {});
    int asked = 0;
    int answered = 0;
    const auto count = [&answered](const auto& answer) {
        ++answered;
        EXPECT_FALSE(answer.has_value());
    };
    std::vector<std::unique_ptr<ScriptedOwner>> owners;
    for (int round = 0; round < 5; ++round) {
        const std::int64_t before = clipboard.changeCount();
        owners.push_back(std::make_unique<ScriptedOwner>([](auto&, const auto&, const auto&) {}));
        awaitChange(clipboard, before);
        EXPECT_GE(answered, asked - 1) << "all but the one under way, and by the change itself";
        clipboard.types(count);
        clipboard.string(count);
        clipboard.data(pasteboard_type::kPng, count);
        asked += 3;
    }
    EXPECT_LT(answered, asked) << "or nothing was ever under way";
}

} // namespace vexil
