// nimbrale_picture_loops WIDTH HEIGHT FILE
// What the loops over pixels make of a photograph, whose pixels the file has, and of noise in many sizes: prints
// whether this processor counts as one with AVX2, and then a line for each result, its name and a digest of all its
// bits. Built twice, the second time so that no processor has AVX2.

#include "platform/opencv/depthwise_convolution.h"
#include "platform/opencv/picture_averages.h"
#include "platform/picture_halving.h"
#include "webcam/background_blur.h"
#include "webcam/mask_blend.h"
#include "webcam/mask_filter.h"
#include "webcam/steady_mask.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <opencv2/dnn.hpp>
#include <opencv2/dnn/all_layers.hpp>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale::test {
namespace {

struct Size {
    int width;
    int height;
};

std::string textOf(Size size)
{
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

/// FNV-1a.
class Digest {
public:
    template <typename Value>
    void add(std::span<const Value> values)
    {
        for (const std::byte byte : std::as_bytes(values))
            value_ = (value_ ^ std::to_integer<std::uint64_t>(byte)) * 0x100000001b3ULL;
    }
    void print(const std::string& name) const
    {
        std::printf("%s %016llx\n", name.c_str(), static_cast<unsigned long long>(value_));
    }

private:
    std::uint64_t value_ = 0xcbf29ce484222325ULL;
};

template <typename Value>
std::vector<Value> noise(std::size_t count, std::uint32_t seed)
{
    std::mt19937 random(seed);
    std::vector<Value> values(count);
    for (Value& value : values)
        value = static_cast<Value>(random() >> 24);
    return values;
}

PixelBuffer noisePicture(Size size)
{
    PixelBuffer picture(size.width, size.height);
    const auto bytes = noise<std::uint8_t>(picture.stride() * static_cast<std::size_t>(size.height),
                                           static_cast<std::uint32_t>(size.width));
    std::memcpy(picture.row(0), bytes.data(), bytes.size());
    return picture;
}

/// Each of the picture's rows blended with each background, by a mask that has all values, and what they are made of.
void printEffects(const std::string& name, const PixelBuffer& picture, Size maskSize)
{
    const auto maskLength = static_cast<std::size_t>(maskSize.width) * static_cast<std::size_t>(maskSize.height);
    SteadyMask steadyMask([] { return SteadyMask::TimePoint(); });
    Digest steady;
    std::span<const float> mask;
    for (const std::uint32_t seed : {1U, 2U, 3U}) {
        mask = steadyMask.add({maskSize.width, maskSize.height, noise<std::uint8_t>(maskLength, seed)});
        steady.add(mask);
    }
    steady.print(name + " steady-mask");

    MaskFilter filter;
    filter.setSizes(maskSize.width, maskSize.height, picture.width(), picture.height());
    filter.setMask(mask);
    BackgroundBlur blur;
    blur.setPicture(picture);
    MaskBlend blend;
    std::vector<std::byte> blended(picture.stride());
    Digest masks;
    Digest backgrounds;
    Digest blurred;
    Digest removed;
    for (int y = 0; y < picture.height(); ++y) {
        const std::span<const std::byte> front(picture.row(y), picture.stride());
        const std::span<const std::int16_t> maskRow = filter.row(y);
        const std::span<const std::int16_t> behind = blur.row(y);
        masks.add(maskRow);
        backgrounds.add(behind);
        blend.overBackground(front, maskRow, behind, blended);
        blurred.add(std::span<const std::byte>(blended));
        blend.overNothing(front, maskRow, blended);
        removed.add(std::span<const std::byte>(blended));
    }
    masks.print(name + " mask");
    backgrounds.print(name + " blur");
    blurred.print(name + " blend-with-blur");
    removed.print(name + " blend-with-nothing");
}

void printHalvings(const std::string& name, const PixelBuffer& picture)
{
    PictureHalving halving;
    Digest halved;
    for (const int halvings : {1, 2, 3}) {
        PixelBuffer to(halvedLength(picture.width(), halvings), halvedLength(picture.height(), halvings));
        const auto rows = [&](int first, int count, std::byte* bytes, std::size_t stride) {
            std::memcpy(bytes, picture.row(first), static_cast<std::size_t>(count) * stride);
            return true;
        };
        if (!halving.make(picture.width(), picture.height(), halvings, rows, to))
            std::abort();
        halved.add(std::span<const std::byte>(to.row(0), to.stride() * static_cast<std::size_t>(to.height())));
    }
    halved.print(name + " halving");
}

/// As small as the model has it, and smaller by whole numbers.
void printAverages(const std::string& name, const PixelBuffer& picture)
{
    opencv::PictureAverages averages;
    const cv::Mat from(picture.height(), picture.width(), CV_8UC4, const_cast<std::byte*>(picture.row(0)));
    for (const int parts : {1, 2, 3, 5}) {
        const cv::Size size(picture.width() / parts, picture.height() / parts);
        if (size.width * parts != picture.width() || size.height * parts != picture.height())
            continue;
        cv::Mat to;
        averages.reduce(from, to, size);
        Digest reduced;
        reduced.add(std::span<const std::uint8_t>(to.ptr(), to.total() * to.elemSize()));
        reduced.print(name + " averages/" + std::to_string(parts));
    }
}

cv::Mat noiseOfNumbers(const std::vector<int>& shape, std::uint64_t seed)
{
    cv::Mat values(shape, CV_32F);
    cv::RNG(seed).fill(values, cv::RNG::UNIFORM, -1.0, 1.0);
    return values;
}

void printConvolutions(int stride)
{
    constexpr int channels = 3;
    constexpr int side = 5;
    cv::dnn::LayerParams params;
    params.name = "convolution";
    params.type = "Convolution";
    params.set("kernel_size", side);
    params.set("stride", stride);
    params.set("pad", 2);
    params.set("group", channels);
    params.set("num_output", channels);
    params.blobs = {noiseOfNumbers({channels, 1, side, side}, 1), noiseOfNumbers({channels}, 2)};
    std::optional<opencv::OwnDepthwiseConvolutions> own(std::in_place);
    cv::dnn::Net network;
    const int layer = network.addLayer(params.name, params.type, params);
    network.connect(0, 0, layer, 0);
    static_cast<void>(network.getLayer(layer));
    own.reset();
    for (int width = side; width < 80; ++width) {
        network.setInput(noiseOfNumbers({1, channels, side + width % 4, width}, static_cast<std::uint64_t>(width)));
        const cv::Mat result = network.forward();
        Digest convolved;
        convolved.add(std::span<const float>(result.ptr<float>(), result.total()));
        convolved.print("convolution stride " + std::to_string(stride) + " width " + std::to_string(width));
    }
}

void printPicture(const std::string& name, const PixelBuffer& picture, Size mask)
{
    printEffects(name, picture, mask);
    printHalvings(name, picture);
    printAverages(name, picture);
}

/// Every width up to several of the longest vectors, and around the sizes of cameras.
void printNoise()
{
    std::vector<Size> sizes;
    for (int width = 1; width <= 72; ++width) {
        for (const int height : {1, 2, 5})
            sizes.push_back({width, height});
    }
    for (int height = 3; height <= 40; ++height)
        sizes.push_back({1 + height % 7, height});
    for (const int width : {127, 128, 129, 255, 256, 257, 319, 320, 321, 639, 641, 1279, 1280, 1281, 1917}) {
        for (const int height : {3, 41})
            sizes.push_back({width, height});
    }
    for (const Size size : sizes) {
        const PixelBuffer picture = noisePicture(size);
        for (const Size mask : {Size{256, 144}, Size{7, 3}, Size{1, 1}})
            printEffects("noise " + textOf(size) + " mask " + textOf(mask), picture, mask);
        printHalvings("noise " + textOf(size), picture);
        printAverages("noise " + textOf(size), picture);
    }
}

std::optional<PixelBuffer> pictureFrom(const char* file, Size size)
{
    PixelBuffer picture(size.width, size.height);
    std::ifstream stream(file, std::ios::binary);
    const auto length = static_cast<std::streamsize>(picture.stride()) * size.height;
    stream.read(reinterpret_cast<char*>(picture.row(0)), length);
    if (stream.gcount() != length)
        return {};
    return picture;
}

bool hasAvx2()
{
#ifdef __x86_64__
    return __builtin_cpu_supports("avx2");
#else
    return false;
#endif
}

int run(const char* file, Size size)
{
    const std::optional<PixelBuffer> photograph = pictureFrom(file, size);
    if (!photograph)
        return 1;
    std::printf("avx2 %s\n", hasAvx2() ? "yes" : "no");
    printPicture("photograph " + textOf(size), *photograph, {256, 144});
    printNoise();
    for (const int stride : {1, 2, 3})
        printConvolutions(stride);
    return 0;
}

} // namespace
} // namespace nimbrale::test

int main(int count, char** values)
{
    if (count != 4) {
        std::fprintf(stderr, "nimbrale_picture_loops: see its source for the arguments\n");
        return 2;
    }
    return nimbrale::test::run(values[3], {std::atoi(values[1]), std::atoi(values[2])});
}
