// Pictures made smaller while they are made: each pixel exactly the mean of those that it stands for.

#include "platform/picture_halving.h"

#include "tests/fakes/halved_picture.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <utility>
#include <vector>

namespace nimbrale {
namespace {

std::shared_ptr<const BufferSurface> noise(int width, int height)
{
    const auto pixels = std::make_shared<PixelBuffer>(width, height);
    std::mt19937 random(7); // NOLINT(bugprone-random-generator-seed): the same noise each time.
    for (int y = 0; y < height; ++y) {
        for (std::size_t i = 0; i < pixels->stride(); ++i)
            pixels->row(y)[i] = static_cast<std::byte>(random() & 0xff);
    }
    return std::make_shared<BufferSurface>(pixels, SurfaceAlpha::premultiplied);
}

int channel(const BufferSurface& picture, int x, int y, int index)
{
    const int column = std::min(x, picture.width() - 1);
    return std::to_integer<int>(picture.pixels().row(std::min(y, picture.height() - 1))[column * 4 + index]);
}

/// One halving after the other, each pixel by itself.
std::shared_ptr<const BufferSurface> halvedPlainly(std::shared_ptr<const BufferSurface> picture, int halvings)
{
    for (; halvings > 0; --halvings) {
        const auto pixels = std::make_shared<PixelBuffer>((picture->width() + 1) / 2, (picture->height() + 1) / 2);
        for (int y = 0; y < pixels->height(); ++y) {
            for (int x = 0; x < pixels->width(); ++x) {
                for (int index = 0; index < PixelBuffer::bytesPerPixel; ++index) {
                    int sum = 2;
                    for (const auto& [dx, dy] : {std::pair(0, 0), std::pair(1, 0), std::pair(0, 1), std::pair(1, 1)})
                        sum += channel(*picture, 2 * x + dx, 2 * y + dy, index);
                    pixels->row(y)[x * PixelBuffer::bytesPerPixel + index] = static_cast<std::byte>(sum / 4);
                }
            }
        }
        picture = std::make_shared<BufferSurface>(pixels, picture->alpha());
    }
    return picture;
}

/// The bytes of all rows.
std::vector<std::byte> bytesOf(const BufferSurface& picture)
{
    const PixelBuffer& pixels = picture.pixels();
    return {pixels.row(0), pixels.row(0) + pixels.stride() * static_cast<std::size_t>(pixels.height())};
}

TEST(PictureHalvingTest, LengthsAreRoundedUpEachTime)
{
    EXPECT_EQ(halvedLength(1280, 0), 1280);
    EXPECT_EQ(halvedLength(1280, 2), 320);
    EXPECT_EQ(halvedLength(9, 1), 5);
    EXPECT_EQ(halvedLength(9, 2), 3);
    EXPECT_EQ(halvedLength(1, 5), 1);
}

TEST(PictureHalvingTest, EachPixelIsTheMeanOfFourWhateverTheSize)
{
    for (const auto& [width, height] : {std::pair(128, 72), std::pair(1280, 8), std::pair(31, 17), std::pair(35, 9),
                                        std::pair(2, 5), std::pair(1, 1), std::pair(3, 1), std::pair(1, 6)}) {
        const auto picture = noise(width, height);
        for (const int halvings : {0, 1, 2, 3, 4}) {
            const auto expected = halvedPlainly(picture, halvings);
            const auto made = halved(*picture, halvings);
            ASSERT_EQ(made->width(), expected->width()) << width << " x " << height << ", " << halvings;
            ASSERT_EQ(made->height(), expected->height()) << width << " x " << height << ", " << halvings;
            EXPECT_EQ(bytesOf(*made), bytesOf(*expected)) << width << " x " << height << ", " << halvings;
        }
    }
}

TEST(PictureHalvingTest, OneObjectMakesPicturesOfManySizes)
{
    PictureHalving halving;
    const auto make = [&](int width, int height, int halvings) {
        const auto picture = noise(width, height);
        const auto pixels =
            std::make_shared<PixelBuffer>(halvedLength(width, halvings), halvedLength(height, halvings));
        const auto rowsOf = [&](int first, int count, std::byte* rows, std::size_t stride) {
            for (int y = first; y < first + count; ++y, rows += stride)
                std::copy_n(picture->pixels().row(y), picture->pixels().stride(), rows);
            return true;
        };
        EXPECT_TRUE(halving.make(width, height, halvings, rowsOf, *pixels));
        return BufferSurface(pixels, SurfaceAlpha::premultiplied);
    };
    for (const auto& [width, halvings] : {std::pair(64, 2), std::pair(64, 1), std::pair(66, 1), std::pair(20, 3)})
        EXPECT_EQ(bytesOf(make(width, 21, halvings)), bytesOf(*halvedPlainly(noise(width, 21), halvings)));
}

TEST(PictureHalvingTest, EachRowIsAskedForOnceFromTheTopDown)
{
    PixelBuffer to(8, 5);
    std::vector<std::pair<int, int>> asked;
    const auto note = [&](int first, int count, std::byte* /*rows*/, std::size_t /*stride*/) {
        asked.emplace_back(first, count);
        return true;
    };
    EXPECT_TRUE(PictureHalving().make(32, 18, 2, note, to));
    EXPECT_EQ(asked, (std::vector<std::pair<int, int>>{{0, 4}, {4, 4}, {8, 4}, {12, 4}, {16, 2}}));
}

TEST(PictureHalvingTest, ASourceThatFailedIsNotAskedAgain)
{
    PixelBuffer to(8, 4);
    int questions = 0;
    const auto failSecond = [&](int, int, std::byte*, std::size_t) { return ++questions < 2; };
    EXPECT_FALSE(PictureHalving().make(32, 16, 2, failSecond, to));
    EXPECT_EQ(questions, 2);
}

} // namespace
} // namespace nimbrale
