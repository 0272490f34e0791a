// SPDX-License-Identifier: Apache-2.0
#include "base/json.h"
#include "store/database/hosts_profiles.h"
#include "store/database/scratch_folder_fixture.h"
#include "store/database/store_database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Change = HostsProfileChange;

constexpr Date kBefore{800'000'000};
constexpr Date kNow{800'000'060.5};

class HostsProfilesTest : public testing::Test {
protected:
    static StoreDatabase open(const std::filesystem::path& file) {
        return StoreDatabase::open(file, StoreDatabase::Mode::createIfMissing).value();
    }
    static HostsProfile profile(std::string name, std::string content = "1.2.3.4 a\n") {
        return {Uuid::random(), std::move(name), std::move(content), true, kBefore};
    }
    HostsProfiles profiles() { return database.hostsProfiles(); }
    Change add(const HostsProfile& added) { return profiles().add(added).value(); }
    std::vector<std::string> names() {
        std::vector<std::string> found;
        const HostsSnapshot snapshot = profiles().snapshot().value();
        for (const HostsProfile& each : snapshot.profiles)
            found.push_back(each.name);
        return found;
    }
    std::int64_t revision() { return profiles().revision().value(); }

    ScratchFolder scratch;
    std::filesystem::path file = scratch.path() / "store.db";
    StoreDatabase database = open(file);
};

TEST_F(HostsProfilesTest, AStoreBeginsWithoutProfiles) {
    EXPECT_EQ(profiles().snapshot().value(), (HostsSnapshot{0, {}}));
    EXPECT_EQ(profiles().named("Work").value(), std::nullopt);
    EXPECT_THAT(profiles().startingWith("", 10).value(), IsEmpty());
}

TEST_F(HostsProfilesTest, AProfileComesBackAsItWasAddedAlsoAfterReopening) {
    HostsProfile odd = profile("B\u00FCro", "# caf\u00E9\r\n\t10.0.0.1 a b # note\n\v\f\u2028x");
    odd.isEnabled = false;
    EXPECT_EQ(add(odd), Change::done);
    EXPECT_EQ(profiles().snapshot().value(), (HostsSnapshot{1, {odd}}));
    auto again = open(file);
    EXPECT_EQ(again.hostsProfiles().snapshot().value(), (HostsSnapshot{1, {odd}}));
}

TEST_F(HostsProfilesTest, ProfilesKeepTheOrderInWhichTheyWereAdded) {
    for (const char* name : {"z", "a", "m"})
        add(profile(name));
    EXPECT_THAT(names(), ElementsAre("z", "a", "m"));
    EXPECT_EQ(profiles().remove(profiles().named("a")->value().id).value(), Change::done);
    add(profile("b"));
    EXPECT_EQ(profiles().rename(profiles().named("z")->value().id, "y", kNow).value(), Change::done);
    EXPECT_THAT(names(), ElementsAre("y", "m", "b"));
}

TEST_F(HostsProfilesTest, IsFoundByItsNameInWhateverCase) {
    const HostsProfile work = profile("Stra\u00DFe 7");
    add(work);
    for (const char* name : {"Stra\u00DFe 7", "STRASSE 7", "stra\u00DFe 7"})
        EXPECT_EQ(profiles().named(name).value(), work) << name;
    EXPECT_EQ(profiles().named("Strase 7").value(), std::nullopt);
    EXPECT_EQ(profiles().named("Stra\u00DFe").value(), std::nullopt);
}

TEST_F(HostsProfilesTest, IsFoundByTheBeginningOfItsId) {
    HostsProfile first = profile("first");
    first.id = Uuid::parse("AB000000-0000-4000-8000-000000000001").value();
    HostsProfile second = profile("second");
    second.id = Uuid::parse("AC000000-0000-4000-8000-000000000002").value();
    add(second);
    add(first);
    EXPECT_THAT(profiles().startingWith("AB", 2).value(), ElementsAre(first));
    EXPECT_THAT(profiles().startingWith("A", 2).value(), ElementsAre(first, second));
    EXPECT_THAT(profiles().startingWith("A", 1).value(), ElementsAre(first));
    EXPECT_THAT(profiles().startingWith("AD", 2).value(), IsEmpty());
}

TEST_F(HostsProfilesTest, EveryChangeIsDatedAndCounted) {
    const HostsProfile added = profile("a");
    add(added);
    EXPECT_EQ(profiles().setContent(added.id, "5.6.7.8 b", kNow).value(), Change::done);
    HostsProfile expected = added;
    expected.content = "5.6.7.8 b";
    expected.updatedAt = kNow;
    EXPECT_EQ(profiles().snapshot().value(), (HostsSnapshot{2, {expected}}));
    EXPECT_EQ(profiles().setEnabled(added.id, false, Date{1}).value(), Change::done);
    expected.isEnabled = false;
    expected.updatedAt = Date{1};
    EXPECT_EQ(profiles().snapshot().value(), (HostsSnapshot{3, {expected}}));
    EXPECT_EQ(profiles().rename(added.id, "b", kNow).value(), Change::done);
    EXPECT_EQ(profiles().remove(added.id).value(), Change::done);
    EXPECT_EQ(profiles().snapshot().value(), (HostsSnapshot{5, {}}));
}

TEST_F(HostsProfilesTest, WhatIsSoAlreadyIsNoChange) {
    const HostsProfile added = profile("a");
    add(added);
    EXPECT_EQ(profiles().setContent(added.id, added.content, kNow).value(), Change::alreadySo);
    EXPECT_EQ(profiles().setEnabled(added.id, true, kNow).value(), Change::alreadySo);
    EXPECT_EQ(profiles().rename(added.id, "a", kNow).value(), Change::alreadySo);
    EXPECT_EQ(profiles().snapshot().value(), (HostsSnapshot{1, {added}}));
}

