// SPDX-License-Identifier: Apache-2.0
#include "link/clipboard_link_envelope.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace vexil {
namespace {

using Kind = ClipboardLinkEnvelopeKind;

const Uuid kEntry = Uuid::parse("00112233-4455-6677-8899-AABBCCDDEEFF").value();
const std::string kPin = R"({"id":"00112233-4455-6677-8899-AABBCCDDEEFF","isPinned":true})";

std::optional<ClipboardLinkEnvelope> decode(std::string_view text) {
    return decodeEnvelope(bytesOf(text));
}

std::string encode(const ClipboardLinkHeader& header, const ClipboardLinkPayload& payload) {
    Bytes out;
    appendEnvelope(out, header, payload);
    return std::string(textOf(out));
}

ClipboardLinkHeader header(Kind kind, std::string method) {
    return {1, "ID", kind, std::move(method), std::nullopt};
}

// The payload of an envelope around `p`; fails the test where there is no envelope.
ClipboardLinkPayload payloadOf(std::string_view kind, std::string_view method, std::string_view p) {
    std::string text = R"({"v":1,"id":"ID","t":")" + std::string(kind) + R"(","m":")" + std::string(method) + '"';
    if (!p.empty())
        text += R"(,"p":)" + std::string(p);
    const auto envelope = decode(text + '}');
    EXPECT_TRUE(envelope) << text;
    return envelope ? envelope->payload : ClipboardLinkPayload();
}

bool isAbsent(const ClipboardLinkPayload& payload) {
    return std::holds_alternative<std::monostate>(payload);
}

TEST(ClipboardLinkEnvelopeTest, IsWrittenWithTheVersionFirstAndThePayloadLast) {
    EXPECT_EQ(encode(header(Kind::request, "entry.pin"), ClipboardPinRequest{kEntry, true}),
              R"({"v":1,"id":"ID","t":"request","m":"entry.pin","p":)" + kPin + "}");
    EXPECT_EQ(encode(header(Kind::request, "store.snapshot"), ClipboardLinkEmpty{}),
              R"({"v":1,"id":"ID","t":"request","m":"store.snapshot","p":{}})");
}

TEST(ClipboardLinkEnvelopeTest, LeavesOutWhatIsAbsent) {
    EXPECT_EQ(encode(header(Kind::event, "store.changed"), {}), R"({"v":1,"id":"ID","t":"event","m":"store.changed"})");
    auto failed = header(Kind::response, "hello");
    failed.e = ClipboardLinkError{"bad_nonce", "Nonce rejected"};
    EXPECT_EQ(encode(failed, {}), R"({"v":1,"id":"ID","t":"response","m":"hello",)"
                                  R"("e":{"code":"bad_nonce","message":"Nonce rejected"}})");
    EXPECT_EQ(decode(encode(failed, {})), (ClipboardLinkEnvelope{failed, {}}));
}

TEST(ClipboardLinkEnvelopeTest, ComesBackAsItWasWritten) {
    const std::vector<std::pair<ClipboardLinkHeader, ClipboardLinkPayload>> kAll = {
        {header(Kind::request, "hello"), ClipboardHello{"n", "a", "b"}},
        {header(Kind::response, "hello"), ClipboardHelloAck{"a", {"x"}}},
        {header(Kind::request, "store.snapshot"), ClipboardLinkEmpty{}},
        {header(Kind::response, "store.snapshot"), ClipboardStoreSnapshot{5, {}, {}, {{kEntry, "n", "c", 1}}}},
        {header(Kind::event, "store.changed"), {}},
        {header(Kind::request, "entry.payload"), ClipboardEntryRef{kEntry, ClipboardScope::favorites}},
        {header(Kind::response, "entry.payload"), ClipboardEntryPayload{ClipboardKind::text, "t", false}},
        {header(Kind::request, "entry.use"), ClipboardEntryRef{kEntry, ClipboardScope::history}},
        {header(Kind::response, "entry.use"), {}},
        {header(Kind::request, "entry.pin"), ClipboardPinRequest{kEntry, true}},
        {header(Kind::request, "entry.favorite"), ClipboardFavoriteRequest{kEntry, {}, true, kEntry}},
        {header(Kind::request, "entry.edit"), ClipboardEditRequest{kEntry, {}, "a", {}, {}}},
        {header(Kind::request, "entry.editText"), ClipboardEditRequest{kEntry, {}, {}, {}, "t"}},
        {header(Kind::request, "entry.delete"), ClipboardEntryRef{kEntry, ClipboardScope::history}},
        {header(Kind::event, "pasteboard.changed"), ClipboardPasteboardChange{ClipboardKind::image, {}, true}},
        {header(Kind::event, "shortcut.state"), ClipboardShortcutState{true}},
        {header(Kind::request, "hosts.snapshot"), ClipboardLinkEmpty{}},
        {header(Kind::response, "hosts.snapshot"), HostsSnapshot{1, {}}},
        {header(Kind::event, "hosts.changed"), {}},
        {header(Kind::event, "hosts.apply"), HostsApplyCommand{true}},
        {header(Kind::event, "hosts.state"), HostsCompanionState{}},
    };
    for (const auto& [head, payload] : kAll)
        EXPECT_EQ(decode(encode(head, payload)), (ClipboardLinkEnvelope{head, payload})) << head.m;
}

