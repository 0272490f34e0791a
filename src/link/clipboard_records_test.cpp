// SPDX-License-Identifier: Apache-2.0
#include "base/json.h"
#include "link/clipboard_records.h"
#include "link/hosts_records.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

const Uuid kId = Uuid::parse("00112233-4455-6677-8899-AABBCCDDEEFF").value();
constexpr std::string_view kIdText = "00112233-4455-6677-8899-AABBCCDDEEFF";

template <class T> std::string written(const T& value) {
    Bytes out;
    json::append(out, value);
    return std::string(textOf(out));
}

template <class T> std::optional<T> read(std::string_view text) {
    auto value = json::read<T>(bytesOf(text));
    if (!value)
        return std::nullopt;
    return std::move(value).value();
}

std::string replaced(std::string text, std::string_view what, std::string_view with) {
    const auto at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return text.replace(at, what.size(), with);
}

template <class T> void expectText(const T& record, std::string_view text) {
    EXPECT_EQ(written(record), text);
    EXPECT_EQ(read<T>(text), record);
}

ClipboardRowSummary bareRow() {
    ClipboardRowSummary row;
    row.id = kId;
    row.scope = ClipboardScope::favorites;
    row.kind = ClipboardKind::image;
    row.preview = "a\nb";
    row.lastCopiedAt = Date{781234567.5};
    row.isPinned = true;
    return row;
}

const std::string kBareRow =
    R"({"id":"00112233-4455-6677-8899-AABBCCDDEEFF","scope":"favorites","kind":"image","preview":"a\nb",)"
    R"("lastCopiedAt":781234567.5,"isPinned":true,"isFavorite":false})";

TEST(ClipboardRecordsTest, ARowWithoutItsOptionalsIsWrittenWithoutTheirKeys) {
    expectText(bareRow(), kBareRow);
}

TEST(ClipboardRecordsTest, ARowTakesNullForItsOptionals) {
    EXPECT_EQ(read<ClipboardRowSummary>(
                  replaced(kBareRow, "false}", R"(false,"categoryID":null,"alias":null,"thumbnail":null})")),
              bareRow());
}

TEST(ClipboardRecordsTest, ARowCarriesItsOptionals) {
    auto row = bareRow();
    row.categoryID = kId;
    row.alias = "";
    row.thumbnail = Bytes{0xFF, 0xD8, 0xFF};
    const std::string keys = R"(,"categoryID":"00112233-4455-6677-8899-AABBCCDDEEFF","alias":"","thumbnail":"/9j/"})";
    expectText(row, replaced(kBareRow, "}", keys));
    EXPECT_EQ(read<ClipboardRowSummary>(replaced(replaced(kBareRow, "}", keys), "/9j/", R"(\/9j\/)")), row);
}

TEST(ClipboardRecordsTest, AnUnknownScopeMakesTheWholePayloadUndecodable) {
    const std::string snapshot = R"({"revision":1,"history":[)" + kBareRow + R"(],"favorites":[],"categories":[]})";
    EXPECT_TRUE(read<ClipboardStoreSnapshot>(snapshot));
    for (const char* scope : {R"("pinned")", R"("History")", R"("")", "null", "0", R"(["favorites"])"})
        EXPECT_FALSE(read<ClipboardStoreSnapshot>(replaced(snapshot, R"("favorites")", scope))) << scope;
}

TEST(ClipboardRecordsTest, EveryKeyThatIsNotOptionalIsRequired) {
    for (const char* key : {"id", "scope", "kind", "preview", "lastCopiedAt", "isPinned", "isFavorite"})
        EXPECT_FALSE(read<ClipboardRowSummary>(replaced(kBareRow, key, "other"))) << key;
    for (const char* text :
         {R"({"revision":1,"history":[],"favorites":[]})", R"({"history":[],"favorites":[],"categories":[]})"})
        EXPECT_FALSE(read<ClipboardStoreSnapshot>(text)) << text;
}

TEST(ClipboardRecordsTest, ValuesOfAnotherTypeAreRefused) {
    for (const auto& [value, other] : {std::pair{"781234567.5", R"("781234567.5")"},
                                       {"true", "1"},
                                       {"false", "null"},
                                       {R"("a\nb")", "5"},
                                       {R"("a\nb")", "null"}})
        EXPECT_FALSE(read<ClipboardRowSummary>(replaced(kBareRow, value, other))) << other;
    EXPECT_FALSE(read<ClipboardRowSummary>(replaced(kBareRow, "false}", R"(false,"thumbnail":"no base64"})")));
    EXPECT_FALSE(read<ClipboardRowSummary>(replaced(kBareRow, "false}", R"(false,"categoryID":"none"})")));
}

TEST(ClipboardRecordsTest, IntegersMayBeSpelledAsFloatingPointNumbers) {
    const auto category = read<ClipboardCategory>(
        R"({"id":"00112233-4455-6677-8899-aabbccddeeff","name":"n","colorTag":"red","order":1e1})");
    ASSERT_TRUE(category);
    EXPECT_EQ(category->order, 10);
    expectText(*category, R"({"id":"00112233-4455-6677-8899-AABBCCDDEEFF","name":"n","colorTag":"red","order":10})");
    EXPECT_FALSE(read<ClipboardCategory>(
        R"({"id":"00112233-4455-6677-8899-aabbccddeeff","name":"n","colorTag":"red","order":1.5})"));
}

