// What one camera picture of 1280 × 720 costs on one thread: finding the person, the effects, and beside them the same
// effects done the straightforward way, in full size and in floating point.

#include "platform/opencv/model_file.h"
#include "platform/opencv/opencv_person_segmentation.h"
#include "platform/picture_halving.h"
#include "webcam/webcam_effects.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <opencv2/imgproc.hpp>
#include <random>
#include <vector>

namespace nimbrale {
namespace {

using Background = WebcamEffects::Background;

constexpr int width = 1280;
constexpr int height = 720;
constexpr int maskWidth = 256;
constexpr int maskHeight = 144;

PixelBuffer noisyPicture()
{
    PixelBuffer picture(width, height);
    std::mt19937 random(1);
    for (int y = 0; y < height; ++y) {
        for (std::size_t i = 0; i < picture.stride(); ++i)
            picture.row(y)[i] = static_cast<std::byte>((static_cast<int>(i) / 16 + y / 3 + random() % 32) & 0xff);
    }
    return picture;
}

std::vector<std::uint8_t> ellipse()
{
    std::vector<std::uint8_t> values;
    for (int y = 0; y < maskHeight; ++y) {
        for (int x = 0; x < maskWidth; ++x)
            values.push_back((x - 128) * (x - 128) + (y - 100) * (y - 100) < 4900 ? 255 : 0);
    }
    return values;
}

/// A person found at no cost, so that what is measured is the effect.
class KnownPerson final : public PersonSegmentation {
public:
    Result<PersonMask> findPerson(const PixelBuffer& /*picture*/) override
    {
        return PersonMask{maskWidth, maskHeight, values_};
    }

private:
    std::vector<std::uint8_t> values_ = ellipse();
};

std::unique_ptr<PersonSegmentation> realSegmentation(const std::filesystem::path& programFolder)
{
    auto segmentation = opencv::createPersonSegmentation(opencv::modelFile(programFolder));
    if (!segmentation) {
        std::fprintf(stderr, "%s\n", segmentation.error().message.c_str());
        std::exit(1);
    }
    return std::move(*segmentation);
}

void process(benchmark::State& state, std::unique_ptr<PersonSegmentation> segmentation, Background background)
{
    WebcamEffects effects(std::move(segmentation));
    const PixelBuffer picture = noisyPicture();
    while (state.KeepRunning())
        benchmark::DoNotOptimize(effects.process(picture, background));
}

void findPerson(benchmark::State& state, std::unique_ptr<PersonSegmentation> segmentation)
{
    const PixelBuffer picture = noisyPicture();
    while (state.KeepRunning())
        benchmark::DoNotOptimize(segmentation->findPerson(picture));
}

// The stages of an effect, one by one.

void softenMask(benchmark::State& state)
{
    MaskFilter filter;
    filter.setSizes(maskWidth, maskHeight, width, height);
    SteadyMask steady(std::chrono::steady_clock::now);
    const PersonMask mask{maskWidth, maskHeight, ellipse()};
    while (state.KeepRunning()) {
        filter.setMask(steady.add(mask));
        for (int y = 0; y < height; ++y)
            benchmark::DoNotOptimize(filter.row(y).data());
    }
}

void blurBackground(benchmark::State& state)
{
    BackgroundBlur blur;
    const PixelBuffer picture = noisyPicture();
    while (state.KeepRunning()) {
        blur.setPicture(picture);
        for (int y = 0; y < height; ++y)
            benchmark::DoNotOptimize(blur.row(y).data());
    }
}

void blend(benchmark::State& state, Background background)
{
    const PixelBuffer picture = noisyPicture();
    PixelBuffer result(width, height);
    const std::vector<std::int16_t> mask(width, 9000);
    const std::vector<std::int16_t> behind(picture.stride(), 4000);
    MaskBlend blend;
    while (state.KeepRunning()) {
        for (int y = 0; y < height; ++y) {
            if (background == Background::blurred)
                blend.overBackground({picture.row(y), picture.stride()}, mask, behind,
                                     {result.row(y), result.stride()});
            else
                blend.overNothing({picture.row(y), picture.stride()}, mask, {result.row(y), result.stride()});
        }
        benchmark::DoNotOptimize(result.row(0));
    }
}

/// With a copy of each row, which stands for whatever makes it.
void reduce(benchmark::State& state)
{
    PictureHalving halving;
    const PixelBuffer picture = noisyPicture();
    const auto rowsOf = [&](int first, int count, std::byte* rows, std::size_t stride) {
        for (int y = first; y < first + count; ++y, rows += stride)
            std::copy_n(picture.row(y), picture.stride(), rows);
        return true;
    };
    PixelBuffer result(halvedLength(width, 2), halvedLength(height, 2));
    while (state.KeepRunning())
        benchmark::DoNotOptimize(halving.make(width, height, 2, rowsOf, result));
}

/// A Gaussian in full size, and each pixel blended in floating point.
void straightforward(benchmark::State& state, Background background)
{
    PixelBuffer pixels = noisyPicture();
    const cv::Mat picture(height, width, CV_8UC4, pixels.row(0));
    std::vector<std::uint8_t> values = ellipse();
    const cv::Mat mask(maskHeight, maskWidth, CV_8U, values.data());
    cv::Mat wide;
    cv::Mat soft;
    cv::Mat behind = cv::Mat::zeros(height, width, CV_8UC4);
    cv::Mat result(height, width, CV_8UC4);
    while (state.KeepRunning()) {
        cv::resize(mask, wide, picture.size(), 0, 0, cv::INTER_LINEAR);
        cv::GaussianBlur(wide, soft, {}, 1.5, 1.5, cv::BORDER_REPLICATE);
        if (background == Background::blurred)
            cv::GaussianBlur(picture, behind, {}, width * BackgroundBlur::sigmaPerWidth, 0, cv::BORDER_REPLICATE);
        for (int y = 0; y < height; ++y) {
            const auto* const front = picture.ptr<cv::Vec4b>(y);
            const auto* const back = behind.ptr<cv::Vec4b>(y);
            const auto* const weights = soft.ptr<std::uint8_t>(y);
            auto* const blended = result.ptr<cv::Vec4b>(y);
            for (int x = 0; x < width; ++x) {
                const float weight = static_cast<float>(weights[x]) / 255.0F;
                for (int channel = 0; channel < 4; ++channel)
                    blended[x][channel] =
                        cv::saturate_cast<std::uint8_t>(static_cast<float>(front[x][channel]) * weight +
                                                        static_cast<float>(back[x][channel]) * (1 - weight));
            }
        }
        benchmark::DoNotOptimize(result.data);
    }
}

} // namespace
} // namespace nimbrale

