// SPDX-License-Identifier: Apache-2.0
// Owners that hang, die, trickle or lie: each costs its own content, and never the next one.
#include "platform/contract/x11_pasteboard_fixture.h"
#include "platform/contract/x11_peer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace vexil {

namespace {

using testing::ElementsAre;
using testing::Optional;
using namespace std::chrono_literals;

// In seconds. What is refused at once is answered before it; the bound leaves the rest to a busy machine.
constexpr double kDeadline = std::chrono::duration<double>(X11SelectionReader::kDeadline).count();

class X11PasteboardHostileOwnerTest : public X11PasteboardFixture {};

} // namespace

TEST_F(X11PasteboardHostileOwnerTest, AFrozenOwnerCostsTwoSecondsOnceAndHoldsNothingElseUp) {
    const auto xclip = copiedByXclip("frozen");
    xclip.signal(SIGSTOP);
    int ticks = 0;
    std::function<void()> tick;
    Timer timer;
    tick = [&] {
        ++ticks;
        timer = session.queue().after(50ms, [&tick] { tick(); });
    };
    tick();
    const double waited = seconds([this] { EXPECT_EQ(session.types(ours()), std::nullopt); });
    EXPECT_GT(waited, 1.9);
    EXPECT_LT(waited, 2 * kDeadline);
    EXPECT_GT(ticks, 5);
    EXPECT_LT(seconds([this] {
                  EXPECT_EQ(session.string(ours()), std::nullopt);
                  EXPECT_EQ(session.data(ours(), pasteboard_type::kPng), std::nullopt);
              }),
              kDeadline);
    const auto next = copiedByXclip("thawed");
    EXPECT_THAT(session.string(ours()), Optional(std::string("thawed")));
    xclip.signal(SIGCONT); // its late answer disturbs nobody
    EXPECT_THAT(session.string(ours()), Optional(std::string("thawed")));
}

TEST_F(X11PasteboardHostileOwnerTest, ReadsThatWaitBehindASilentOwnerEndWithTheFirst) {
    const auto owner = copiedBy([](auto&, const auto&, const auto&) {});
    int answered = 0;
    ours().types([&](const auto& types) { answered += types ? 100 : 1; });
    ours().string([&](const auto& text) { answered += text ? 100 : 1; });
    ours().data(pasteboard_type::kPng, [&](const auto& data) { answered += data ? 100 : 1; });
    EXPECT_TRUE(session.runUntil([&] { return answered >= 3; }));
    EXPECT_EQ(answered, 3);
    EXPECT_THAT(owner->asked(), ElementsAre("TARGETS"));
}

TEST_F(X11PasteboardHostileOwnerTest, AnOwnerThatEndsInTheMiddleOfItsPiecesYieldsNone) {
    auto owner = copiedBy(inPieces("image/png", 9'000'000, [](X11Peer& peer, const auto& request) {
        ASSERT_TRUE(peer.waitUntilTaken(request));
        peer.setProperty(request.requestor, request.property, request.target, 8, bytesOf("first piece"));
        xcb_flush(peer.raw());
        peer.waitUntilTaken(request);
        shutdown(xcb_get_file_descriptor(peer.raw()), SHUT_RDWR);
    }));
    EXPECT_EQ(session.data(ours(), pasteboard_type::kPng), std::nullopt);
    const auto next = copiedByXclip("next");
    EXPECT_THAT(session.string(ours()), Optional(std::string("next")));
}

TEST_F(X11PasteboardHostileOwnerTest, PiecesThatNeverEndYieldNoneAndTheNextReadWorks) {
    const auto owner = copiedBy(inPieces("image/png", 100, [](X11Peer& peer, const auto& request) {
        ASSERT_TRUE(peer.waitUntilTaken(request));
        peer.setProperty(request.requestor, request.property, request.target, 8, bytesOf("only piece"));
        xcb_flush(peer.raw());
    }));
    EXPECT_EQ(session.data(ours(), pasteboard_type::kPng), std::nullopt);
    const auto next = copiedByXclip("next");
    EXPECT_THAT(session.string(ours()), Optional(std::string("next")));
}

