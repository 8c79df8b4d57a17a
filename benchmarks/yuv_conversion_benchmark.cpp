// What a screen's picture of 1920 × 1080 costs on its way into a movie's colors, on one thread, and beside it the same
// written down straight from the formula, in floating point.

#include "platform/ffmpeg/yuv_conversion.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <random>
#include <vector>

namespace nimbrale::ffmpeg {
namespace {

constexpr int width = 1920;
constexpr int height = 1080;

PixelBuffer noisyPicture()
{
    PixelBuffer picture(width, height);
    std::mt19937 random(1);
    for (int y = 0; y < height; ++y)
        std::generate_n(picture.row(y), picture.stride(), [&] { return static_cast<std::byte>(random() & 0xff); });
    return picture;
}

/// The three planes of one picture.
class Yuv {
public:
    [[nodiscard]] YuvPlanes planes()
    {
        std::uint8_t* const luma = samples_.data();
        return {luma, luma + lumaSize, luma + lumaSize * 5 / 4, width, width / 2, width / 2};
    }

private:
    static constexpr std::size_t lumaSize = std::size_t{width} * height;
    std::vector<std::uint8_t> samples_ = std::vector<std::uint8_t>(lumaSize * 3 / 2);
};

void convert(benchmark::State& state, const PixelRect& rect)
{
    const PixelBuffer picture = noisyPicture();
    Yuv yuv;
    for ([[maybe_unused]] const auto step : state) {
        convertToYuv(picture, rect, yuv.planes());
        benchmark::ClobberMemory();
    }
}

struct Color {
    float red = 0;
    float green = 0;
    float blue = 0;
};

Color colorAt(const PixelBuffer& picture, int x, int y)
{
    const std::byte* const pixel = picture.row(y) + std::ptrdiff_t{x} * PixelBuffer::bytesPerPixel;
    return {static_cast<float>(pixel[2]), static_cast<float>(pixel[1]), static_cast<float>(pixel[0])};
}

float lumaOf(const Color& color)
{
    return 0.2126F * color.red + 0.7152F * color.green + 0.0722F * color.blue;
}

/// Rounded to the nearest by half a step that is in it already.
std::uint8_t sampleOf(float levelAndHalf)
{
    return static_cast<std::uint8_t>(levelAndHalf);
}

Color meanOfFour(const PixelBuffer& picture, int x, int y)
{
    Color mean;
    for (const auto& [column, row] : {std::pair{0, 0}, {1, 0}, {0, 1}, {1, 1}}) {
        const Color color = colorAt(picture, x + column, y + row);
        mean.red += color.red / 4;
        mean.green += color.green / 4;
        mean.blue += color.blue / 4;
    }
    return mean;
}

void convertByTheFormula(const PixelBuffer& picture, const YuvPlanes& planes)
{
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            planes.luma[y * planes.lumaStride + x] = sampleOf(16.5F + lumaOf(colorAt(picture, x, y)) * 219 / 255);
    }
    for (int y = 0; y < height; y += 2) {
        for (int x = 0; x < width; x += 2) {
            const Color mean = meanOfFour(picture, x, y);
            const float luma = lumaOf(mean);
            planes.blueChroma[y / 2 * planes.blueChromaStride + x / 2] =
                sampleOf(128.5F + (mean.blue - luma) / 1.8556F * 224 / 255);
            planes.redChroma[y / 2 * planes.redChromaStride + x / 2] =
                sampleOf(128.5F + (mean.red - luma) / 1.5748F * 224 / 255);
        }
    }
}

void straightforward(benchmark::State& state)
{
    const PixelBuffer picture = noisyPicture();
    Yuv yuv;
    for ([[maybe_unused]] const auto step : state) {
        convertByTheFormula(picture, yuv.planes());
        benchmark::ClobberMemory();
    }
}

BENCHMARK_CAPTURE(convert, wholePicture, PixelRect{0, 0, width, height})->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(convert, fourthOfThePicture, PixelRect{480, 270, width / 2, height / 2})
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(convert, smallChange, PixelRect{950, 530, 20, 20})->Unit(benchmark::kMicrosecond);
BENCHMARK(straightforward)->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace nimbrale::ffmpeg
