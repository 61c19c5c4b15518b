#include "shell/Appearance.h"

#include <gtest/gtest.h>

TEST(Appearance, ThePortalsDarkPreferenceWins) {
    EXPECT_TRUE(Appearance::isDark(1u, false));
    EXPECT_TRUE(Appearance::isDark(1u, true));
}

TEST(Appearance, ThePortalsLightPreferenceWins) {
    EXPECT_FALSE(Appearance::isDark(2u, true));
    EXPECT_FALSE(Appearance::isDark(2u, false));
}

TEST(Appearance, NoPreferenceOrNoPortalLeavesItToThePalette) {
    EXPECT_TRUE(Appearance::isDark(0u, true));
    EXPECT_FALSE(Appearance::isDark(0u, false));
    EXPECT_TRUE(Appearance::isDark(std::nullopt, true));
    EXPECT_FALSE(Appearance::isDark(std::nullopt, false));
    EXPECT_FALSE(Appearance::isDark(7u, false));
}
