#include "geometry/picture_size.h"

#include <gtest/gtest.h>
#include <limits>

namespace nimbrale {
namespace {

TEST(PictureSizeTest, IsTheWholePixelsOfTheRegion)
{
    EXPECT_EQ(pictureSize({800, 600}, 1), (PixelSize{800, 600}));
    EXPECT_EQ(pictureSize({800, 600}, 2), (PixelSize{1600, 1200}));
    EXPECT_EQ(pictureSize({51, 53}, 1.5), (PixelSize{76, 79}));
    EXPECT_EQ(pictureSize({51, 53}, 1.25), (PixelSize{63, 66}));
    EXPECT_EQ(pictureSize({51, 53}, 1.75), (PixelSize{89, 92}));
    EXPECT_EQ(pictureSize({0.2, 100}, 2), (PixelSize{0, 200}));
    EXPECT_EQ(pictureSize({1000.5, 600.25}, 2), (PixelSize{2001, 1200}));
}

TEST(PictureSizeTest, AWholeNumberOfPixelsIsNotLostToTheRoundingOfDoubles)
{
    constexpr double scale = 110.0 / 96;
    ASSERT_LT(432 * scale, 495);
    EXPECT_EQ(pictureSize({432, 864}, scale), (PixelSize{495, 990}));
}

TEST(PictureSizeTest, ThePicturedPartKeepsTheRegionsFirstCorner)
{
    EXPECT_EQ(picturedPart({30, 50, 51, 54}, 1.5), (Rect{30, 50, 76 / 1.5, 54}));
    EXPECT_EQ(picturedPart({30, 50, 400, 300}, 2), (Rect{30, 50, 400, 300}));
}

TEST(PictureSizeDeathTest, ASizeThatIsNoNumberIsAProgrammingError)
{
    EXPECT_DEATH(static_cast<void>(pictureSize({std::numeric_limits<double>::quiet_NaN(), 5}, 1)), "programming error");
    EXPECT_DEATH(static_cast<void>(pictureSize({5, 1e300}, 1)), "programming error");
}

} // namespace
} // namespace nimbrale
