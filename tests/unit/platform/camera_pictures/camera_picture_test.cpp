// Pictures that a camera writes pixel by pixel.

#include "tests/unit/platform/camera_pictures/camera_bytes.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <random>
#include <utility>
#include <vector>

namespace nimbrale {
namespace {

TEST(CameraPictureTest, ColorCodingsDiffer)
{
    PictureMaker maker;
    const Bytes gray(8 * 2 * 3 / 2, 128);
    const Bytes nearlyWhite = [] {
        Bytes bytes(8 * 2 * 3 / 2, 128);
        std::fill_n(bytes.begin(), 16, std::uint8_t{235});
        return bytes;
    }();
    const auto colorOf = [&maker](const Bytes& bytes, ColorCoding colors) {
        const auto picture = maker.make({PictureEncoding::i420, 8, 2, colors}, std::array{CameraPlane{bytes, 0}});
        return pixelAt(*picture, 0, 0).front();
    };
    EXPECT_NEAR(colorOf(nearlyWhite, ColorCoding::bt601Limited), 255, 1);
    EXPECT_NEAR(colorOf(nearlyWhite, ColorCoding::bt709Limited), 255, 1);
    EXPECT_NEAR(colorOf(nearlyWhite, ColorCoding::bt601Full), 235, 1);
    EXPECT_NEAR(colorOf(nearlyWhite, ColorCoding::bt709Full), 235, 1);

    Bytes red = gray;
    std::fill_n(red.end() - 4, 4, std::uint8_t{178}); // 50 above the middle, times 1.596, 1.793, 1.402 and 1.575.
    EXPECT_NEAR(colorOf(red, ColorCoding::bt601Limited), 130 + 80, 2);
    EXPECT_NEAR(colorOf(red, ColorCoding::bt709Limited), 130 + 90, 2);
    EXPECT_NEAR(colorOf(red, ColorCoding::bt601Full), 128 + 70, 2);
    EXPECT_NEAR(colorOf(red, ColorCoding::bt709Full), 128 + 79, 2);
}

/// Pictures of noise, so that every way of converting them has to do the same with every color.
TEST(CameraPictureTest, PackedPicturesHaveTheColorsOfPlanesInEveryCoding)
{
    // Rows of an odd number of pairs, and more pixels than are converted at a time.
    constexpr int width = 74;
    constexpr int height = 2;
    constexpr std::size_t pairs = width / 2;
    std::mt19937 random(3); // NOLINT(bugprone-random-generator-seed): the same noise each time.
    Bytes brightness;
    Bytes blue;
    Bytes red;
    Bytes yuy2;
    Bytes uyvy;
    for (std::size_t pair = 0; pair < pairs; ++pair) {
        const auto byte = [&random] { return static_cast<std::uint8_t>(random()); };
        const std::array<std::uint8_t, 4> bytes{byte(), byte(), byte(), byte()};
        brightness.insert(brightness.end(), {bytes[0], bytes[2]});
        blue.push_back(bytes[1]);
        red.push_back(bytes[3]);
        yuy2.insert(yuy2.end(), bytes.begin(), bytes.end());
        uyvy.insert(uyvy.end(), {bytes[1], bytes[0], bytes[3], bytes[2]});
    }
    // In planes two rows have their color differences in common, so both rows are alike.
    for (Bytes* const rows : {&brightness, &yuy2, &uyvy}) {
        const Bytes row = *rows;
        rows->insert(rows->end(), row.begin(), row.end());
    }
    PictureMaker maker;
    for (const ColorCoding colors :
         {ColorCoding::bt601Limited, ColorCoding::bt601Full, ColorCoding::bt709Limited, ColorCoding::bt709Full}) {
        const auto expected = maker.make({PictureEncoding::i420, width, height, colors},
                                         std::array{CameraPlane{brightness}, CameraPlane{blue}, CameraPlane{red}});
        ASSERT_TRUE(expected);
        for (const auto& [encoding, bytes] :
             {std::pair(PictureEncoding::yuy2, &yuy2), std::pair(PictureEncoding::uyvy, &uyvy)}) {
            const auto picture = maker.make({encoding, width, height, colors}, std::array{CameraPlane{*bytes}});
            ASSERT_TRUE(picture);
            for (int y = 0; y < height; ++y) {
                for (int x = 0; x < width; ++x)
                    ASSERT_EQ(pixelAt(*picture, x, y), pixelAt(*expected, x, y))
                        << "coding " << static_cast<int>(colors) << ", encoding " << static_cast<int>(encoding)
                        << ", at " << x << ", " << y;
            }
        }
    }
}

TEST(CameraPictureTest, PlanesMayLieApart)
{
    PictureMaker maker;
    const Bytes brightness(32, 81);
    const Bytes blue(8, 90);
    const Bytes red(8, 240);
    const auto picture = maker.make({PictureEncoding::i420, 16, 2},
                                    std::array{CameraPlane{brightness, 16}, CameraPlane{blue, 8}, CameraPlane{red, 8}});
    ASSERT_TRUE(picture);
    expectColor(*picture, 15, 1, {255, 0, 0});
}

TEST(CameraPictureTest, OddSizesHaveAllOfTheirPixels)
{
    struct Case {
        PictureEncoding encoding;
        std::size_t size;
    };
    PictureMaker maker;
    // 5 × 3: of the colors there are 3 × 2, in each row or in every other one.
    for (const auto& [encoding, size] :
         {Case{PictureEncoding::yuy2, 36}, Case{PictureEncoding::uyvy, 36}, Case{PictureEncoding::bgrx, 60},
          Case{PictureEncoding::nv12, 15 + 12}, Case{PictureEncoding::i420, 15 + 12}}) {
        const Bytes whole(size, 128);
        const auto picture = maker.make({encoding, 5, 3}, std::array{CameraPlane{whole, 0}});
        ASSERT_TRUE(picture) << static_cast<int>(encoding);
        const int gray = encoding == PictureEncoding::bgrx ? 128 : 130;
        for (const auto& [x, y] : {std::pair(0, 0), std::pair(4, 0), std::pair(0, 2), std::pair(4, 2)})
            expectColor(*picture, x, y, {gray, gray, gray});
        const Bytes tooShort(size - 1, 128);
        EXPECT_FALSE(maker.make({encoding, 5, 3}, std::array{CameraPlane{tooShort, 0}})) << static_cast<int>(encoding);
    }
}

TEST(CameraPictureTest, TheSmallestAndTheLongestPicturesHaveAllOfTheirPixels)
{
    PictureMaker maker;
    const auto bytesFor = [](PictureEncoding encoding, int width, int height) {
        const int halfWidth = (width + 1) / 2;
        if (encoding == PictureEncoding::bgrx)
            return width * height * 4;
        if (encoding == PictureEncoding::nv12 || encoding == PictureEncoding::i420)
            return width * height + 2 * halfWidth * ((height + 1) / 2);
        return halfWidth * 4 * height;
    };
    for (const PictureEncoding encoding : {PictureEncoding::yuy2, PictureEncoding::uyvy, PictureEncoding::nv12,
                                           PictureEncoding::i420, PictureEncoding::bgrx}) {
        const int gray = encoding == PictureEncoding::bgrx ? 128 : 130;
        for (const auto& [width, height] :
             {std::pair(1, 1), std::pair(largestPictureSide, 1), std::pair(1, largestPictureSide)}) {
            SCOPED_TRACE("encoding " + std::to_string(static_cast<int>(encoding)) + ", width " + std::to_string(width));
            Bytes bytes(static_cast<std::size_t>(bytesFor(encoding, width, height)), 128);
            const auto picture = maker.make({encoding, width, height}, std::array{CameraPlane{bytes, 0}});
            ASSERT_TRUE(picture);
            for (const auto& [x, y] :
                 {std::pair(0, 0), std::pair(width / 2, height / 2), std::pair(width - 1, height - 1)})
                expectColor(*picture, x, y, {gray, gray, gray});
            bytes.pop_back();
            EXPECT_FALSE(maker.make({encoding, width, height}, std::array{CameraPlane{bytes, 0}}));
        }
    }
}

TEST(CameraPictureTest, TheLargestPictureHasAllOfItsPixels)
{
    PictureMaker maker;
    constexpr int side = largestPictureSide;
    const Bytes bytes(std::size_t{side} * side * 3 / 2, 128);
    const auto picture = maker.make({PictureEncoding::nv12, side, side}, std::array{CameraPlane{bytes, 0}});
    ASSERT_TRUE(picture);
    for (const int place : {0, side / 2, side - 1})
        expectColor(*picture, place, place, {130, 130, 130});
}

TEST(CameraPictureTest, SizesThatNoCameraHasMakeNoPicture)
{
    PictureMaker maker;
    const Bytes bytes(64, 128);
    const std::array planes{CameraPlane{bytes, 0}};
    ASSERT_TRUE(maker.make({PictureEncoding::bgrx, 4, 4}, planes));
    for (const auto& [width, height] : {std::pair(0, 4), std::pair(4, 0), std::pair(-4, 4), std::pair(4, -4),
                                        std::pair(0x7fffffff, 4), std::pair(4, 0x7fffffff), std::pair(8193, 1)})
        EXPECT_FALSE(maker.make({PictureEncoding::bgrx, width, height}, planes)) << width << " x " << height;
    EXPECT_FALSE(maker.make({PictureEncoding::bgrx, 4, 4}, {}));
}

TEST(CameraPictureTest, RowsThatNoPictureHasMakeNoPicture)
{
    PictureMaker maker;
    const Bytes bytes(4096, 128);
    for (const PictureEncoding encoding : {PictureEncoding::yuy2, PictureEncoding::uyvy, PictureEncoding::nv12,
                                           PictureEncoding::i420, PictureEncoding::bgrx}) {
        ASSERT_TRUE(maker.make({encoding, 16, 16}, std::array{CameraPlane{bytes, 64}}));
        for (const int stride : {0x7fffffff, 0x7ffffff0, -0x7fffffff - 1, -64, -1, 1, 15})
            EXPECT_FALSE(maker.make({encoding, 16, 16}, std::array{CameraPlane{bytes, stride}})) << stride;
    }
}

} // namespace
} // namespace nimbrale
