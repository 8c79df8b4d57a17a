// Pictures that are made smaller while they are made.

#include "tests/fakes/halved_picture.h"
#include "tests/unit/platform/camera_pictures/camera_bytes.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <random>
#include <utility>
#include <vector>

namespace nimbrale {
namespace {

using PixelSizes = std::vector<std::pair<int, int>>;

/// Bytes of noise for a picture of that format.
Bytes noiseFor(PictureEncoding encoding, int width, int height)
{
    const auto half = [](int length) { return static_cast<std::size_t>(length + 1) / 2; };
    const auto rows = static_cast<std::size_t>(height);
    std::size_t size = 0;
    switch (encoding) {
    case PictureEncoding::yuy2:
    case PictureEncoding::uyvy:
        size = half(width) * 4 * rows;
        break;
    case PictureEncoding::bgrx:
        size = static_cast<std::size_t>(width) * 4 * rows;
        break;
    case PictureEncoding::nv12:
    case PictureEncoding::i420:
        size = static_cast<std::size_t>(width) * rows + 2 * half(width) * half(height);
        break;
    case PictureEncoding::motionJpeg:
        break;
    }
    std::mt19937 random(5); // NOLINT(bugprone-random-generator-seed): the same noise each time.
    Bytes bytes(size);
    std::ranges::generate(bytes, [&random] { return static_cast<std::uint8_t>(random()); });
    return bytes;
}

/// What is made smaller on the way must be to the bit what it would be if it were made smaller afterwards.
void expectTheSameAsHalvedAfterwards(const CameraFormat& format, const Bytes& bytes)
{
    const std::array planes{CameraPlane{bytes}};
    const auto whole = PictureMaker().make(format, planes);
    ASSERT_TRUE(whole);
    for (const int halvings : {1, 2, 3}) {
        PixelSizes asked;
        PictureMaker maker([&](int width, int height) {
            asked.emplace_back(width, height);
            return halvings;
        });
        const auto made = maker.make(format, planes);
        ASSERT_TRUE(made);
        EXPECT_EQ(asked, (PixelSizes{{whole->width(), whole->height()}}));
        EXPECT_EQ(made->alpha(), SurfaceAlpha::opaque);
        const auto expected = halved(*whole, halvings);
        ASSERT_EQ(std::pair(made->width(), made->height()), std::pair(expected->width(), expected->height()));
        const std::size_t size = made->pixels().stride() * static_cast<std::size_t>(made->height());
        EXPECT_TRUE(std::equal(made->pixels().row(0), made->pixels().row(0) + size, expected->pixels().row(0)))
            << "encoding " << static_cast<int>(format.encoding) << ", coding " << static_cast<int>(format.colors)
            << ", " << format.width << " x " << format.height << ", halved " << halvings << " times";
    }
}

TEST(HalvedCameraPictureTest, APictureHalvedOnTheWayIsTheOneHalvedAfterwards)
{
    for (const PictureEncoding encoding : {PictureEncoding::yuy2, PictureEncoding::uyvy, PictureEncoding::nv12,
                                           PictureEncoding::i420, PictureEncoding::bgrx}) {
        for (const ColorCoding colors :
             {ColorCoding::bt601Limited, ColorCoding::bt601Full, ColorCoding::bt709Limited, ColorCoding::bt709Full}) {
            for (const auto& [width, height] : {std::pair(320, 48), std::pair(74, 21), std::pair(37, 23),
                                                std::pair(5, 3), std::pair(1, 1), std::pair(1, 10)})
                expectTheSameAsHalvedAfterwards({encoding, width, height, colors}, noiseFor(encoding, width, height));
        }
    }
}

TEST(HalvedCameraPictureTest, AJpegHalvedOnTheWayIsTheOneHalvedAfterwards)
{
    for (const QImage::Format format : {QImage::Format_RGB32, QImage::Format_Grayscale8}) {
        for (const int quality : {60, 100}) {
            for (const auto& [width, height] : {std::pair(64, 48), std::pair(45, 31)})
                expectTheSameAsHalvedAfterwards({PictureEncoding::motionJpeg, width, height},
                                                noisyJpeg(width, height, quality, format));
        }
    }
}

TEST(HalvedCameraPictureTest, HowOftenPicturesAreHalvedMayChange)
{
    int halvings = 2;
    PictureMaker maker([&](int, int) { return halvings; });
    const Bytes bytes = noiseFor(PictureEncoding::yuy2, 64, 36);
    const std::array planes{CameraPlane{bytes}};
    const auto small = maker.make({PictureEncoding::yuy2, 64, 36}, planes);
    halvings = 0;
    const auto whole = maker.make({PictureEncoding::yuy2, 64, 36}, planes);
    halvings = 1;
    const auto half = maker.make({PictureEncoding::yuy2, 64, 36}, planes);
    EXPECT_EQ(small->width(), 16);
    EXPECT_EQ(whole->width(), 64);
    EXPECT_EQ(half->width(), 32);
}

TEST(HalvedCameraPictureTest, NothingIsAskedForWhereThereIsNoPicture)
{
    int questions = 0;
    PictureMaker maker([&](int, int) { return ++questions; });
    const Bytes tooShort(63, 128);
    EXPECT_FALSE(maker.make({PictureEncoding::bgrx, 4, 4}, std::array{CameraPlane{tooShort}}));
    EXPECT_FALSE(maker.make({PictureEncoding::motionJpeg, 4, 4}, std::array{CameraPlane{tooShort}}));
    EXPECT_EQ(questions, 0);
}

} // namespace
} // namespace nimbrale