TEST_F(X11PasteboardHostileOwnerTest, AnAnnouncementBeyondTheLimitIsRefusedAtOnce) {
    const auto owner = copiedBy(inPieces("image/png", 0xFFFF'FFFF, [](X11Peer&, const auto&) {}));
    EXPECT_LT(seconds([this] { EXPECT_EQ(session.data(ours(), pasteboard_type::kPng), std::nullopt); }), kDeadline);
}

TEST_F(X11PasteboardHostileOwnerTest, MoreThanTheLimitIsAbandonedWhateverWasAnnounced) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "under ThreadSanitizer a piece may take longer than an owner is waited for";
#endif
    constexpr std::size_t kPiece = 2'000'000; // soon sent, also by a busy machine
    std::atomic<std::size_t> sent = 0;
    const auto owner = copiedBy(inPieces("image/png", 1, [&sent](X11Peer& peer, const auto& request) {
        const Bytes piece(kPiece, 0);
        while (peer.waitUntilTaken(request) && sent < 2 * X11ClipboardContent::kMaxDataBytes) {
            sent += piece.size(); // before the reader can give up because of it
            peer.setProperty(request.requestor, request.property, request.target, 8, piece);
            xcb_flush(peer.raw());
        }
    }));
    EXPECT_EQ(session.data(ours(), pasteboard_type::kPng), std::nullopt);
    EXPECT_GE(sent, X11ClipboardContent::kMaxDataBytes);
    EXPECT_LT(sent, X11ClipboardContent::kMaxDataBytes + 4 * kPiece);
}

TEST_F(X11PasteboardHostileOwnerTest, APropertyBeyondTheLimitIsRefusedAtOnce) {
    const auto owner = copiedBy([](X11Peer& peer, const auto& request, const std::string& target) {
        if (target == "TARGETS") {
            peer.setAtoms(request.requestor, request.property, {peer.atom("image/png")});
            return peer.notify(request, true);
        }
        const Bytes piece(8'000'000, 0);
        for (std::size_t size = 0; size <= X11ClipboardContent::kMaxDataBytes; size += piece.size())
            xcb_change_property(peer.raw(), XCB_PROP_MODE_APPEND, request.requestor, request.property, request.target,
                                8, static_cast<std::uint32_t>(piece.size()), piece.data());
        peer.notify(request, true);
    });
    EXPECT_EQ(session.data(ours(), pasteboard_type::kPng), std::nullopt);
    const auto next = copiedByXclip("next");
    EXPECT_THAT(session.string(ours()), Optional(std::string("next")));
}

TEST_F(X11PasteboardHostileOwnerTest, TextBeyondWhatTheLinkTakesIsRefusedAtOnce) {
    const auto owner = copiedBy(inPieces("UTF8_STRING", 16 * 1024 * 1024 + 1, [](X11Peer&, const auto&) {}));
    EXPECT_LT(seconds([this] { EXPECT_EQ(session.string(ours()), std::nullopt); }), kDeadline);
}

TEST_F(X11PasteboardHostileOwnerTest, TextOfUpToSixteenMebibytesIsReadWhateverWasAnnounced) {
    for (const std::size_t excess : {0U, 1U}) {
        const auto owner = copiedBy(inPieces("UTF8_STRING", 7, [excess](X11Peer& peer, const auto& request) {
            const std::string half(8 * 1024 * 1024, 'x');
            for (const std::string& piece : {half, half, half.substr(0, excess), std::string()}) {
                if (!peer.waitUntilTaken(request))
                    return;
                peer.setProperty(request.requestor, request.property, request.target, 8, bytesOf(piece));
                xcb_flush(peer.raw());
            }
        }));
        const auto text = session.string(ours());
        EXPECT_EQ(text ? text->size() : 0, excess == 0 ? 16U * 1024 * 1024 : 0U);
    }
}

TEST_F(X11PasteboardHostileOwnerTest, AnOwnerThatListsMoreThanAnyoneHasIsReadNoFurther) {
    const auto owner = copiedBy([](X11Peer& peer, const auto& request, const std::string& target) {
        if (target == "TARGETS")
            peer.setAtoms(request.requestor, request.property,
                          std::vector<xcb_atom_t>(16'385, peer.atom("UTF8_STRING")));
        else
            peer.setProperty(request.requestor, request.property, request.target, 8, bytesOf("text"));
        peer.notify(request, true);
    });
    EXPECT_EQ(session.types(ours()), std::nullopt);
    EXPECT_EQ(session.string(ours()), std::nullopt);
    EXPECT_THAT(owner->asked(), ElementsAre("TARGETS"));
}

TEST_F(X11PasteboardHostileOwnerTest, APasswordHintLongerThanAWordConcealsAtOnce) {
    const auto owner = copiedBy(inPieces("x-kde-passwordManagerHint", 65, [](X11Peer&, const auto&) {}));
    EXPECT_LT(
        seconds([this] { EXPECT_THAT(session.types(ours()), Optional(ElementsAre(pasteboard_type::kConcealed))); }),
        kDeadline);
}

TEST_F(X11PasteboardHostileOwnerTest, AnOwnerThatTricklesDoesNotHoldUpTheNext) {
    std::atomic<bool> isOver = false;
    auto owner = copiedBy(inPieces("image/png", 100, [&isOver](X11Peer& peer, const auto& request) {
        while (!isOver && peer.waitUntilTaken(request)) {
            std::this_thread::sleep_for(200ms);
            peer.setProperty(request.requestor, request.property, request.target, 8, bytesOf("."));
            xcb_flush(peer.raw());
        }
    }));
    bool isTrickleAnswered = false;
    ours().data(pasteboard_type::kPng, [&](const auto& data) {
        isTrickleAnswered = true;
        EXPECT_EQ(data, std::nullopt);
    });
    session.queue().runFor(2500ms);
    EXPECT_FALSE(isTrickleAnswered);
    const auto next = copiedByXclip("next");
    EXPECT_LT(seconds([this] { EXPECT_THAT(session.string(ours()), Optional(std::string("next"))); }), 2 * kDeadline);
    EXPECT_TRUE(isTrickleAnswered);
    isOver = true;
}

TEST_F(X11PasteboardHostileOwnerTest, AnAnswerOfTheWrongTypeIsNotTakenForAnImage) {
    const auto owner = copiedBy([](X11Peer& peer, const auto& request, const std::string& target) {
        if (target == "TARGETS")
            peer.setAtoms(request.requestor, request.property, {peer.atom("image/png"), peer.atom("image/bmp")});
        else
            peer.setProperty(request.requestor, request.property, XCB_ATOM_STRING, 8, bytesOf("the one datum"));
        peer.notify(request, true);
    });
    EXPECT_EQ(session.data(ours(), pasteboard_type::kPng), std::nullopt);
    EXPECT_EQ(session.data(ours(), pasteboard_type::kAnyImage), std::nullopt);
}

TEST_F(X11PasteboardHostileOwnerTest, TextInElementsOfOtherThanEightBitsIsNoText) {
    const auto owner = copiedBy([](X11Peer& peer, const auto& request, const std::string& target) {
        const std::vector<xcb_atom_t> offered = {peer.atom("UTF8_STRING"), XCB_ATOM_STRING};
        if (target == "TARGETS")
            peer.setAtoms(request.requestor, request.property, offered);
        else
            peer.setProperty(request.requestor, request.property, request.target, target == "STRING" ? 8 : 32,
                             bytesOf("four"));
        peer.notify(request, true);
    });
    EXPECT_THAT(session.string(ours()), Optional(std::string("four"))) << "by the next target";
}

TEST_F(X11PasteboardHostileOwnerTest, AListThatIsNoListReadsAsNone) {
    const auto owner = copiedBy([](X11Peer& peer, const auto& request, const std::string& target) {
        peer.setProperty(request.requestor, request.property, peer.atom("UTF8_STRING"), 8, bytesOf("text"));
        peer.notify(request, target == "TARGETS" || target == "UTF8_STRING");
    });
    EXPECT_EQ(session.types(ours()), std::nullopt);
    EXPECT_THAT(session.string(ours()), Optional(std::string("text"))) << "an owner without a list may have text";
}

TEST_F(X11PasteboardHostileOwnerTest, APropertyThatIsClaimedButNotThereYieldsNone) {
    const auto owner =
        copiedBy([](X11Peer& peer, const auto& request, const std::string&) { peer.notify(request, true); });
    EXPECT_EQ(session.types(ours()), std::nullopt);
    EXPECT_EQ(session.string(ours()), std::nullopt);
}

TEST_F(X11PasteboardHostileOwnerTest, APasswordHintThatCannotBeReadConceals) {
    const auto owner = copiedBy([](X11Peer& peer, const auto& request, const std::string& target) {
        if (target == "TARGETS")
            peer.setAtoms(request.requestor, request.property, {peer.atom("x-kde-passwordManagerHint")});
        peer.notify(request, target == "TARGETS");
    });
    EXPECT_THAT(session.types(ours()), Optional(ElementsAre(pasteboard_type::kConcealed)));
}

TEST_F(X11PasteboardHostileOwnerTest, IllFormedTextIsRepaired) {
    const auto owner = copiedBy(honest({{"UTF8_STRING", "a\xFFz"}}));
    EXPECT_THAT(session.string(ours()), Optional(std::string("a\uFFFDz")));
}

} // namespace vexil
