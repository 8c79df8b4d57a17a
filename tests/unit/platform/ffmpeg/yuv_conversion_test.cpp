// A screen's colors as a movie has them, against the formula in floating point.

#include "platform/ffmpeg/yuv_conversion.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace nimbrale::ffmpeg {
namespace {

constexpr std::uint8_t untouched = 7;

std::size_t indexOf(int x, int y, int columns)
{
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(columns) + static_cast<std::size_t>(x);
}

/// The three planes of one picture, filled with a value that no conversion of these tests makes everywhere.
struct Yuv {
    Yuv(int width, int height)
        : columns(width), luma(static_cast<std::size_t>(width * height), untouched),
          blueChroma(static_cast<std::size_t>(width * height / 4), untouched),
          redChroma(static_cast<std::size_t>(width * height / 4), untouched)
    {}

    YuvPlanes planes() { return {luma.data(), blueChroma.data(), redChroma.data(), columns, columns / 2, columns / 2}; }

    int columns;
    std::vector<std::uint8_t> luma;
    std::vector<std::uint8_t> blueChroma;
    std::vector<std::uint8_t> redChroma;
};

struct Rgb {
    double red = 0;
    double green = 0;
    double blue = 0;
};

Rgb colorAt(const PixelBuffer& pixels, int x, int y)
{
    const std::byte* const pixel = pixels.row(y) + std::ptrdiff_t{x} * PixelBuffer::bytesPerPixel;
    const auto channel = [&](int number) { return std::to_integer<int>(pixel[number]); };
    return {.red = static_cast<double>(channel(2)),
            .green = static_cast<double>(channel(1)),
            .blue = static_cast<double>(channel(0))};
}

double lumaOf(const Rgb& color)
{
    return 0.2126 * color.red + 0.7152 * color.green + 0.0722 * color.blue;
}

int exactLuma(const Rgb& color)
{
    return static_cast<int>(std::lround(16 + lumaOf(color) * 219 / 255));
}

/// Blue and red chroma.
std::array<int, 2> exactChroma(const Rgb& color)
{
    const double luma = lumaOf(color);
    return {static_cast<int>(std::lround(128 + (color.blue - luma) / 1.8556 * 224 / 255)),
            static_cast<int>(std::lround(128 + (color.red - luma) / 1.5748 * 224 / 255))};
}

Rgb meanOfFour(const PixelBuffer& pixels, int x, int y)
{
    Rgb mean;
    for (const auto& [dx, dy] : {std::array{0, 0}, std::array{1, 0}, std::array{0, 1}, std::array{1, 1}}) {
        const Rgb color = colorAt(pixels, x + dx, y + dy);
        mean = {mean.red + color.red / 4, mean.green + color.green / 4, mean.blue + color.blue / 4};
    }
    return mean;
}

PixelBuffer randomPixels(int width, int height)
{
    PixelBuffer pixels(width, height);
    std::mt19937 random(1); // NOLINT(bugprone-random-generator-seed): a failure must come again.
    for (int y = 0; y < height; ++y) {
        for (std::size_t byte = 0; byte < pixels.stride(); ++byte)
            pixels.row(y)[byte] = static_cast<std::byte>(random());
    }
    return pixels;
}

/// How far the worst sample is off.
int worstError(const PixelBuffer& pixels, const Yuv& yuv)
{
    int worst = 0;
    for (int y = 0; y < pixels.height(); ++y) {
        for (int x = 0; x < pixels.width(); ++x) {
            const int luma = yuv.luma.at(indexOf(x, y, yuv.columns));
            worst = std::max(worst, std::abs(luma - exactLuma(colorAt(pixels, x, y))));
        }
    }
    for (int y = 0; y < pixels.height(); y += 2) {
        for (int x = 0; x < pixels.width(); x += 2) {
            const std::array<int, 2> exact = exactChroma(meanOfFour(pixels, x, y));
            const auto index = indexOf(x / 2, y / 2, yuv.columns / 2);
            worst = std::max(worst, std::abs(yuv.blueChroma.at(index) - exact[0]));
            worst = std::max(worst, std::abs(yuv.redChroma.at(index) - exact[1]));
        }
    }
    return worst;
}

TEST(YuvConversionTest, RandomColorsAreExactToOne)
{
    const PixelBuffer pixels = randomPixels(1024, 1024);
    Yuv yuv(1024, 1024);
    convertToYuv(pixels, {0, 0, 1024, 1024}, yuv.planes());
    EXPECT_LE(worstError(pixels, yuv), 1);
}

TEST(YuvConversionTest, EveryColorOfACoarseGridIsExactToOne)
{
    // 18³ colors, each a square of 2 × 2, with all the corners of the color cube.
    constexpr int steps = 18;
    PixelBuffer pixels(2 * steps * steps, 2 * steps);
    for (int y = 0; y < pixels.height(); ++y) {
        for (int x = 0; x < pixels.width(); ++x) {
            std::byte* const pixel = pixels.row(y) + std::ptrdiff_t{x} * PixelBuffer::bytesPerPixel;
            pixel[0] = static_cast<std::byte>((x / 2 % steps) * 15);
            pixel[1] = static_cast<std::byte>((x / 2 / steps) * 15);
            pixel[2] = static_cast<std::byte>((y / 2) * 15);
            pixel[3] = static_cast<std::byte>(x);
        }
    }
    Yuv yuv(pixels.width(), pixels.height());
    convertToYuv(pixels, {0, 0, pixels.width(), pixels.height()}, yuv.planes());
    EXPECT_LE(worstError(pixels, yuv), 1);
}

TEST(YuvConversionTest, BlackWhiteAndGraysHaveTheirExactValues)
{
    for (int gray = 0; gray < 256; ++gray) {
        PixelBuffer pixels(2, 2);
        std::fill_n(pixels.row(0), 16, static_cast<std::byte>(gray));
        Yuv yuv(2, 2);
        convertToYuv(pixels, {0, 0, 2, 2}, yuv.planes());
        EXPECT_EQ(yuv.luma[0], std::lround(16 + gray * 219.0 / 255)) << gray;
        EXPECT_EQ(yuv.blueChroma[0], 128) << gray;
        EXPECT_EQ(yuv.redChroma[0], 128) << gray;
    }
}

/// Whether each sample outside of the rectangle is as it was, and each one inside as a conversion of everything has it.
void expectConvertedInside(const PixelBuffer& pixels, const PixelRect& asked, const PixelRect& even)
{
    Yuv whole(pixels.width(), pixels.height());
    convertToYuv(pixels, {0, 0, pixels.width(), pixels.height()}, whole.planes());
    Yuv part(pixels.width(), pixels.height());
    convertToYuv(pixels, asked, part.planes());
    for (int y = 0; y < pixels.height(); ++y) {
        for (int x = 0; x < pixels.width(); ++x) {
            const bool isInside = even.contains({x, y});
            const auto at = indexOf(x, y, part.columns);
            ASSERT_EQ(part.luma[at], isInside ? whole.luma[at] : untouched) << x << ", " << y;
            const auto half = indexOf(x / 2, y / 2, part.columns / 2);
            ASSERT_EQ(part.blueChroma[half], isInside ? whole.blueChroma[half] : untouched) << x << ", " << y;
            ASSERT_EQ(part.redChroma[half], isInside ? whole.redChroma[half] : untouched) << x << ", " << y;
        }
    }
}

TEST(YuvConversionTest, OddRectanglesAreWidenedToEvenEdges)
{
    const PixelBuffer pixels = randomPixels(64, 48);
    expectConvertedInside(pixels, {11, 7, 21, 12}, {10, 6, 22, 14});
    expectConvertedInside(pixels, {10, 6, 22, 14}, {10, 6, 22, 14});
    expectConvertedInside(pixels, {63, 47, 1, 1}, {62, 46, 2, 2});
    expectConvertedInside(pixels, {0, 0, 1, 1}, {0, 0, 2, 2});
}

TEST(YuvConversionTest, RectanglesOfEveryWidthAreAsTheWholePictureHasThem)
{
    const PixelBuffer pixels = randomPixels(160, 4);
    for (int width = 2; width <= 140; width += 2)
        expectConvertedInside(pixels, {10, 0, width, 4}, {10, 0, width, 4});
}

TEST(YuvConversionTest, WhatLiesOutsideOfThePictureIsLeftOut)
{
    const PixelBuffer pixels = randomPixels(64, 48);
    expectConvertedInside(pixels, {-5, -5, 8, 8}, {0, 0, 4, 4});
    expectConvertedInside(pixels, {60, 40, 100, 100}, {60, 40, 4, 8});
    expectConvertedInside(pixels, {64, 48, 10, 10}, {});
    expectConvertedInside(pixels, {10, 10, 0, 5}, {});
}

} // namespace
} // namespace nimbrale::ffmpeg
