#include "platform/camera_pictures/camera_picture.h"

#include "tests/fakes/halved_picture.h"

#include <QBuffer>
#include <QImage>

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <random>
#include <utility>
#include <vector>

namespace nimbrale {
namespace {

using Bytes = std::vector<std::uint8_t>;
using PixelSizes = std::vector<std::pair<int, int>>;

std::array<int, 3> pixelAt(const BufferSurface& picture, int x, int y)
{
    const std::byte* const pixel =
        picture.pixels().row(y) + static_cast<std::ptrdiff_t>(x) * PixelBuffer::bytesPerPixel;
    return {std::to_integer<int>(pixel[2]), std::to_integer<int>(pixel[1]), std::to_integer<int>(pixel[0])};
}

void expectColor(const BufferSurface& picture, int x, int y, const std::array<int, 3>& expected)
{
    const std::array<int, 3> color = pixelAt(picture, x, y);
    for (std::size_t channel = 0; channel < color.size(); ++channel)
        EXPECT_NEAR(color.at(channel), expected.at(channel), 2) << "channel " << channel << " at " << x << ", " << y;
}

Bytes jpegOf(int width, int height, QRgb color, QImage::Format format = QImage::Format_RGB32)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(color);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    EXPECT_TRUE(image.convertToFormat(format).save(&buffer, "JPG", 95));
    return {bytes.begin(), bytes.end()};
}

Bytes noisyJpeg(int width, int height, int quality, QImage::Format format = QImage::Format_RGB32)
{
    QImage noise(width, height, QImage::Format_RGB32);
    std::mt19937 random(1); // NOLINT(bugprone-random-generator-seed): the same noise each time.
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            noise.setPixel(x, y, static_cast<QRgb>(random()) | 0xff000000U);
    }
    QByteArray written;
    QBuffer buffer(&written);
    buffer.open(QIODevice::WriteOnly);
    EXPECT_TRUE(noise.convertToFormat(format).save(&buffer, "JPG", quality));
    return {written.begin(), written.end()};
}

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

TEST(CameraPictureTest, AJpegHasItsOwnSize)
{
    PictureMaker maker;
    const Bytes jpeg = jpegOf(48, 32, qRgb(200, 40, 90));
    const auto picture = maker.make({PictureEncoding::motionJpeg, 1280, 720}, std::array{CameraPlane{jpeg, 0}});
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->width(), 48);
    EXPECT_EQ(picture->height(), 32);
    expectColor(*picture, 47, 31, {200, 40, 90});
}

TEST(CameraPictureTest, AGrayJpegIsAPicture)
{
    PictureMaker maker;
    const Bytes jpeg = jpegOf(48, 32, qRgb(77, 77, 77), QImage::Format_Grayscale8);
    const auto picture = maker.make({PictureEncoding::motionJpeg, 48, 32}, std::array{CameraPlane{jpeg, 0}});
    ASSERT_TRUE(picture);
    expectColor(*picture, 10, 10, {77, 77, 77});
}

TEST(CameraPictureTest, NoCutJpegIsAPictureAndNoneSpoilsTheNext)
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
TEST(CameraPictureTest, JpegsOfImpossibleSizesAreLeftOutWithoutALine)
{
    PictureMaker maker;
    const CameraFormat format{PictureEncoding::motionJpeg, 48, 32};
    const Bytes whole = jpegOf(48, 32, qRgb(10, 200, 90));
    const auto header = std::ranges::search(whole, std::array<std::uint8_t, 2>{0xff, 0xc0}).begin();
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
TEST(CameraPictureTest, BytesThatAreWrongAnywhereAreSurvived)
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

TEST(CameraPictureTest, APictureHalvedOnTheWayIsTheOneHalvedAfterwards)
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

TEST(CameraPictureTest, AJpegHalvedOnTheWayIsTheOneHalvedAfterwards)
{
    for (const QImage::Format format : {QImage::Format_RGB32, QImage::Format_Grayscale8}) {
        for (const int quality : {60, 100}) {
            for (const auto& [width, height] : {std::pair(64, 48), std::pair(45, 31)})
                expectTheSameAsHalvedAfterwards({PictureEncoding::motionJpeg, width, height},
                                                noisyJpeg(width, height, quality, format));
        }
    }
}

TEST(CameraPictureTest, HowOftenPicturesAreHalvedMayChange)
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

TEST(CameraPictureTest, NothingIsAskedForWhereThereIsNoPicture)
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
