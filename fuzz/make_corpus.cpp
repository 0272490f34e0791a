// SPDX-License-Identifier: Apache-2.0
// Writes the seeds of the fuzz targets into a folder of FOLDER for each.
#include "base/json.h"
#include "link/clipboard_link_envelope.h"
#include "link/frame.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace vexil {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kId = "00112233-4455-6677-8899-AABBCCDDEEFF";
constexpr std::string_view kOddChunks{"\x01\x02\x03\x04", 4};

void write(const fs::path& folder, std::string_view name, std::string_view content) {
    fs::create_directories(folder);
    std::ofstream(folder / name, std::ios::binary) << content;
}

std::string frame(FrameType type, std::string_view body) {
    const auto header = frameHeader(type, body.size()).value();
    return std::string(header.begin(), header.end()) + std::string(body);
}

std::string attachment(std::string_view bytes) {
    return frame(FrameType::attachment, std::string(kId) + std::string(bytes));
}

std::string envelope(ClipboardLinkEnvelopeKind kind, std::string_view method, const ClipboardLinkPayload& payload) {
    Bytes body;
    appendEnvelope(body, {1, std::string(kId), kind, std::string(method), std::nullopt}, payload);
    return frame(FrameType::envelope, textOf(body));
}

ClipboardStoreSnapshot snapshot() {
    const Uuid id = Uuid::parse(kId).value();
    ClipboardRowSummary text;
    text.id = id;
    text.preview = "a \"quoted\" line\n\tand \\ more: é 你 😀";
    text.lastCopiedAt = Date{781234567.25};
    ClipboardRowSummary image = text;
    image.scope = ClipboardScope::favorites;
    image.kind = ClipboardKind::image;
    image.categoryID = id;
    image.alias = "alias";
    image.thumbnail = Bytes{0xFF, 0xD8, 0xFF, 0x3E, 0x3F};
    return {7, {text, image}, {image}, {{id, "Work", "blue", -1}}};
}

void writeFrames(const fs::path& folder) {
    using Kind = ClipboardLinkEnvelopeKind;
    const Uuid id = Uuid::parse(kId).value();
    const auto put = [&](std::string_view name, const std::string& stream) {
        write(folder, name, std::string(kOddChunks) + stream);
    };
    put("hello", envelope(Kind::request, "hello", ClipboardHello{"nonce", "Vexil", "1"}) +
                     envelope(Kind::response, "hello", ClipboardHelloAck{"Vexil Shortcut", {"entry.use"}}));
    put("requests", envelope(Kind::request, "store.snapshot", ClipboardLinkEmpty{}) +
                        envelope(Kind::request, "entry.pin", ClipboardPinRequest{id, true}) +
                        envelope(Kind::request, "entry.favorite", ClipboardFavoriteRequest{id, {}, true, id}) +
                        envelope(Kind::request, "entry.editText", ClipboardEditRequest{id, {}, "a", id, "t"}) +
                        envelope(Kind::request, "entry.delete", ClipboardEntryRef{id, ClipboardScope::favorites}));
    put("snapshot", envelope(Kind::response, "store.snapshot", snapshot()));
    put("image", attachment("old") + attachment("image") +
                     envelope(Kind::event, "pasteboard.changed",
                              ClipboardPasteboardChange{ClipboardKind::image, std::nullopt, true}));
    put("events", envelope(Kind::event, "store.changed", std::monostate{}) +
                      envelope(Kind::event, "shortcut.state", ClipboardShortcutState{true}) +
                      envelope(Kind::event, "hosts.apply", HostsApplyCommand{true}) +
                      envelope(Kind::event, "hosts.state", HostsCompanionState{true, 1, 2, Date{3}, "e", false}));
    put("hosts",
        envelope(Kind::response, "hosts.snapshot", HostsSnapshot{1, {{id, "n", "127.0.0.1 a\n", true, Date{0.5}}}}));
    put("error", frame(FrameType::envelope, R"({"v":1,"id":"x","t":"response","m":"hello","e":{"code":"bad_nonce",)"
                                            R"("message":"Nonce rejected"}})"));
    put("payload_first", frame(FrameType::envelope, R"({"p":{"removeAll":true},"m":"hosts.apply","t":"event","id":"",)"
                                                    R"("v":1.0})"));
    put("dropped", frame(FrameType{3}, "unknown") + frame(FrameType::attachment, "short") +
                       frame(FrameType::attachment, std::string(40, '\xFF')) + frame(FrameType::envelope, "") +
                       frame(FrameType::envelope, "not json"));
    put("length_zero", std::string(4, '\0') + "\x01");
    put("length_too_long", std::string("\x01\x00\x00\x01\x01", 5));
    put("length_lies", std::string("\x01\x00\x00\x00\x01{\"v\":", 10));
}

