// SPDX-License-Identifier: Apache-2.0
#include "panel/panel_changes.h"
#include "platform/memory/memory_main_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PanelChangesTest : public testing::Test {
protected:
    auto observe() {
        return changes->observe([this](const PanelFields& assigned) { told.push_back(assigned); });
    }

    MemoryMainQueue queue;
    std::optional<PanelChanges> changes{std::in_place, queue};
    std::vector<PanelFields> told;
};

TEST_F(PanelChangesTest, TellsNothingWithinTheTurnOfAnAssignment) {
    const auto observation = observe();
    changes->assigned(PanelField::query);
    EXPECT_THAT(told, IsEmpty());
    queue.runUntilIdle();
    EXPECT_THAT(told, ElementsAre(PanelFields{PanelField::query}));
}

TEST_F(PanelChangesTest, TellsOfEverythingThatHappenedInATurnAtOnce) {
    const auto observation = observe();
    changes->assigned(PanelField::query);
    changes->assigned(PanelField::focus);
    changes->assigned(PanelField::query);
    queue.runUntilIdle();
    EXPECT_THAT(told, ElementsAre(PanelFields{PanelField::query, PanelField::focus}));
    EXPECT_EQ(changes->assignments(), 3U);
    queue.runUntilIdle();
    EXPECT_EQ(told.size(), 1U);
}

TEST_F(PanelChangesTest, TellsOfALaterTurnAgain) {
    const auto observation = observe();
    changes->assigned(PanelField::query);
    queue.runUntilIdle();
    changes->assigned(PanelField::editError);
    queue.runUntilIdle();
    EXPECT_THAT(told, ElementsAre(PanelFields{PanelField::query}, PanelFields{PanelField::editError}));
}

TEST_F(PanelChangesTest, TellsEveryObserver) {
    const auto one = observe();
    const auto other = observe();
    changes->assigned(PanelField::history);
    queue.runUntilIdle();
    EXPECT_EQ(told.size(), 2U);
}

TEST_F(PanelChangesTest, AnObservationThatIsDroppedHearsNoMore) {
    auto observation = observe();
    changes->assigned(PanelField::history);
    observation.reset();
    queue.runUntilIdle();
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(PanelChangesTest, AnObserverMayEndItsOwnObservationAndThoseAfterIt) {
    std::unique_ptr<PanelObservation> first;
    std::unique_ptr<PanelObservation> second;
    int calls = 0;
    first = changes->observe([&](const PanelFields&) {
        ++calls;
        first.reset();
        second.reset();
    });
    second = changes->observe([&](const PanelFields&) { ADD_FAILURE() << "its observation has ended"; });
    changes->assigned(PanelField::history);
    queue.runUntilIdle();
    changes->assigned(PanelField::history);
    queue.runUntilIdle();
    EXPECT_EQ(calls, 1);
}

TEST_F(PanelChangesTest, WhatAnObserverAssignsIsToldInATurnOfItsOwn) {
    const auto assigning = changes->observe([this](const PanelFields& assigned) {
        if (assigned.contains(PanelField::query))
            changes->assigned(PanelField::focus);
    });
    const auto observation = observe();
    changes->assigned(PanelField::query);
    queue.runUntilIdle();
    EXPECT_THAT(told, ElementsAre(PanelFields{PanelField::query}, PanelFields{PanelField::focus}));
}

TEST_F(PanelChangesTest, AnObservationMayOutliveWhatItObserves) {
    const auto observation = observe();
    changes->assigned(PanelField::query);
    changes.reset();
    queue.runUntilIdle();
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(PanelChangesTest, AnObserverMayEndWhatItObserves) {
    const auto ending = changes->observe([this](const PanelFields&) { changes.reset(); });
    const auto observation = observe();
    changes->assigned(PanelField::query);
    queue.runUntilIdle();
    EXPECT_EQ(told.size(), 1U) << "it was due already";
}

TEST(PanelFieldsTest, HoldsWhatWasInserted) {
    const PanelFields fields{PanelField::history, PanelField::focusToken};
    EXPECT_TRUE(fields.contains(PanelField::history));
    EXPECT_TRUE(fields.contains(PanelField::focusToken));
    EXPECT_FALSE(fields.contains(PanelField::favorites));
    EXPECT_TRUE(fields.containsAnyOf({PanelField::favorites, PanelField::history}));
    EXPECT_FALSE(fields.containsAnyOf({PanelField::favorites}));
}

} // namespace
} // namespace vexil