TEST_F(HostsProfilesTest, ChangesOfTheEntriesAreNotItsOwn) {
    ASSERT_TRUE(database.entries().record(ClipboardKind::text, bytesOf("copied"), kNow));
    EXPECT_EQ(revision(), 0);
    const auto before = database.revision().value();
    add(profile("a"));
    EXPECT_EQ(database.revision().value(), before);
    EXPECT_EQ(revision(), 1);
}

TEST_F(HostsProfilesTest, AProfileThatIsGoneCannotBeChanged) {
    const Uuid nobody = Uuid::random();
    EXPECT_EQ(profiles().setContent(nobody, "", kNow).value(), Change::noSuchProfile);
    EXPECT_EQ(profiles().rename(nobody, "a", kNow).value(), Change::noSuchProfile);
    EXPECT_EQ(profiles().setEnabled(nobody, true, kNow).value(), Change::noSuchProfile);
    EXPECT_EQ(profiles().remove(nobody).value(), Change::noSuchProfile);
    EXPECT_EQ(revision(), 0);
}

TEST_F(HostsProfilesTest, ANameIsTakenInWhateverCase) {
    add(profile("Work"));
    const HostsProfile other = profile("Other");
    add(other);
    EXPECT_EQ(add(profile("WORK")), Change::nameTaken);
    EXPECT_EQ(profiles().rename(other.id, "work", kNow).value(), Change::nameTaken);
    EXPECT_THAT(names(), ElementsAre("Work", "Other"));
    EXPECT_EQ(profiles().rename(other.id, "OTHER", kNow).value(), Change::done) << "its own name in another case";
    EXPECT_THAT(names(), ElementsAre("Work", "OTHER"));
}

TEST_F(HostsProfilesTest, ANameIsALineOfWords) {
    const HostsProfile good = profile("good");
    add(good);
    for (const std::string& name :
         {std::string(), std::string(" "), std::string(" a"), std::string("a "), std::string("a\nb"),
          std::string("a\tb"), std::string("a\0b", 3), std::string("a\x1B[31m"), std::string("a\u00A0b"),
          std::string("a\xFF"), std::string(HostsProfiles::kMaxNameBytes + 1, 'a')}) {
        EXPECT_EQ(add(profile(name)), Change::badName) << name;
        EXPECT_EQ(profiles().rename(good.id, name, kNow).value(), Change::badName) << name;
    }
    EXPECT_EQ(add(profile(std::string(HostsProfiles::kMaxNameBytes, 'a'))), Change::done);
    EXPECT_EQ(add(profile("a b \u4F8B \U0001F468\u200D\U0001F469")), Change::done);
    EXPECT_EQ(revision(), 3);
}

TEST_F(HostsProfilesTest, AContentIsATextInUtf8) {
    const HostsProfile good = profile("good");
    add(good);
    for (const std::string& content : {std::string("a\0b", 3), std::string("\xFF"), std::string("1.2.3.4 a\xC3")}) {
        EXPECT_EQ(add(profile("bad", content)), Change::badContent);
        EXPECT_EQ(profiles().setContent(good.id, content, kNow).value(), Change::badContent);
    }
    EXPECT_EQ(add(profile("empty", "")), Change::done);
    EXPECT_EQ(profiles().named("good").value(), good);
}

TEST_F(HostsProfilesTest, AllTogetherFitIntoASnapshot) {
    // A line feed takes two bytes there, and another control character six.
    add(profile("half", std::string(HostsProfiles::kMaxBytes / 4, '\n')));
    const HostsProfile other = profile("other", std::string(HostsProfiles::kMaxBytes / 12 - 200, '\v'));
    EXPECT_EQ(add(other), Change::done);
    EXPECT_EQ(add(profile("one too many", std::string(1000, 'x'))), Change::tooLarge);
    EXPECT_EQ(profiles().setContent(other.id, other.content + std::string(1000, '\v'), kNow).value(), Change::tooLarge);
    EXPECT_EQ(profiles().setContent(other.id, other.content + "x", kNow).value(), Change::done);
    Bytes snapshot;
    json::append(snapshot, profiles().snapshot().value());
    EXPECT_LE(snapshot.size(), HostsProfiles::kMaxBytes + 100);
    EXPECT_GE(snapshot.size(), HostsProfiles::kMaxBytes - 3000) << "the test comes close";
}

TEST_F(HostsProfilesTest, AFailureOfTheDatabaseChangesNothing) {
    add(profile("a"));
    auto impatient = StoreDatabase::open(file, StoreDatabase::Mode::existing, std::chrono::milliseconds(1)).value();
    auto other = SqliteConnection::open(file, SqliteConnection::Mode::existing).value();
    ASSERT_TRUE(other.execute("BEGIN IMMEDIATE"));
    const auto refused = impatient.hostsProfiles().add(profile("b"));
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().sentence, file.string() + " is in use by another program");
    ASSERT_TRUE(other.execute("COMMIT"));
    EXPECT_THAT(names(), ElementsAre("a"));
    EXPECT_EQ(revision(), 1);
}

TEST_F(HostsProfilesTest, AnotherProcessSeesTheChangeByItsRevision) {
    auto other = open(file);
    add(profile("a"));
    EXPECT_EQ(other.hostsProfiles().revision().value(), 1);
}

} // namespace
} // namespace vexil