int main(int argc, char** argv)
{
    using namespace nimbrale;
    const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    cv::setNumThreads(1);
    const auto add = [](const char* name, auto run) {
        benchmark::RegisterBenchmark(name, run)->Unit(benchmark::kMillisecond);
    };
    add("finding the person", [&](benchmark::State& state) { findPerson(state, realSegmentation(folder)); });
    for (const auto& [name, background] :
         {std::pair{"blurred", Background::blurred}, std::pair{"transparent", Background::transparent}}) {
        const std::string effect = name;
        add((effect + ", with finding the person").c_str(),
            [&folder, background = background](benchmark::State& state) {
                process(state, realSegmentation(folder), background);
            });
        add((effect + ", person known").c_str(), [background = background](benchmark::State& state) {
            process(state, std::make_unique<KnownPerson>(), background);
        });
        add((effect + ", person known, the straightforward way").c_str(),
            [background = background](benchmark::State& state) { straightforward(state, background); });
    }
    add("stage: the mask steadied and its outline", [](benchmark::State& state) { softenMask(state); });
    add("stage: the background blurred", [](benchmark::State& state) { blurBackground(state); });
    add("stage: blended over the background", [](benchmark::State& state) { blend(state, Background::blurred); });
    add("stage: blended over nothing", [](benchmark::State& state) { blend(state, Background::transparent); });
    add("made smaller, to 320 × 180", [](benchmark::State& state) { reduce(state); });
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
