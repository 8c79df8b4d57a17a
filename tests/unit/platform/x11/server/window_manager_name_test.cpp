#include "platform/x11/server/window_manager_name.h"

#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

TEST(WindowManagerNameTest, OnlyTheShellsOfGnomeAndCinnamonKeepTheClicksOnTheirBars)
{
    EXPECT_TRUE(keepsClicksOnItsBars("GNOME Shell"));
    EXPECT_TRUE(keepsClicksOnItsBars("Mutter (Muffin)"));
    for (const char* const other : {"", "Mutter", "KWin", "Xfwm4", "Metacity (Marco)", "Openbox", "i3"})
        EXPECT_FALSE(keepsClicksOnItsBars(other)) << other;
}

TEST(WindowManagerNameTest, OnlyTheShellsOfGnomeAndCinnamonDrawNotificationsThemselves)
{
    EXPECT_TRUE(drawsNotificationsItself("GNOME Shell"));
    EXPECT_TRUE(drawsNotificationsItself("Mutter (Muffin)"));
    for (const char* const other : {"", "Mutter", "KWin", "Xfwm4", "Metacity (Marco)", "Openbox", "i3"})
        EXPECT_FALSE(drawsNotificationsItself(other)) << other;
}

TEST(WindowManagerNameTest, OnlyThoseOfGnomeCinnamonAndPlasmaDrawUnmanagedWindowsInFrontOfAll)
{
    for (const char* const one : {"GNOME Shell", "Mutter (Muffin)", "Mutter", "KWin"})
        EXPECT_TRUE(drawsUnmanagedWindowsInFront(one)) << one;
    for (const char* const other : {"", "Xfwm4", "Metacity (Marco)", "Openbox", "i3"})
        EXPECT_FALSE(drawsUnmanagedWindowsInFront(other)) << other;
}

TEST(WindowManagerNameTest, OnlyThoseOfGnomeAndCinnamonMissDamage)
{
    for (const char* const one : {"GNOME Shell", "Mutter (Muffin)", "Mutter"})
        EXPECT_TRUE(missesDamage(one)) << one;
    for (const char* const other : {"", "KWin", "Xfwm4", "Metacity (Marco)", "Openbox", "i3"})
        EXPECT_FALSE(missesDamage(other)) << other;
}

TEST(WindowManagerNameTest, OnlyKnownOnesHaveThePictureInTheOverlayFromTheStart)
{
    for (const char* const one : {"KWin", "Xfwm4", "Metacity (Marco)", "Mutter", "GNOME Shell"})
        EXPECT_TRUE(showsPicturesBetterInOverlay(one)) << one;
    for (const char* const other : {"", "Mutter (Muffin)", "Openbox", "i3"})
        EXPECT_FALSE(showsPicturesBetterInOverlay(other)) << other;
}

} // namespace
} // namespace nimbrale::x11