TEST(ClipboardRecordsTest, EveryRecordHasItsKeys) {
    const std::string id(kIdText);
    const auto withId = [&](std::string_view rest) { return R"({"id":")" + id + '"' + std::string(rest); };
    expectText(ClipboardStoreSnapshot{-3, {}, {}, {}},
               R"({"revision":-3,"history":[],"favorites":[],"categories":[]})");
    expectText(ClipboardEntryRef{kId, ClipboardScope::history}, withId(R"(,"scope":"history"})"));
    expectText(ClipboardEntryPayload{ClipboardKind::text, "t", false},
               R"({"kind":"text","text":"t","hasAttachment":false})");
    expectText(ClipboardEntryPayload{ClipboardKind::image, {}, true}, R"({"kind":"image","hasAttachment":true})");
    expectText(ClipboardPasteboardChange{ClipboardKind::image, {}, true}, R"({"kind":"image","hasAttachment":true})");
    expectText(ClipboardPinRequest{kId, true}, withId(R"(,"isPinned":true})"));
    expectText(ClipboardFavoriteRequest{kId, ClipboardScope::history, true, {}},
               withId(R"(,"scope":"history","isFavorite":true})"));
    expectText(ClipboardFavoriteRequest{kId, ClipboardScope::history, true, kId},
               withId(R"(,"scope":"history","isFavorite":true,"categoryID":")" + id + "\"}"));
    expectText(ClipboardEditRequest{kId, ClipboardScope::favorites, {}, {}, {}}, withId(R"(,"scope":"favorites"})"));
    expectText(ClipboardEditRequest{kId, ClipboardScope::favorites, "a", kId, "t"},
               withId(R"(,"scope":"favorites","alias":"a","categoryID":")" + id + R"(","text":"t"})"));
    expectText(ClipboardShortcutState{true}, R"({"hotkeyActive":true})");
    expectText(ClipboardHello{"n", "Vexil", "12"}, R"({"nonce":"n","app":"Vexil","build":"12"})");
    expectText(ClipboardHelloAck{"Vexil Shortcut", {"entry.use", "entry.pin"}},
               R"({"app":"Vexil Shortcut","features":["entry.use","entry.pin"]})");
    expectText(ClipboardLinkEmpty{}, "{}");
    EXPECT_TRUE(read<ClipboardLinkEmpty>(R"({"more":[1]})"));
}

TEST(ClipboardRecordsTest, AFullEntryComesBack) {
    ClipboardEntry entry;
    entry.id = kId;
    entry.kind = ClipboardKind::image;
    entry.contentHash = "h";
    EXPECT_EQ(read<ClipboardEntry>(written(entry)), entry);
    entry.text = "t";
    entry.imageFileName = "f.jpg";
    entry.imageData = Bytes{1};
    entry.createdAt = Date{-1.5};
    entry.isFavorite = true;
    entry.categoryID = kId;
    entry.pinnedAt = Date{3};
    entry.alias = "a";
    entry.usageTimestamps = {Date{1}, Date{2.5}};
    EXPECT_EQ(read<ClipboardEntry>(written(entry)), entry);
}

TEST(HostsRecordsTest, EveryRecordHasItsKeys) {
    const std::string id(kIdText);
    const HostsProfile profile{kId, "n", "127.0.0.1 a\n", true, Date{0.25}};
    const std::string profileText =
        R"({"id":")" + id + R"(","name":"n","content":"127.0.0.1 a\n","isEnabled":true,"updatedAt":0.25})";
    expectText(profile, profileText);
    expectText(HostsSnapshot{7, {profile}}, R"({"revision":7,"profiles":[)" + profileText + "]}");
    expectText(HostsApplyCommand{true}, R"({"removeAll":true})");
    expectText(HostsCompanionState{true, 2, 1, {}, {}, false},
               R"({"isInSync":true,"appliedHostnameCount":2,"appliedProfileCount":1,"isApplying":false})");
    expectText(HostsCompanionState{false, INT64_MAX, 0, Date{1.5}, "failed", true},
               R"({"isInSync":false,"appliedHostnameCount":9223372036854775807,"appliedProfileCount":0,)"
               R"("lastAppliedAt":1.5,"lastError":"failed","isApplying":true})");
}

TEST(HostsRecordsTest, AMissingRequiredKeyIsAnError) {
    EXPECT_FALSE(read<HostsApplyCommand>("{}"));
    EXPECT_FALSE(read<HostsCompanionState>(R"({"isInSync":true,"appliedHostnameCount":2,"appliedProfileCount":1})"));
    EXPECT_FALSE(read<HostsSnapshot>(R"({"revision":9223372036854775808,"profiles":[]})"));
}

} // namespace
} // namespace vexil
