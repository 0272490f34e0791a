// SPDX-License-Identifier: Apache-2.0
// What we copy, as other programs ask X11 for it: whole or in pieces, one target or several.
#include "platform/contract/x11_pasteboard_fixture.h"
#include "platform/contract/x11_peer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vexil {

namespace {

using testing::Contains;
using namespace std::chrono_literals;

class X11PasteboardWritingTest : public X11PasteboardFixture {};

PasteboardContents withBoth(std::string text, std::string_view png) {
    PasteboardContents contents{.text = std::move(text), .data = {}};
    contents.data.push_back({.type = pasteboard_type::kPng, .bytes = copyOf(bytesOf(png))});
    return contents;
}

} // namespace

TEST_F(X11PasteboardWritingTest, XclipAndXselReadWhatWeWrite) {
    writeText("unser Text, äöü");
    EXPECT_EQ(ChildProcess({"xclip", "-o", "-selection", "clipboard", "-t", "UTF8_STRING"}, "", file("a")).wait(), 0);
    EXPECT_EQ(contentOf(file("a")), "unser Text, äöü");
    EXPECT_EQ(ChildProcess({"xsel", "-b", "-o"}, "", file("b")).wait(), 0);
    EXPECT_EQ(contentOf(file("b")), "unser Text, äöü");
}

TEST_F(X11PasteboardWritingTest, SendsAnImageInPieces) {
    const std::string image = noise(9'500'001);
    writePng(image);
    EXPECT_EQ(ChildProcess({"xclip", "-o", "-selection", "clipboard", "-t", "image/png"}, "", file("a")).wait(), 0);
    EXPECT_TRUE(contentOf(file("a")) == image);
}

TEST_F(X11PasteboardWritingTest, AWriteShowsInTheChangeCountWithItsCompletionOnly) {
    X11Peer peer;
    const std::int64_t before = ours().changeCount();
    std::optional<std::int64_t> count;
    ours().write({.text = "ours", .data = {}}, [&](auto written) {
        count = written;
        EXPECT_EQ(ours().changeCount(), written);
    });
    while (peer.clipboardOwner() == XCB_NONE) // the queue does not run meanwhile
        peer.flushAndSync();
    EXPECT_TRUE(peer.answerTo("UTF8_STRING").has_value());
    EXPECT_EQ(ours().changeCount(), before);
    EXPECT_TRUE(session.runUntil([&count] { return count.has_value(); }));
    EXPECT_EQ(count, before + 1);
}

TEST_F(X11PasteboardWritingTest, ServesTheTargetsThatItLists) {
    write(withBoth("grün", "png"));
    X11Peer peer;
    const auto list = peer.answerTo("TARGETS");
    ASSERT_TRUE(list.has_value());
    EXPECT_EQ(list->type, XCB_ATOM_ATOM);
    ASSERT_EQ(list->format, 32);
    std::vector<xcb_atom_t> targets(list->bytes.size() / 4);
    std::memcpy(targets.data(), list->bytes.data(), list->bytes.size());
    for (const char* name : {"TARGETS", "TIMESTAMP", "MULTIPLE", "UTF8_STRING", "text/plain;charset=utf-8",
                             "text/plain", "STRING", "image/png"}) {
        EXPECT_THAT(targets, Contains(peer.atom(name))) << name;
    }
    for (const char* name : {"TIMESTAMP", "UTF8_STRING", "text/plain;charset=utf-8", "text/plain", "image/png"})
        EXPECT_TRUE(peer.answerTo(name).has_value()) << name;
    EXPECT_THAT(peer.answerTo("STRING")->bytes, copyOf(bytesOf("gr\xFCn")));
    EXPECT_EQ(peer.answerTo("TIMESTAMP")->format, 32);
    EXPECT_EQ(peer.answerTo("image/tiff"), std::nullopt);
}

TEST_F(X11PasteboardWritingTest, TextBeyondLatin1IsNotOfferedAsLatin1) {
    writeText("世界");
    X11Peer peer;
    EXPECT_EQ(peer.answerTo("STRING"), std::nullopt);
    EXPECT_EQ(peer.answerTo("UTF8_STRING")->bytes, copyOf(bytesOf("世界")));
}

