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

} // namespace
} // namespace nimbrale
