// Pictures made smaller: how often, and each pixel exactly the mean of those that it stands for.

#include "webcam/picture_reduction.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace nimbrale {
namespace {

std::shared_ptr<const BufferSurface> noise(int width, int height, SurfaceAlpha alpha = SurfaceAlpha::opaque)
{
    const auto pixels = std::make_shared<PixelBuffer>(width, height);
    std::mt19937 random(7);
    for (int y = 0; y < height; ++y) {
        for (std::size_t i = 0; i < static_cast<std::size_t>(width) * PixelBuffer::bytesPerPixel; ++i)
            pixels->row(y)[i] = static_cast<std::byte>(random() & 0xff);
    }
    return std::make_shared<BufferSurface>(pixels, alpha);
}

int channel(const BufferSurface& picture, int x, int y, int index)
{
    const int column = std::min(x, picture.width() - 1);
    return std::to_integer<int>(picture.pixels().row(std::min(y, picture.height() - 1))[column * 4 + index]);
}

/// How far a picture is from the mean over squares of that side, at most.
double farthestFromMean(const BufferSurface& picture, const BufferSurface& reduced, int side)
{
    double farthest = 0;
    for (int y = 0; y < reduced.height(); ++y) {
        for (int x = 0; x < reduced.width(); ++x) {
            for (int index = 0; index < 4; ++index) {
                double sum = 0;
                for (int place = 0; place < side * side; ++place)
                    sum += channel(picture, x * side + place % side, y * side + place / side, index);
                farthest = std::max(farthest, std::abs(channel(reduced, x, y, index) - sum / (side * side)));
            }
        }
    }
    return farthest;
}

TEST(PictureReductionTest, IsHalvedAsLongAsNoPixelOfTheShownPictureIsMissing)
{
    EXPECT_EQ(PictureReduction::halvings({1280, 720}, {320, 180}), 2);
    EXPECT_EQ(PictureReduction::halvings({1280, 720}, {321, 180}), 1);
    EXPECT_EQ(PictureReduction::halvings({1280, 720}, {320, 181}), 1) << "it fills the place in both directions";
    EXPECT_EQ(PictureReduction::halvings({1280, 720}, {300, 300}), 1);
    EXPECT_EQ(PictureReduction::halvings({1280, 720}, {641, 361}), 0);
    EXPECT_EQ(PictureReduction::halvings({640, 360}, {1280, 720}), 0);
    EXPECT_EQ(PictureReduction::halvings({1280, 720}, {}), 0) << "not shown yet";
}

TEST(PictureReductionTest, WithoutAHalvingItIsTheSamePicture)
{
    const auto picture = noise(16, 9);
    EXPECT_EQ(PictureReduction().reduce(picture, 0), picture);
}

TEST(PictureReductionTest, EachPixelIsTheMeanOfThoseThatItStandsFor)
{
    PictureReduction reduction;
    for (const auto& [halvings, roundings] : {std::pair{1, 0.5}, std::pair{2, 1.0}, std::pair{3, 1.5}}) {
        const auto picture = noise(128, 72, SurfaceAlpha::premultiplied);
        const auto reduced = reduction.reduce(picture, halvings);
        EXPECT_EQ(reduced->width(), 128 >> halvings);
        EXPECT_EQ(reduced->height(), 72 >> halvings);
        EXPECT_EQ(reduced->alpha(), SurfaceAlpha::premultiplied);
        EXPECT_LE(farthestFromMean(*picture, *reduced, 1 << halvings), roundings);
    }
}

TEST(PictureReductionTest, OddSizesAreRoundedUp)
{
    const auto picture = noise(31, 17);
    const auto reduced = PictureReduction().reduce(picture, 1);
    EXPECT_EQ(reduced->width(), 16);
    EXPECT_EQ(reduced->height(), 9);
    EXPECT_LE(farthestFromMean(*picture, *reduced, 2), 0.5);
}

} // namespace
} // namespace nimbrale