// Of the entries that the target puts into the store before each input.
void writeStoreRequests(const fs::path& folder) {
    using Kind = ClipboardLinkEnvelopeKind;
    const auto entry = [](int number) {
        return Uuid::parse("00000000-0000-4000-8000-00000000000" + std::to_string(number)).value();
    };
    const auto ask = [](std::string_view method, const ClipboardLinkPayload& payload) {
        return envelope(Kind::request, method, payload);
    };
    const std::string snapshot = ask("store.snapshot", ClipboardLinkEmpty{});
    write(folder, "snapshot", snapshot + snapshot);
    write(folder, "lists",
          ask("entry.pin", ClipboardPinRequest{entry(1), true}) +
              ask("entry.pin", ClipboardPinRequest{entry(3), false}) +
              ask("entry.favorite", ClipboardFavoriteRequest{entry(1), {}, true, std::nullopt}) +
              ask("entry.favorite", ClipboardFavoriteRequest{entry(2), {}, false, std::nullopt}) +
              ask("entry.delete", ClipboardEntryRef{entry(4), ClipboardScope::favorites}) +
              ask("entry.delete", ClipboardEntryRef{entry(4), ClipboardScope::history}) + snapshot);
    write(folder, "content",
          ask("entry.payload", ClipboardEntryRef{entry(1), ClipboardScope::history}) +
              ask("entry.use", ClipboardEntryRef{entry(1), ClipboardScope::history}) +
              ask("entry.payload", ClipboardEntryRef{entry(9), ClipboardScope::history}));
    write(folder, "edits",
          ask("entry.editText", ClipboardEditRequest{entry(1), {}, "alias", std::nullopt, "new \xC3\x84 text"}) +
              ask("entry.edit", ClipboardEditRequest{entry(2), {}, std::nullopt, entry(1), std::nullopt}) +
              ask("entry.editText", ClipboardEditRequest{entry(3), {}, std::nullopt, std::nullopt, ""}) + snapshot);
    const auto copied = [](const ClipboardPasteboardChange& change) {
        return envelope(Kind::event, "pasteboard.changed", change);
    };
    write(folder, "copies",
          copied({ClipboardKind::text, "a copy", false}) + copied({ClipboardKind::text, "entry 1", false}) +
              attachment("no image") + copied({ClipboardKind::image, std::nullopt, true}) +
              copied({ClipboardKind::image, std::nullopt, true}) + snapshot);
    write(folder, "others",
          ask("hello", ClipboardHello{"n", "a", "b"}) + ask("hosts.snapshot", ClipboardLinkEmpty{}) +
              ask("made.up", ClipboardLinkEmpty{}) + ask("entry.pin", ClipboardLinkEmpty{}) +
              envelope(Kind::event, "hosts.state", HostsCompanionState{}));
}

void writeSnapshots(const fs::path& folder) {
    Bytes whole;
    json::append(whole, snapshot());
    write(folder, "whole", textOf(whole));
    write(folder, "empty", R"({"revision":0,"history":[],"favorites":[],"categories":[]})");
    write(folder, "spelled_otherwise",
          R"( { "categories" : [ ] , "x":[1.5e3,null,{}], "favorites":[],"history":null,)"
          R"("history":[],"revision":1.20e1,"\u0072evision":-0 } )");
    write(folder, "escapes", R"(["\u0041\ud83d\ude00\"\\\/\b\f\n\r\t",true,false,-1.5E-3])");
    write(folder, "lone_surrogate", R"(["\ud800"])");
    write(folder, "nested", std::string(65, '[') + std::string(65, ']'));
    write(folder, "out_of_range", R"({"revision":9223372036854775808,"x":1e999})");
}

// The rules, a query, a longer one, and texts.
void writeTextSearches(const fs::path& folder) {
    const auto put = [&](std::string_view name, bool isTurkic, std::initializer_list<std::string_view> parts) {
        std::string seed(1, isTurkic ? '1' : '0');
        for (const std::string_view part : parts)
            seed.append(part).append("\xFE");
        seed.pop_back();
        write(folder, name, seed);
    };
    put("accents", false, {"e\u0301", "fe\u0301 ", "caf\u00e9 noir", "CAFE\u0301", "cafe", "x\u0302\u0323"});
    put("sharp_s", false, {"SS", "ass", "Stra\u00dfe", "STRA\u1e9eE", "\u00df"});
    put("turkish", true, {"i", "diy", "D\u0130YARBAKIR", "I\u0323\u0307", "I\u0301\u0307", "\u0131\u0130iI"});
    put("greek", false,
        {"\u03c3", "\u03c3\u03b9", "\u1f40\u03b4\u03cc\u03c2", "\u1fb3\u0323", "\u0391\u0323\u0399", "\u0345"});
    put("hangul", false, {"\uac00", "\uac00\ub098", "\uac01", "\u1100\u1161\u11a8", "\u1161"});
    put("scripts", false,
        {"\u0915", "\u0915\u093f", "\u0928\u092e\u0938\u094d\u0924\u0947", "\u304b\u3099", "\u4e16\u754c \U0001F600"});
    put("ill_formed", false, {"\xFF", "\xC3\xFF", "a\xC3", "\xA4", "\xED\xA0\x80", "\xF0\x9F\x98"});
    put("empty", false, {"", "", ""});
    const std::string hardOnes = "\2\1\xFE\1\2\xFE\1\6\4\xFE\x17\6\7\xFE\x25\x26\x27\xFE\x30\x31\xFE";
    write(folder, "hard", "2" + hardOnes);
    write(folder, "hard_turkish", "3" + hardOnes);
}

} // namespace
} // namespace vexil

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: make_corpus FOLDER\n", stderr);
        return 1;
    }
    vexil::writeFrames(std::filesystem::path(argv[1]) / "frames");
    vexil::writeSnapshots(std::filesystem::path(argv[1]) / "snapshot");
    vexil::writeTextSearches(std::filesystem::path(argv[1]) / "text_search");
    vexil::writeStoreRequests(std::filesystem::path(argv[1]) / "store_requests");
    return 0;
}