TEST_F(X11PasteboardWritingTest, ServesSeveralTargetsInOneRequest) {
    write(withBoth("text", "png"));
    X11Peer peer;
    const std::vector<xcb_atom_t> pairs = {peer.atom("UTF8_STRING"), peer.atom("P1"),        peer.atom("image/tiff"),
                                           peer.atom("P2"),          peer.atom("image/png"), peer.atom("P3")};
    peer.setProperty(peer.window(), peer.atom("PEER"), peer.atom("ATOM_PAIR"), 32,
                     {reinterpret_cast<const std::uint8_t*>(pairs.data()), pairs.size() * 4});
    const auto answer = peer.answerTo("MULTIPLE");
    ASSERT_TRUE(answer.has_value());
    ASSERT_EQ(answer->bytes.size(), pairs.size() * 4);
    std::vector<xcb_atom_t> answered(pairs.size());
    std::memcpy(answered.data(), answer->bytes.data(), answer->bytes.size());
    EXPECT_EQ(answered[1], pairs[1]);
    EXPECT_EQ(answered[3], xcb_atom_t{XCB_NONE});
    EXPECT_EQ(answered[5], pairs[5]);
    EXPECT_EQ(peer.takeProperty("P1").bytes, copyOf(bytesOf("text")));
    EXPECT_EQ(peer.takeProperty("P3").bytes, copyOf(bytesOf("png")));
    EXPECT_EQ(peer.takeProperty("P2").type, xcb_atom_t{XCB_NONE});
}

TEST_F(X11PasteboardWritingTest, ListsWhatIsPromisedWithoutMakingItAndSendsItInPieces) {
    // Shared with the promise, which is kept on another thread.
    const auto png = std::make_shared<const std::string>(noise(5'000'000));
    const auto made = std::make_shared<std::atomic<int>>(0);
    PasteboardContents contents;
    contents.data.push_back({.type = pasteboard_type::kJpeg, .bytes = copyOf(bytesOf("jpeg"))});
    contents.promise = {.type = pasteboard_type::kPng, .bytes = std::make_shared<PromisedBytes>([png, made](ByteView) {
                                                           ++*made;
                                                           return copyOf(bytesOf(*png));
                                                       })};
    write(std::move(contents));
    EXPECT_EQ(ChildProcess({"xclip", "-o", "-selection", "clipboard", "-t", "TARGETS"}, "", file("a")).wait(), 0);
    EXPECT_THAT(contentOf(file("a")), testing::HasSubstr("image/jpeg\nimage/png\n"));
    EXPECT_EQ(*made, 0);
    for (const char* name : {"b", "c"}) {
        EXPECT_EQ(ChildProcess({"xclip", "-o", "-selection", "clipboard", "-t", "image/png"}, "", file(name)).wait(),
                  0);
        EXPECT_TRUE(contentOf(file(name)) == *png);
    }
    EXPECT_EQ(*made, 1);
}

TEST_F(X11PasteboardWritingTest, ARequestForSeveralTargetsWithoutAListIsRefused) {
    writeText("text");
    X11Peer peer;
    EXPECT_EQ(peer.answerTo("MULTIPLE"), std::nullopt);
    EXPECT_TRUE(peer.answerTo("UTF8_STRING").has_value());
}

TEST_F(X11PasteboardWritingTest, ARequestorThatStallsOrGoesIsDroppedAndOthersAreServed) {
    const std::string image = noise(5'000'000);
    writePng(image);
    auto stalling = std::make_unique<X11Peer>();
    EXPECT_EQ(stalling->answerTo("image/png")->type, stalling->atom("INCR"));
    EXPECT_TRUE(stalling->isHeardByOthers());
    {
        X11Peer going;
        EXPECT_EQ(going.answerTo("image/png")->type, going.atom("INCR"));
    }
    EXPECT_EQ(ChildProcess({"xclip", "-o", "-selection", "clipboard", "-t", "image/png"}, "", file("a")).wait(), 0);
    EXPECT_TRUE(contentOf(file("a")) == image);
    // Whoever is dropped is no longer listened to. The stalled one has its first piece, and no other follows.
    EXPECT_TRUE(session.runUntil([&stalling] { return !stalling->isHeardByOthers(); }));
    EXPECT_GT(stalling->takeProperty().bytes.size(), 0U);
    stalling->flushAndSync();
    session.queue().runFor(200ms);
    EXPECT_EQ(stalling->takeProperty().type, xcb_atom_t{XCB_NONE});
}

TEST_F(X11PasteboardWritingTest, ATransferUnderWayOutlivesTheOwnership) {
    const std::string image = noise(5'000'000);
    writePng(image);
    X11Peer peer;
    EXPECT_EQ(peer.answerTo("image/png")->type, peer.atom("INCR"));
    const auto xclip = copiedByXclip("another copy");
    std::string received;
    for (;;) {
        const auto event = peer.waitFor(XCB_PROPERTY_NOTIFY);
        ASSERT_TRUE(event);
        const auto& notice = reinterpret_cast<const xcb_property_notify_event_t&>(*event);
        if (notice.state != XCB_PROPERTY_NEW_VALUE || notice.atom != peer.atom("PEER"))
            continue;
        const auto piece = peer.takeProperty();
        if (piece.type == peer.atom("INCR") || piece.type == XCB_NONE)
            continue; // the event of the announcement, which was taken already
        if (piece.bytes.empty())
            break;
        received += textOf(piece.bytes);
    }
    EXPECT_TRUE(received == image);
}

} // namespace vexil
