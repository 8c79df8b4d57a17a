#include "platform/x11/displays/display_scale.h"

#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

TEST(ResourceDatabaseTest, ValuesAreFoundByTheirWholeName)
{
    const std::string database = "Xft.dpiX:\t1\nXft.antialias:\t1\nXft.dpi:\t 192\r\nXft.rgba:\nno colon\n";
    EXPECT_EQ(resourceValue(database, "Xft.dpi"), "192");
    EXPECT_EQ(resourceValue(database, "Xft.rgba"), "");
    EXPECT_EQ(resourceValue(database, "Xft"), "");
    EXPECT_EQ(resourceValue(database, "no colon"), "");
    EXPECT_EQ(resourceValue("", "Xft.dpi"), "");
}

TEST(DisplayScaleTest, IsTheDotsPerInchOverNinetySixTimesTheFactor)
{
    EXPECT_EQ(displayScaleFrom("", {}), 1);
    EXPECT_EQ(displayScaleFrom("Xft.dpi: 144\n", {}), 1.5);
    EXPECT_EQ(displayScaleFrom("", {.factor = "1.25"}), 1.25);
    EXPECT_EQ(displayScaleFrom("Xft.dpi: 192\n", {.factor = "1.5"}), 3);
}

TEST(DisplayScaleTest, TheToolkitsOwnDotsPerInchGoBeforeTheDesktops)
{
    EXPECT_EQ(displayScaleFrom("Xft.dpi: 192\n", {.dotsPerInch = "96", .factor = "2"}), 2) << "MATE's \"2x\"";
    EXPECT_EQ(displayScaleFrom("", {.dotsPerInch = "144"}), 1.5);
    EXPECT_EQ(displayScaleFrom("Xft.dpi: 192\n", {.dotsPerInch = "144.5"}), 2) << "the toolkit takes whole numbers";
    EXPECT_EQ(toolkitFactorFrom("Xft.dpi: 192\n", "96", 2), 2);
}

TEST(DisplayScaleTest, IsBounded)
{
    EXPECT_EQ(displayScaleFrom("Xft.dpi: 10\n", {}), 0.5);
    EXPECT_EQ(displayScaleFrom("Xft.dpi: 9600\n", {}), 4);
    EXPECT_EQ(displayScaleFrom("", {.factor = "1e300"}), 4);
    EXPECT_EQ(displayScaleFrom("Xft.dpi: 1e300\n", {.factor = "1e300"}), 4);
    EXPECT_EQ(displayScaleFrom("Xft.dpi: 1e-300\n", {.factor = "1e-300"}), 0.5);
}

TEST(DisplayScaleTest, WhatIsNoPositiveNumberIsPassedOver)
{
    for (const char* const text : {"0", "-2", "nan", "inf", "two", "1,5", "", "1.5x", "1e999"})
        EXPECT_EQ(displayScaleFrom(std::string("Xft.dpi: ") + text + "\n", {.dotsPerInch = text, .factor = text}), 1)
            << text;
}

TEST(ToolkitFactorTest, MakesTheGreaterOfTheDesktopsTwoScales)
{
    EXPECT_EQ(toolkitFactorFrom("", {}, 2), 2);
    EXPECT_EQ(toolkitFactorFrom("Xft.dpi: 96\n", {}, 3), 3);
    EXPECT_EQ(toolkitFactorFrom("Xft.dpi: 144\n", {}, 3), 2);
    EXPECT_EQ(toolkitFactorFrom("Xft.dpi: 192\n", {}, 2), 1);
    EXPECT_EQ(toolkitFactorFrom("Xft.dpi: 240\n", {}, 2), 1);
    EXPECT_EQ(toolkitFactorFrom("Xft.dpi: 120\n", {}, 1), 1);
}

TEST(ToolkitFactorTest, IsOneWithoutAScaleOfWindowsAndBoundedForAnyOther)
{
    EXPECT_EQ(toolkitFactorFrom("", {}, 0), 1);
    EXPECT_EQ(toolkitFactorFrom("", {}, -2147483647), 1);
    EXPECT_EQ(toolkitFactorFrom("", {}, 2147483647), 4);
}

} // namespace
} // namespace nimbrale::x11
