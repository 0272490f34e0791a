// SPDX-License-Identifier: Apache-2.0
#include "panel/panel_focus.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

TEST(PanelFocusTest, IsEqualToTheSamePlaceAndForARowToTheSameRow) {
    const Uuid one = Uuid::random();
    const Uuid other = Uuid::random();
    EXPECT_EQ(PanelFocus::row(one), PanelFocus::row(one));
    EXPECT_NE(PanelFocus::row(one), PanelFocus::row(other));
    EXPECT_NE(PanelFocus::row(Uuid()), PanelFocus::search());
    EXPECT_NE(PanelFocus::search(), PanelFocus::categories());
    EXPECT_EQ(PanelFocus::search(), PanelFocus::search());
    EXPECT_EQ(PanelFocus::categories(), PanelFocus::categories());
}

TEST(PanelFocusTest, NamesItsRow) {
    const Uuid one = Uuid::random();
    EXPECT_EQ(PanelFocus::row(one).rowID(), one);
    EXPECT_EQ(PanelFocus::search().rowID(), std::nullopt);
    EXPECT_EQ(PanelFocus::categories().rowID(), std::nullopt);
}

} // namespace
} // namespace vexil
