// SPDX-License-Identifier: Apache-2.0
#include "platform/contract/x11_peer.h"
#include "platform/linux/x11_connection.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <cstddef>
#include <cstdlib>

namespace vexil {

TEST(X11ConnectionTest, AFloodOfEventsIsHandedOnInPortions) {
    const auto connection = X11Connection::open(std::getenv("DISPLAY"));
    ASSERT_TRUE(connection);
    X11Peer peer;
    const std::size_t sent = 5 * X11Connection::kEventsPerDispatch / 2;
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = connection->window();
    for (std::size_t i = 0; i < sent; ++i)
        xcb_send_event(peer.raw(), 0, connection->window(), 0, reinterpret_cast<const char*>(&message));
    peer.flushAndSync();

    std::size_t received = 0;
    std::size_t portion = 0;
    X11Connection::EventHandler onEvent = [&portion](const xcb_generic_event_t& event) {
        portion += (event.response_type & 0x7f) == XCB_CLIENT_MESSAGE ? 1 : 0;
    };
    bool wasBacklogged = false;
    while (received < sent) {
        portion = 0;
        ASSERT_TRUE(connection->dispatch(onEvent));
        EXPECT_LE(portion, X11Connection::kEventsPerDispatch);
        wasBacklogged = wasBacklogged || connection->isBacklogged();
        received += portion;
        pollfd readable{connection->descriptor(), POLLIN, 0};
        if (received < sent && !connection->isBacklogged()) {
            ASSERT_EQ(poll(&readable, 1, 5000), 1);
        }
    }
    EXPECT_TRUE(wasBacklogged);
    ASSERT_TRUE(connection->dispatch(onEvent));
    EXPECT_FALSE(connection->isBacklogged());
    EXPECT_EQ(received, sent);
}

} // namespace vexil
