// SPDX-License-Identifier: Apache-2.0
#include "store/database/store_fixture.h"

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Change = CategoryChange;

class ClipboardCategoriesTest : public StoreFixture {
protected:
    ClipboardCategories categories() { return database.categories(); }
    std::vector<std::string> names() {
        std::vector<std::string> names;
        const auto list = categories().list().value();
        for (const auto& category : list) {
            EXPECT_EQ(category.order, static_cast<std::int64_t>(names.size()));
            names.push_back(category.name);
        }
        return names;
    }
};

TEST_F(ClipboardCategoriesTest, ANewOneStandsBehindTheOthers) {
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_EQ(categories().add("work", "red").value(), Change::done);
    EXPECT_EQ(categories().add("home", "").value(), Change::done);
    EXPECT_THAT(names(), ElementsAre("work", "home"));
    EXPECT_EQ(categories().list()->at(0).colorTag, "red");
    EXPECT_EQ(categories().list()->at(1).colorTag, "");
    EXPECT_EQ(revision(), 2);
}

TEST_F(ClipboardCategoriesTest, IsFoundByItsNameInAnyCase) {
    const Uuid id = addCategory("Größe");
    EXPECT_EQ(categories().named("GRÖSSE").value()->id, id);
    EXPECT_EQ(categories().withId(id).value()->name, "Größe");
    EXPECT_FALSE(categories().named("Große").value());
    EXPECT_FALSE(categories().withId(Uuid::random()).value());
}

TEST_F(ClipboardCategoriesTest, TwoDoNotHaveTheSameName) {
    const Uuid work = addCategory("work");
    const Uuid home = addCategory("home");
    EXPECT_EQ(categories().add("WORK", "red").value(), Change::nameTaken);
    EXPECT_EQ(categories().rename(home, "Work").value(), Change::nameTaken);
    EXPECT_EQ(categories().rename(work, "Work").value(), Change::done); // itself
    EXPECT_THAT(names(), ElementsAre("Work", "home"));
}

TEST_F(ClipboardCategoriesTest, NamesAndColorsThatAListCouldNotShowAreRefused) {
    for (const std::string& name : {std::string(), std::string(" a"), std::string("a "), std::string("a\nb"),
                                    std::string("\x7F"), std::string(201, 'x')})
        EXPECT_EQ(categories().add(name, "red").value(), Change::badName) << name;
    EXPECT_EQ(categories().add("a", std::string(51, 'x')).value(), Change::badColor);
    EXPECT_EQ(categories().add("a", "\t").value(), Change::badColor);
    EXPECT_EQ(categories().add(std::string(200, 'x'), std::string(50, 'x')).value(), Change::done);
    const Uuid id = categories().list()->front().id;
    EXPECT_EQ(categories().rename(id, "").value(), Change::badName);
    EXPECT_EQ(categories().recolor(id, "\n").value(), Change::badColor);
    EXPECT_EQ(revision(), 1);
}

TEST_F(ClipboardCategoriesTest, ThereIsAnEndToThem) {
    ASSERT_TRUE(raw.execute("WITH RECURSIVE n (i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 999) "
                            "INSERT INTO categories SELECT printf('00000000-0000-4000-8000-%012d', i), 'n' || i, '', i "
                            "FROM n"));
    EXPECT_EQ(categories().add("one more", "").value(), Change::tooMany);
    EXPECT_EQ(categories().remove(categories().list()->front().id).value(), Change::done);
    EXPECT_EQ(categories().add("one more", "").value(), Change::done);
}

TEST_F(ClipboardCategoriesTest, AreMovedToAnyPlace) {
    const Uuid a = addCategory("a");
    addCategory("b");
    const Uuid c = addCategory("c");
    EXPECT_EQ(categories().move(c, 0).value(), Change::done);
    EXPECT_THAT(names(), ElementsAre("c", "a", "b"));
    EXPECT_EQ(categories().move(c, 1).value(), Change::done);
    EXPECT_THAT(names(), ElementsAre("a", "c", "b"));
    EXPECT_EQ(categories().move(a, 99).value(), Change::done);
    EXPECT_THAT(names(), ElementsAre("c", "b", "a"));
    EXPECT_EQ(categories().move(Uuid::random(), 0).value(), Change::noSuchCategory);
}

TEST_F(ClipboardCategoriesTest, WithoutItsCategoryAFavoriteStaysOne) {
    const Uuid work = addCategory("work");
    const Uuid one = copy("one");
    ASSERT_EQ(database.entries().addToFavorites(one, work).value(), EntryChange::done);
    const auto before = revision();
    EXPECT_EQ(categories().remove(work).value(), Change::done);
    EXPECT_EQ(revision(), before + 1);
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_THAT(favorites(), ElementsAre("one"));
    EXPECT_EQ(newestEntry().row.categoryID, std::nullopt);
}

TEST_F(ClipboardCategoriesTest, TheOrderHasNoGapAfterADeletion) {
    addCategory("a");
    const Uuid b = addCategory("b");
    addCategory("c");
    ASSERT_EQ(categories().remove(b).value(), Change::done);
    EXPECT_THAT(names(), ElementsAre("a", "c"));
    addCategory("d");
    EXPECT_THAT(names(), ElementsAre("a", "c", "d"));
}

TEST_F(ClipboardCategoriesTest, AnUnknownIdChangesNothing) {
    const Uuid unknown = Uuid::random();
    EXPECT_EQ(categories().rename(unknown, "a").value(), Change::noSuchCategory);
    EXPECT_EQ(categories().recolor(unknown, "a").value(), Change::noSuchCategory);
    EXPECT_EQ(categories().remove(unknown).value(), Change::noSuchCategory);
    EXPECT_EQ(revision(), 0);
}

TEST_F(ClipboardCategoriesTest, AColorIsChanged) {
    const Uuid work = addCategory("work", "red");
    EXPECT_EQ(categories().recolor(work, "blue").value(), Change::done);
    EXPECT_EQ(categories().withId(work).value()->colorTag, "blue");
}

} // namespace
} // namespace vexil
