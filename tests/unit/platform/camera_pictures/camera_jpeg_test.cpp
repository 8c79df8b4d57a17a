// Pictures that a camera writes as JPEGs, and what is none.

#include "tests/unit/platform/camera_pictures/camera_bytes.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <random>
#include <utility>
#include <vector>

namespace nimbrale {
namespace {

TEST(CameraJpegTest, AJpegHasItsOwnSize)
{
    PictureMaker maker;
    const Bytes jpeg = jpegOf(48, 32, qRgb(200, 40, 90));
    const auto picture = maker.make({PictureEncoding::motionJpeg, 1280, 720}, std::array{CameraPlane{jpeg, 0}});
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->width(), 48);
    EXPECT_EQ(picture->height(), 32);
    expectColor(*picture, 47, 31, {200, 40, 90});
}

TEST(CameraJpegTest, AGrayJpegIsAPicture)
{
    PictureMaker maker;
    const Bytes jpeg = jpegOf(48, 32, qRgb(77, 77, 77), QImage::Format_Grayscale8);
    const auto picture = maker.make({PictureEncoding::motionJpeg, 48, 32}, std::array{CameraPlane{jpeg, 0}});
    ASSERT_TRUE(picture);
    expectColor(*picture, 10, 10, {77, 77, 77});
}

TEST(CameraJpegTest, NoCutJpegIsAPictureAndNoneSpoilsTheNext)
{
    PictureMaker maker;
    const CameraFormat format{PictureEncoding::motionJpeg, 64, 64};
    const Bytes whole = noisyJpeg(64, 64, 90);
    ASSERT_TRUE(maker.make(format, std::array{CameraPlane{whole, 0}}));
    for (std::size_t length = 0; length < whole.size() * 9 / 10; length += 13) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_FALSE(maker.make(format, std::array{CameraPlane{cut, 0}})) << length << " of " << whole.size();
    }
    EXPECT_TRUE(maker.make(format, std::array{CameraPlane{whole, 0}}));
}

// The library would tell of each in a line of its own, picture by picture.
TEST(CameraJpegTest, JpegsOfImpossibleSizesAreLeftOutWithoutALine)
{
    PictureMaker maker;
    const CameraFormat format{PictureEncoding::motionJpeg, 48, 32};
    const Bytes whole = jpegOf(48, 32, qRgb(10, 200, 90));
    constexpr std::array<std::uint8_t, 2> marker{0xff, 0xc0};
    const auto header = std::search(whole.begin(), whole.end(), marker.begin(), marker.end());
    ASSERT_NE(header, whole.end());
    const auto size = header - whole.begin() + 5;
    testing::internal::CaptureStderr();
    for (const auto& [width, height] : {std::pair(0, 0), std::pair(0, 32), std::pair(48, 0), std::pair(65535, 65535),
                                        std::pair(8192, 8192), std::pair(8200, 8)}) {
        Bytes bytes = whole;
        for (const auto& [place, length] : {std::pair(size, height), std::pair(size + 2, width)}) {
            bytes[static_cast<std::size_t>(place)] = static_cast<std::uint8_t>(length >> 8);
            bytes[static_cast<std::size_t>(place) + 1] = static_cast<std::uint8_t>(length & 0xff);
        }
        EXPECT_FALSE(maker.make(format, std::array{CameraPlane{bytes, 0}})) << width << " x " << height;
        bytes.insert(bytes.begin() + size - 5, 3, std::uint8_t{0});
        EXPECT_FALSE(maker.make(format, std::array{CameraPlane{bytes, 0}})) << "behind other bytes";
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(maker.make(format, std::array{CameraPlane{whole, 0}}));
}

/// Whatever is in it, it does not crash, and a picture that comes out is one of a possible size.
TEST(CameraJpegTest, BytesThatAreWrongAnywhereAreSurvived)
{
    PictureMaker maker;
    const CameraFormat format{PictureEncoding::motionJpeg, 48, 32};
    const Bytes whole = jpegOf(48, 32, qRgb(10, 200, 90));
    std::mt19937 random(2); // NOLINT(bugprone-random-generator-seed): the same mistakes each time.
    for (int round = 0; round < 3000; ++round) {
        Bytes bytes = whole;
        for (unsigned mistakes = random() % 8 + 1; mistakes > 0; --mistakes)
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
        const auto picture = maker.make(format, std::array{CameraPlane{bytes, 0}});
        if (picture) {
            ASSERT_LE(std::max(picture->width(), picture->height()), largestPictureSide);
        }
    }
    const auto picture = maker.make(format, std::array{CameraPlane{whole, 0}});
    ASSERT_TRUE(picture);
    expectColor(*picture, 20, 20, {10, 200, 90});
}

} // namespace
} // namespace nimbrale