TEST(ClipboardLinkEnvelopeTest, TakesItsKeysInAnyOrder) {
    const std::vector<std::string> keys = {R"("v":1)", R"("id":"ID")", R"("t":"request")", R"("m":"entry.pin")",
                                           R"("p":)" + kPin};
    std::vector<std::size_t> order = {0, 1, 2, 3, 4};
    do {
        std::string text = "{\"x\":[{}]";
        for (const std::size_t i : order)
            text += ',' + keys[i];
        EXPECT_EQ(decode(text + '}'),
                  (ClipboardLinkEnvelope{header(Kind::request, "entry.pin"), ClipboardPinRequest{kEntry, true}}))
            << text;
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST(ClipboardLinkEnvelopeTest, LetsTheLastOfTwoEqualKeysWin) {
    const auto expected = ClipboardLinkEnvelope{header(Kind::request, "entry.pin"), ClipboardPinRequest{kEntry, true}};
    EXPECT_EQ(
        decode(R"({"v":1,"id":"ID","t":"response","m":"hello","p":)" + kPin + R"(,"t":"request","m":"entry.pin"})"),
        expected);
    EXPECT_EQ(decode(R"({"v":2,"id":"X","t":"request","m":"entry.pin","p":{"isPinned":5},"p":)" + kPin +
                     R"(,"v":1,"id":"ID"})"),
              expected);
    const auto last = decode(R"({"v":1,"id":"ID","t":"request","m":"entry.pin","p":)" + kPin + R"(,"p":null})");
    ASSERT_TRUE(last);
    EXPECT_TRUE(isAbsent(last->payload));
    const auto unknown = decode(R"({"v":1,"id":"ID","t":"request","m":"entry.pin","p":)" + kPin + R"(,"m":"other"})");
    ASSERT_TRUE(unknown);
    EXPECT_TRUE(isAbsent(unknown->payload));
}

TEST(ClipboardLinkEnvelopeTest, HasNoPayloadWhereItIsNotWhatTheMethodCallsFor) {
    EXPECT_FALSE(isAbsent(payloadOf("request", "entry.pin", kPin)));
    for (const char* p : {"", "null", "{}", "5", "[]", "\"\"", R"({"id":"x","isPinned":true})",
                          R"({"id":"00112233-4455-6677-8899-AABBCCDDEEFF","isPinned":1})"})
        EXPECT_TRUE(isAbsent(payloadOf("request", "entry.pin", p))) << p;
    EXPECT_TRUE(isAbsent(
        payloadOf("request", "entry.use", R"({"id":"00112233-4455-6677-8899-AABBCCDDEEFF","scope":"pinned"})")));
}

TEST(ClipboardLinkEnvelopeTest, HasNoPayloadWhereTheMethodCallsForNone) {
    for (const char* method :
         {"entry.use", "entry.pin", "entry.favorite", "entry.edit", "entry.editText", "entry.delete"}) {
        for (const char* p : {"", "null", "{}", "{\"a\":1}", "7"})
            EXPECT_TRUE(isAbsent(payloadOf("response", method, p))) << method << p;
    }
    EXPECT_TRUE(isAbsent(payloadOf("event", "store.changed", "{}")));
    EXPECT_TRUE(isAbsent(payloadOf("event", "hosts.changed", "{}")));
    EXPECT_TRUE(isAbsent(payloadOf("event", "no.such", "{}")));
    EXPECT_TRUE(isAbsent(payloadOf("event", "", "")));
}

TEST(ClipboardLinkEnvelopeTest, ReadsTheSamePayloadInRequestsAndEvents) {
    const auto payload = payloadOf("request", "hosts.apply", R"({"removeAll":true})");
    EXPECT_EQ(payload, ClipboardLinkPayload(HostsApplyCommand{true}));
}

TEST(ClipboardLinkEnvelopeTest, IsNoneWithoutAWholeHeader) {
    for (const char* text :
         {"", "{}", "[]", "null", "5", R"({"id":"ID","t":"request","m":"x"})", R"({"v":1,"t":"request","m":"x"})",
          R"({"v":1,"id":"ID","m":"x"})", R"({"v":1,"id":"ID","t":"request"})",
          R"({"v":"1","id":"ID","t":"request","m":"x"})", R"({"v":1.5,"id":"ID","t":"request","m":"x"})",
          R"({"v":1,"id":5,"t":"request","m":"x"})", R"({"v":1,"id":"ID","t":"Request","m":"x"})",
          R"({"v":1,"id":"ID","t":"request","m":null})", R"({"v":1,"id":"ID","t":"request","m":"x","e":5})",
          R"({"v":1,"id":"ID","t":"request","m":"x","e":{"code":"c"}})",
          R"({"v":1,"id":"ID","t":"request","m":"x"}{})"})
        EXPECT_FALSE(decode(text)) << text;
    EXPECT_TRUE(decode(R"({"v":1.0,"id":"","t":"request","m":"x","e":null,"p":null})"));
    EXPECT_TRUE(decode(R"({"v":2,"id":"ID","t":"request","m":"hello"})"));
}

TEST(ClipboardLinkEnvelopeTest, IsNoneWhereThePayloadIsNotJson) {
    for (const char* p : {"tru", "{\"a\":}", "[1,]", "\"\\ud800\"", "\"\xFF\"", "{", "}"}) {
        for (const char* m : {"entry.pin", "store.changed", "no.such"})
            EXPECT_FALSE(decode(R"({"v":1,"id":"ID","t":"request","m":")" + std::string(m) + R"(","p":)" + p + "}"))
                << p;
        EXPECT_FALSE(decode(R"({"p":)" + std::string(p) + R"(,"v":1,"id":"ID","t":"request","m":"hello"})")) << p;
    }
}

TEST(ClipboardLinkEnvelopeTest, RefusesDeepNesting) {
    std::string deep = std::string(1000, '[') + std::string(1000, ']');
    EXPECT_FALSE(decode(R"({"v":1,"id":"ID","t":"event","m":"x","p":)" + deep + "}"));
    EXPECT_FALSE(decode(R"({"v":1,"id":"ID","t":"event","m":"x","p":)" + std::string(1'000'000, '{')));
}

TEST(ClipboardLinkEnvelopeTest, LeavesAPayloadThatIsNotWantedUnreadWhereverItStands) {
    const PayloadFilter onlyOfTwo = [](const ClipboardLinkHeader& header) { return header.id == "2"; };
    for (const char* text : {R"({"v":1,"id":"%","t":"request","m":"entry.pin","p":%p})",
                             R"({"p":%p,"v":1,"id":"%","t":"request","m":"entry.pin"})",
                             R"({"v":1,"t":"request","m":"entry.pin","p":%p,"id":"%"})"}) {
        for (const char* id : {"1", "2"}) {
            std::string json = text;
            json.replace(json.find("%p"), 2, R"({"id":"00000000-0000-0000-0000-000000000000","isPinned":true})");
            json.replace(json.find('%'), 1, id);
            const auto envelope = decodeEnvelope(bytesOf(json), onlyOfTwo);
            ASSERT_TRUE(envelope) << json;
            EXPECT_EQ(std::holds_alternative<ClipboardPinRequest>(envelope->payload), onlyOfTwo(envelope->header));
        }
    }
}

TEST(ClipboardLinkEnvelopeTest, TakesAnIdOfAMegabyte) {
    auto big = header(Kind::event, "store.changed");
    big.id.assign(1U << 20, 'i');
    EXPECT_EQ(decode(encode(big, {})), (ClipboardLinkEnvelope{big, {}}));
}

TEST(ClipboardLinkMethodTest, KnowsEveryNameAndNoOther) {
    for (std::size_t i = 0; i < kClipboardLinkMethodNames.size(); ++i) {
        const auto method = static_cast<ClipboardLinkMethod>(i);
        EXPECT_EQ(methodNamed(nameOf(method)), method);
    }
    EXPECT_EQ(nameOf(ClipboardLinkMethod::entryEditText), "entry.editText");
    EXPECT_EQ(nameOf(ClipboardLinkMethod::hostsState), "hosts.state");
    for (const char* name : {"", "Hello", "hello ", "entry.edittext", "entry"})
        EXPECT_EQ(methodNamed(name), std::nullopt) << name;
}

} // namespace
} // namespace vexil
