// SPDX-License-Identifier: Apache-2.0
// What other programs copy, as X11 hands it over: their clients, their targets, their hints.
#include "platform/contract/x11_pasteboard_fixture.h"
#include "platform/contract/x11_peer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vexil {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::Optional;
using testing::UnorderedElementsAre;
using namespace std::chrono_literals;

class X11PasteboardReadingTest : public X11PasteboardFixture {};

} // namespace

TEST_F(X11PasteboardReadingTest, ReadsTextOfXclipAndXsel) {
    const auto xclip = copiedByXclip("von xclip, äöü");
    EXPECT_THAT(session.types(ours()), Optional(ElementsAre(pasteboard_type::kString)));
    EXPECT_THAT(session.string(ours()), Optional(std::string("von xclip, äöü")));
    const auto xsel = copied([this] { return ChildProcess({"xsel", "-b", "-i", "-n"}, fileWith("von xsel, äöü")); });
    EXPECT_THAT(session.string(ours()), Optional(std::string("von xsel, äöü")));
}

TEST_F(X11PasteboardReadingTest, ReadsAnImageInPieces) {
    const std::string image = noise(9'500'001);
    const auto xclip = copiedByXclip(image, {"-t", "image/png"});
    EXPECT_THAT(session.types(ours()), Optional(ElementsAre(pasteboard_type::kPng)));
    EXPECT_EQ(session.string(ours()), std::nullopt);
    const auto read = session.data(ours(), pasteboard_type::kPng);
    ASSERT_TRUE(read.has_value());
    EXPECT_TRUE(textOf(*read) == image);
}

TEST_F(X11PasteboardReadingTest, ReadsPiecesUpToTheEmptyOne) {
    const auto owner = copiedBy(inPieces("UTF8_STRING", 0, [](X11Peer& peer, const auto& request) {
        for (const char* piece : {"one ", "two ", "three", ""}) {
            ASSERT_TRUE(peer.waitUntilTaken(request));
            peer.setProperty(request.requestor, request.property, request.target, 8, bytesOf(piece));
            xcb_flush(peer.raw());
        }
    }));
    EXPECT_THAT(session.string(ours()), Optional(std::string("one two three")));
}

TEST_F(X11PasteboardReadingTest, ConcealedContentIsMarkedWithoutBeingRead) {
    const auto owner = copiedBy(honest({{"UTF8_STRING", "secret"}, {"org.nspasteboard.ConcealedType", ""}}));
    EXPECT_THAT(session.types(ours()),
                Optional(UnorderedElementsAre(pasteboard_type::kString, pasteboard_type::kConcealed)));
    EXPECT_THAT(owner->asked(), ElementsAre("TARGETS"));
}

TEST_F(X11PasteboardReadingTest, ThePasswordHintConcealsUnlessItSaysPublic) {
    for (const char* hint : {"secret", "", "publicly", "Public"}) {
        const auto owner = copiedBy(honest({{"UTF8_STRING", "text"}, {"x-kde-passwordManagerHint", hint}}));
        EXPECT_THAT(session.types(ours()), Optional(Contains(pasteboard_type::kConcealed))) << hint;
        EXPECT_THAT(owner->asked(), ElementsAre("TARGETS", "x-kde-passwordManagerHint"));
    }
    const auto owner = copiedBy(honest({{"UTF8_STRING", "text"}, {"x-kde-passwordManagerHint", "public"}}));
    EXPECT_THAT(session.types(ours()), Optional(ElementsAre(pasteboard_type::kString)));
}

TEST_F(X11PasteboardReadingTest, TransientContentIsMarkedByAnyOfItsNames) {
    for (const char* name :
         {"org.nspasteboard.TransientType", "application/x-kde-onlyReplaceEmpty", "application/x-kde-syncselection"}) {
        const auto owner = copiedBy(honest({{"UTF8_STRING", "text"}, {name, ""}}));
        EXPECT_THAT(session.types(ours()),
                    Optional(UnorderedElementsAre(pasteboard_type::kString, pasteboard_type::kTransient)))
            << name;
    }
}

TEST_F(X11PasteboardReadingTest, Latin1TextArrivesAsUtf8) {
    const auto owner = copiedBy(honest({{"STRING", "gr\xFC\xDF"
                                                   "e"}}));
    EXPECT_THAT(session.string(ours()), Optional(std::string("grüße")));
}

TEST_F(X11PasteboardReadingTest, TheBestTextTargetIsTheOneThatIsRead) {
    const auto owner = copiedBy(honest({{"STRING", "d"}, {"text/plain", "c"}, {"text/plain;charset=utf-8", "b"}}));
    EXPECT_THAT(session.string(ours()), Optional(std::string("b")));
    EXPECT_THAT(owner->asked(), Not(Contains("STRING")));
}

TEST_F(X11PasteboardReadingTest, OtherImageFormatsAreHandedOnAsTheyAre) {
    for (const char* format : {"image/jpeg", "image/webp", "image/bmp", "image/gif"}) {
        const auto owner = copiedBy(honest({{"text/html", "<img>"}, {format, "bytes"}}));
        EXPECT_THAT(session.types(ours()), Optional(Contains(pasteboard_type::kAnyImage))) << format;
        EXPECT_THAT(session.data(ours(), pasteboard_type::kAnyImage), Optional(copyOf(bytesOf("bytes")))) << format;
    }
}

TEST_F(X11PasteboardReadingTest, TheEndOfTheOwnerIsAChange) {
    auto xclip = copiedByXclip("text");
    const std::int64_t before = ours().changeCount();
    xclip.signal(SIGKILL);
    xclip.wait();
    EXPECT_TRUE(session.runUntil([this, before] { return ours().changeCount() > before; }));
    EXPECT_EQ(session.types(ours()), std::nullopt);
}

TEST_F(X11PasteboardReadingTest, NothingWakesItWhileNothingHappens) {
    const auto xclip = copiedByXclip("text");
    EXPECT_TRUE(session.string(ours()).has_value());
    const auto switches = [] {
        std::vector<std::string> found;
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
            if (contentOf(task.path() / "comm") != std::string(X11ClipboardThread::kThreadName) + "\n")
                continue;
            const std::string status = contentOf(task.path() / "status");
            found.push_back(status.substr(status.find("voluntary_ctxt_switches")));
        }
        return found;
    };
    auto before = switches();
    EXPECT_TRUE(session.runUntil([&] { // until both have gone to sleep
        session.queue().runFor(100ms);
        return std::exchange(before, switches()) == before;
    }));
    EXPECT_EQ(before.size(), 2U);
    session.queue().runFor(3s);
    EXPECT_EQ(switches(), before);
}

} // namespace vexil
