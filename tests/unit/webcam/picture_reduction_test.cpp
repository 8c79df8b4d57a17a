// How often a picture is made smaller.

#include "webcam/picture_reduction.h"

#include <gtest/gtest.h>

namespace nimbrale {
namespace {

TEST(PictureReductionTest, IsHalvedAsLongAsNoPixelOfTheShownPictureIsMissing)
{
    EXPECT_EQ(halvingsToShow({1280, 720}, {320, 180}), 2);
    EXPECT_EQ(halvingsToShow({1280, 720}, {321, 180}), 1);
    EXPECT_EQ(halvingsToShow({1280, 720}, {320, 181}), 1) << "it fills the place in both directions";
    EXPECT_EQ(halvingsToShow({1280, 720}, {300, 300}), 1);
    EXPECT_EQ(halvingsToShow({1280, 720}, {641, 361}), 0);
    EXPECT_EQ(halvingsToShow({640, 360}, {1280, 720}), 0);
    EXPECT_EQ(halvingsToShow({1280, 720}, {}), 0) << "not shown yet";
}

TEST(PictureReductionTest, EffectsAreMadeInAtMost1280By720)
{
    EXPECT_EQ(halvingsForEffects({1280, 720}), 0);
    EXPECT_EQ(halvingsForEffects({640, 480}), 0) << "never larger than it is";
    EXPECT_EQ(halvingsForEffects({1281, 720}), 1);
    EXPECT_EQ(halvingsForEffects({1280, 721}), 1);
    EXPECT_EQ(halvingsForEffects({720, 1280}), 0) << "upright";
    EXPECT_EQ(halvingsForEffects({1080, 1920}), 1);
    EXPECT_EQ(halvingsForEffects({1920, 1080}), 1);
    EXPECT_EQ(halvingsForEffects({2560, 1440}), 1) << "just 1280 × 720 then";
    EXPECT_EQ(halvingsForEffects({2561, 1440}), 2) << "halves are rounded up";
    EXPECT_EQ(halvingsForEffects({3840, 2160}), 2);
    EXPECT_EQ(halvingsForEffects({1, 1}), 0);
}

} // namespace
} // namespace nimbrale
