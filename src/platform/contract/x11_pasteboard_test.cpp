// SPDX-License-Identifier: Apache-2.0
// What only X11 has: other programs' clients, transfers in pieces, owners that hang or lie.
#include "platform/contract/child_process.h"
#include "platform/contract/x11_pasteboard_session.h"
#include "platform/contract/x11_peer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>

namespace vexil {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::Optional;
using testing::UnorderedElementsAre;
using namespace std::chrono_literals;

std::string noise(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint32_t state = 7;
    for (char& byte : bytes)
        byte = static_cast<char>((state = state * 1'664'525 + 1'013'904'223) >> 24);
    return bytes;
}

class X11PasteboardTest : public testing::Test {
protected:
    X11PasteboardTest() {
        std::string name = testing::TempDir() + "x11_pasteboard_XXXXXX";
        folder_ = mkdtemp(name.data());
    }
    ~X11PasteboardTest() override { std::filesystem::remove_all(folder_); }

    std::string file(const std::string& name) { return folder_ / name; }
    std::string fileWith(const std::string& content) {
        const std::string path = file("input");
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    static std::string contentOf(const std::string& path) {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    // Runs `copying` and waits until our pasteboard has noticed.
    template <class Copy> auto copied(Copy copying) {
        const std::int64_t before = ours().changeCount();
        auto copier = copying();
        EXPECT_TRUE(session.runUntil([this, before] { return ours().changeCount() != before; }));
        return copier;
    }
    std::unique_ptr<ScriptedOwner> copiedBy(ScriptedOwner::Script script) {
        return copied([&script] { return std::make_unique<ScriptedOwner>(std::move(script)); });
    }
    ChildProcess copiedByXclip(const std::string& content, std::vector<std::string> options = {}) {
        std::vector<std::string> command = {"xclip", "-quiet", "-i", "-selection", "clipboard"};
        command.insert(command.end(), options.begin(), options.end());
        return copied([&] { return ChildProcess(command, fileWith(content)); });
    }

    void write(PasteboardContents contents) { ASSERT_TRUE(session.write(ours(), std::move(contents)).has_value()); }
    void writeText(std::string text) { write({.text = std::move(text), .data = {}}); }
    void writePng(const std::string& bytes) {
        PasteboardContents contents;
        contents.data.push_back({.type = pasteboard_type::kPng, .bytes = copyOf(bytesOf(bytes))});
        write(std::move(contents));
    }

    X11Pasteboard& ours() { return session.ours(); }

    // The seconds that `action` takes.
    template <class Action> static double seconds(Action action) {
        const auto start = Clock::now();
        action();
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

    X11PasteboardSession session;

private:
    std::filesystem::path folder_;
};

// Lists one target, and answers it with a transfer in pieces that `onPiece` writes: it gets the number of the piece.
ScriptedOwner::Script incremental(const std::string& target, std::uint32_t announced,
                                  std::function<void(X11Peer&, const xcb_selection_request_event_t&)> pieces) {
    return [=](X11Peer& peer, const xcb_selection_request_event_t& request, const std::string& asked) {
        if (asked == "TARGETS") {
            peer.setAtoms(request.requestor, request.property, {peer.atom(target)});
            return peer.notify(request, true);
        }
        const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_change_window_attributes(peer.raw(), request.requestor, XCB_CW_EVENT_MASK, &events);
        peer.setProperty(request.requestor, request.property, peer.atom("INCR"), 32,
                         {reinterpret_cast<const std::uint8_t*>(&announced), sizeof announced});
        peer.notify(request, true);
        pieces(peer, request);
    };
}

// Waits until the requestor has taken what is in the property; false where it does not.
bool isTaken(X11Peer& peer, const xcb_selection_request_event_t& request) {
    while (const auto event = peer.waitFor(XCB_PROPERTY_NOTIFY)) {
        const auto& notice = reinterpret_cast<const xcb_property_notify_event_t&>(*event);
        if (notice.window == request.requestor && notice.atom == request.property &&
            notice.state == XCB_PROPERTY_DELETE)
            return true;
    }
    return false;
}

PasteboardContents withBoth(std::string text, std::string_view png) {
    PasteboardContents contents{.text = std::move(text), .data = {}};
    contents.data.push_back({.type = pasteboard_type::kPng, .bytes = copyOf(bytesOf(png))});
    return contents;
}

} // namespace

TEST_F(X11PasteboardTest, ReadsTextOfXclipAndXsel) {
    const auto xclip = copiedByXclip("von xclip, äöü");
    EXPECT_THAT(session.types(ours()), Optional(ElementsAre(pasteboard_type::kString)));
    EXPECT_THAT(session.string(ours()), Optional(std::string("von xclip, äöü")));
    const auto xsel = copied([this] { return ChildProcess({"xsel", "-b", "-i", "-n"}, fileWith("von xsel, äöü")); });
    EXPECT_THAT(session.string(ours()), Optional(std::string("von xsel, äöü")));
}

TEST_F(X11PasteboardTest, ReadsAnImageInPieces) {
    const std::string image = noise(9'500'001);
    const auto xclip = copiedByXclip(image, {"-t", "image/png"});
    EXPECT_THAT(session.types(ours()), Optional(ElementsAre(pasteboard_type::kPng)));
    EXPECT_EQ(session.string(ours()), std::nullopt);
    const auto read = session.data(ours(), pasteboard_type::kPng);
    ASSERT_TRUE(read.has_value());
    EXPECT_TRUE(textOf(*read) == image);
}

TEST_F(X11PasteboardTest, XclipAndXselReadWhatWeWrite) {
    writeText("unser Text, äöü");
    EXPECT_EQ(ChildProcess({"xclip", "-o", "-selection", "clipboard", "-t", "UTF8_STRING"}, "", file("a")).wait(), 0);
    EXPECT_EQ(contentOf(file("a")), "unser Text, äöü");
    EXPECT_EQ(ChildProcess({"xsel", "-b", "-o"}, "", file("b")).wait(), 0);
    EXPECT_EQ(contentOf(file("b")), "unser Text, äöü");
}

TEST_F(X11PasteboardTest, SendsAnImageInPieces) {
    const std::string image = noise(9'500'001);
    writePng(image);
    EXPECT_EQ(ChildProcess({"xclip", "-o", "-selection", "clipboard", "-t", "image/png"}, "", file("a")).wait(), 0);
    EXPECT_TRUE(contentOf(file("a")) == image);
}

TEST_F(X11PasteboardTest, AFrozenOwnerCostsTwoSecondsOnceAndHoldsNothingElseUp) {
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
    EXPECT_LT(waited, 3.5);
    EXPECT_GT(ticks, 20);
    EXPECT_LT(seconds([this] {
                  EXPECT_EQ(session.string(ours()), std::nullopt);
                  EXPECT_EQ(session.data(ours(), pasteboard_type::kPng), std::nullopt);
              }),
              1.0);
    const auto next = copiedByXclip("thawed");
    EXPECT_THAT(session.string(ours()), Optional(std::string("thawed")));
    xclip.signal(SIGCONT); // its late answer disturbs nobody
    EXPECT_THAT(session.string(ours()), Optional(std::string("thawed")));
}

TEST_F(X11PasteboardTest, ReadsThatWaitBehindASilentOwnerEndWithTheFirst) {
    const auto owner = copiedBy([](auto&, const auto&, const auto&) {});
    int answered = 0;
    ours().types([&](const auto& types) { answered += types ? 100 : 1; });
    ours().string([&](const auto& text) { answered += text ? 100 : 1; });
    ours().data(pasteboard_type::kPng, [&](const auto& data) { answered += data ? 100 : 1; });
    EXPECT_LT(seconds([&] { session.runUntil([&] { return answered >= 3; }); }), 3.5);
    EXPECT_EQ(answered, 3);
}

TEST_F(X11PasteboardTest, AnOwnerThatEndsInTheMiddleOfItsPiecesYieldsNone) {
    auto owner = copiedBy(incremental("image/png", 9'000'000, [](X11Peer& peer, const auto& request) {
        ASSERT_TRUE(isTaken(peer, request));
        peer.setProperty(request.requestor, request.property, request.target, 8, bytesOf("first piece"));
        xcb_flush(peer.raw());
        isTaken(peer, request);
        shutdown(xcb_get_file_descriptor(peer.raw()), SHUT_RDWR);
    }));
    EXPECT_LT(seconds([this] { EXPECT_EQ(session.data(ours(), pasteboard_type::kPng), std::nullopt); }), 3.5);
    const auto next = copiedByXclip("next");
    EXPECT_THAT(session.string(ours()), Optional(std::string("next")));
}

TEST_F(X11PasteboardTest, ReadsPiecesUpToTheEmptyOne) {
    const auto owner = copiedBy(incremental("UTF8_STRING", 0, [](X11Peer& peer, const auto& request) {
        for (const char* piece : {"one ", "two ", "three", ""}) {
            ASSERT_TRUE(isTaken(peer, request));
            peer.setProperty(request.requestor, request.property, request.target, 8, bytesOf(piece));
            xcb_flush(peer.raw());
        }
    }));
    EXPECT_THAT(session.string(ours()), Optional(std::string("one two three")));
}

TEST_F(X11PasteboardTest, PiecesThatNeverEndYieldNoneAndTheNextReadWorks) {
    const auto owner = copiedBy(incremental("image/png", 100, [](X11Peer& peer, const auto& request) {
        ASSERT_TRUE(isTaken(peer, request));
        peer.setProperty(request.requestor, request.property, request.target, 8, bytesOf("only piece"));
        xcb_flush(peer.raw());
    }));
    EXPECT_EQ(session.data(ours(), pasteboard_type::kPng), std::nullopt);
    const auto next = copiedByXclip("next");
    EXPECT_THAT(session.string(ours()), Optional(std::string("next")));
}

TEST_F(X11PasteboardTest, AnAnnouncementBeyondTheLimitIsRefusedAtOnce) {
    const auto owner = copiedBy(incremental("image/png", 0xFFFF'FFFF, [](X11Peer&, const auto&) {}));
    EXPECT_LT(seconds([this] { EXPECT_EQ(session.data(ours(), pasteboard_type::kPng), std::nullopt); }), 1.0);
}

TEST_F(X11PasteboardTest, MoreThanTheLimitIsAbandonedWhateverWasAnnounced) {
    std::atomic<std::size_t> sent = 0;
    const auto owner = copiedBy(incremental("image/png", 1, [&sent](X11Peer& peer, const auto& request) {
        const Bytes piece(8'000'000, 0);
        while (isTaken(peer, request) && sent < 2 * X11SelectionReader::kMaxBytes) {
            peer.setProperty(request.requestor, request.property, request.target, 8, piece);
            xcb_flush(peer.raw());
            sent += piece.size();
        }
    }));
    EXPECT_EQ(session.data(ours(), pasteboard_type::kPng), std::nullopt);
    EXPECT_GE(sent, X11SelectionReader::kMaxBytes);
    EXPECT_LT(sent, X11SelectionReader::kMaxBytes + 32'000'000);
}

TEST_F(X11PasteboardTest, APropertyBeyondTheLimitIsRefusedAtOnce) {
    const auto owner = copiedBy([](X11Peer& peer, const auto& request, const std::string& target) {
        if (target == "TARGETS") {
            peer.setAtoms(request.requestor, request.property, {peer.atom("image/png")});
            return peer.notify(request, true);
        }
        const Bytes piece(8'000'000, 0);
        for (std::size_t size = 0; size <= X11SelectionReader::kMaxBytes; size += piece.size())
            xcb_change_property(peer.raw(), XCB_PROP_MODE_APPEND, request.requestor, request.property, request.target,
                                8, static_cast<std::uint32_t>(piece.size()), piece.data());
        peer.notify(request, true);
    });
    EXPECT_EQ(session.data(ours(), pasteboard_type::kPng), std::nullopt);
    const auto next = copiedByXclip("next");
    EXPECT_THAT(session.string(ours()), Optional(std::string("next")));
}

TEST_F(X11PasteboardTest, AnOwnerThatTricklesDoesNotHoldUpTheNext) {
    std::atomic<bool> isOver = false;
    auto owner = copiedBy(incremental("image/png", 100, [&isOver](X11Peer& peer, const auto& request) {
        while (!isOver && isTaken(peer, request)) {
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
    EXPECT_LT(seconds([this] { EXPECT_THAT(session.string(ours()), Optional(std::string("next"))); }), 3.5);
    EXPECT_TRUE(isTrickleAnswered);
    isOver = true;
}

TEST_F(X11PasteboardTest, AnAnswerOfTheWrongTypeIsNotTakenForAnImage) {
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

TEST_F(X11PasteboardTest, TextInElementsOfOtherThanEightBitsIsNoText) {
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

TEST_F(X11PasteboardTest, AListThatIsNoListReadsAsNone) {
    const auto owner = copiedBy([](X11Peer& peer, const auto& request, const std::string& target) {
        peer.setProperty(request.requestor, request.property, peer.atom("UTF8_STRING"), 8, bytesOf("text"));
        peer.notify(request, target == "TARGETS" || target == "UTF8_STRING");
    });
    EXPECT_EQ(session.types(ours()), std::nullopt);
    EXPECT_THAT(session.string(ours()), Optional(std::string("text"))) << "an owner without a list may have text";
}

TEST_F(X11PasteboardTest, APropertyThatIsClaimedButNotThereYieldsNone) {
    const auto owner =
        copiedBy([](X11Peer& peer, const auto& request, const std::string&) { peer.notify(request, true); });
    EXPECT_EQ(session.types(ours()), std::nullopt);
    EXPECT_EQ(session.string(ours()), std::nullopt);
}

TEST_F(X11PasteboardTest, ConcealedContentIsMarkedWithoutBeingRead) {
    const auto owner = copiedBy(honest({{"UTF8_STRING", "secret"}, {"org.nspasteboard.ConcealedType", ""}}));
    EXPECT_THAT(session.types(ours()),
                Optional(UnorderedElementsAre(pasteboard_type::kString, pasteboard_type::kConcealed)));
    EXPECT_THAT(owner->asked(), ElementsAre("TARGETS"));
}

TEST_F(X11PasteboardTest, ThePasswordHintConcealsUnlessItSaysPublic) {
    for (const char* hint : {"secret", "", "publicly", "Public"}) {
        const auto owner = copiedBy(honest({{"UTF8_STRING", "text"}, {"x-kde-passwordManagerHint", hint}}));
        EXPECT_THAT(session.types(ours()), Optional(Contains(pasteboard_type::kConcealed))) << hint;
        EXPECT_THAT(owner->asked(), ElementsAre("TARGETS", "x-kde-passwordManagerHint"));
    }
    const auto owner = copiedBy(honest({{"UTF8_STRING", "text"}, {"x-kde-passwordManagerHint", "public"}}));
    EXPECT_THAT(session.types(ours()), Optional(ElementsAre(pasteboard_type::kString)));
}

TEST_F(X11PasteboardTest, APasswordHintThatCannotBeReadConceals) {
    const auto owner = copiedBy([](X11Peer& peer, const auto& request, const std::string& target) {
        if (target == "TARGETS")
            peer.setAtoms(request.requestor, request.property, {peer.atom("x-kde-passwordManagerHint")});
        peer.notify(request, target == "TARGETS");
    });
    EXPECT_THAT(session.types(ours()), Optional(ElementsAre(pasteboard_type::kConcealed)));
}

TEST_F(X11PasteboardTest, TransientContentIsMarkedByAnyOfItsNames) {
    for (const char* name :
         {"org.nspasteboard.TransientType", "application/x-kde-onlyReplaceEmpty", "application/x-kde-syncselection"}) {
        const auto owner = copiedBy(honest({{"UTF8_STRING", "text"}, {name, ""}}));
        EXPECT_THAT(session.types(ours()),
                    Optional(UnorderedElementsAre(pasteboard_type::kString, pasteboard_type::kTransient)))
            << name;
    }
}

TEST_F(X11PasteboardTest, Latin1TextArrivesAsUtf8) {
    const auto owner = copiedBy(honest({{"STRING", "gr\xFC\xDF"
                                                   "e"}}));
    EXPECT_THAT(session.string(ours()), Optional(std::string("grüße")));
}

TEST_F(X11PasteboardTest, TheBestTextTargetIsTheOneThatIsRead) {
    const auto owner = copiedBy(honest({{"STRING", "d"}, {"text/plain", "c"}, {"text/plain;charset=utf-8", "b"}}));
    EXPECT_THAT(session.string(ours()), Optional(std::string("b")));
    EXPECT_THAT(owner->asked(), Not(Contains("STRING")));
}

TEST_F(X11PasteboardTest, IllFormedTextIsRepaired) {
    const auto owner = copiedBy(honest({{"UTF8_STRING", "a\xFFz"}}));
    EXPECT_THAT(session.string(ours()), Optional(std::string("a\uFFFDz")));
}

TEST_F(X11PasteboardTest, OtherImageFormatsAreHandedOnAsTheyAre) {
    for (const char* format : {"image/jpeg", "image/webp", "image/bmp", "image/gif"}) {
        const auto owner = copiedBy(honest({{"text/html", "<img>"}, {format, "bytes"}}));
        EXPECT_THAT(session.types(ours()), Optional(Contains(pasteboard_type::kAnyImage))) << format;
        EXPECT_THAT(session.data(ours(), pasteboard_type::kAnyImage), Optional(copyOf(bytesOf("bytes")))) << format;
    }
}

TEST_F(X11PasteboardTest, TheEndOfTheOwnerIsAChange) {
    auto xclip = copiedByXclip("text");
    const std::int64_t before = ours().changeCount();
    xclip.signal(SIGKILL);
    xclip.wait();
    EXPECT_TRUE(session.runUntil([this, before] { return ours().changeCount() > before; }));
    EXPECT_EQ(session.types(ours()), std::nullopt);
}

TEST_F(X11PasteboardTest, AWriteShowsInTheChangeCountWithItsCompletionOnly) {
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

TEST_F(X11PasteboardTest, ServesTheTargetsThatItLists) {
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

TEST_F(X11PasteboardTest, TextBeyondLatin1IsNotOfferedAsLatin1) {
    writeText("世界");
    X11Peer peer;
    EXPECT_EQ(peer.answerTo("STRING"), std::nullopt);
    EXPECT_EQ(peer.answerTo("UTF8_STRING")->bytes, copyOf(bytesOf("世界")));
}

TEST_F(X11PasteboardTest, ServesSeveralTargetsInOneRequest) {
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

TEST_F(X11PasteboardTest, ARequestForSeveralTargetsWithoutAListIsRefused) {
    writeText("text");
    X11Peer peer;
    EXPECT_EQ(peer.answerTo("MULTIPLE"), std::nullopt);
    EXPECT_TRUE(peer.answerTo("UTF8_STRING").has_value());
}

TEST_F(X11PasteboardTest, ARequestorThatStallsOrGoesIsDroppedAndOthersAreServed) {
    const std::string image = noise(5'000'000);
    writePng(image);
    auto stalling = std::make_unique<X11Peer>();
    EXPECT_EQ(stalling->answerTo("image/png")->type, stalling->atom("INCR"));
    {
        X11Peer going;
        EXPECT_EQ(going.answerTo("image/png")->type, going.atom("INCR"));
    }
    EXPECT_EQ(ChildProcess({"xclip", "-o", "-selection", "clipboard", "-t", "image/png"}, "", file("a")).wait(), 0);
    EXPECT_TRUE(contentOf(file("a")) == image);
    // The stalled one has its first piece; after the deadline no other follows.
    session.queue().runFor(X11SelectionSender::kDeadline + 500ms);
    EXPECT_GT(stalling->takeProperty().bytes.size(), 0U);
    stalling->flushAndSync();
    session.queue().runFor(200ms);
    EXPECT_EQ(stalling->takeProperty().type, xcb_atom_t{XCB_NONE});
}

TEST_F(X11PasteboardTest, ATransferUnderWayOutlivesTheOwnership) {
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

TEST_F(X11PasteboardTest, NothingWakesItWhileNothingHappens) {
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
    session.queue().runFor(100ms);
    const auto before = switches();
    EXPECT_EQ(before.size(), 2U);
    session.queue().runFor(3s);
    EXPECT_EQ(switches(), before);
}

} // namespace vexil
