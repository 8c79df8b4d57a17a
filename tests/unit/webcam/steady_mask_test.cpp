#include "webcam/steady_mask.h"

#include <cmath>
#include <gmock/gmock.h>
#include <random>

namespace nimbrale {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::FloatNear;

class SteadyMaskTest : public testing::Test {
protected:
    /// The steadied values of the next picture's mask, one row of them.
    std::vector<float> add(std::vector<std::uint8_t> values, std::chrono::milliseconds later = interval)
    {
        time += later;
        const auto steady = mask.add({static_cast<int>(values.size()), 1, values});
        return {steady.begin(), steady.end()};
    }

    static constexpr std::chrono::milliseconds interval{33};
    SteadyMask::TimePoint time;
    SteadyMask mask{[this] { return time; }};
};

TEST_F(SteadyMaskTest, TheFirstMaskIsTakenAsItIs)
{
    EXPECT_THAT(add({0, 51, 255}), ElementsAre(0.0F, FloatNear(0.2F, 1e-6F), 1.0F));
}

TEST_F(SteadyMaskTest, AWholeChangeShowsAtOnce)
{
    EXPECT_THAT(add({0, 255}), ElementsAre(0.0F, 1.0F));
    EXPECT_THAT(add({255, 0}), ElementsAre(1.0F, 0.0F));
}

TEST_F(SteadyMaskTest, TheSmallerAChangeTheLessOfItShows)
{
    EXPECT_THAT(add({0, 0, 0}), Each(0.0F));
    const std::vector<float> after = add({26, 102, 204});
    // 0.7 · (1 - 1.25 · change) of the value before is kept.
    EXPECT_NEAR(after[0], 26 / 255.0 * (1 - 0.7 * (1 - 1.25 * 26 / 255)), 1e-5);
    EXPECT_NEAR(after[1], 0.4 * (1 - 0.7 * 0.5), 1e-5);
    EXPECT_NEAR(after[2], 0.8, 1e-5);
}

TEST_F(SteadyMaskTest, WhatStaysIsReachedSoon)
{
    static_cast<void>(add({0}));
    for (int picture = 0; picture < 15; ++picture)
        static_cast<void>(add({128}));
    EXPECT_NEAR(add({128})[0], 128 / 255.0, 0.01);
}

TEST_F(SteadyMaskTest, FlickerFallsByMoreThanHalf)
{
    std::mt19937 random(1);
    std::normal_distribution<double> noise(128, 15);
    double before = 0;
    double after = 0;
    std::vector<std::uint8_t> last;
    std::vector<float> lastSteady;
    for (int picture = 0; picture < 100; ++picture) {
        std::vector<std::uint8_t> values(500);
        for (std::uint8_t& value : values)
            value = static_cast<std::uint8_t>(std::clamp(noise(random), 0.0, 255.0));
        const std::vector<float> steady = add(values);
        if (picture >= 10) {
            for (std::size_t i = 0; i < values.size(); ++i) {
                before += std::abs(values[i] - last[i]) / 255.0;
                after += std::fabs(steady[i] - lastSteady[i]);
            }
        }
        last = values;
        lastSteady = steady;
    }
    ASSERT_GT(before, 1000) << "the masks themselves flicker";
    EXPECT_LT(after, 0.45 * before);
}

TEST_F(SteadyMaskTest, AnotherSizeBeginsAnew)
{
    static_cast<void>(add({0, 0}));
    EXPECT_THAT(add({51, 51, 51}), Each(FloatNear(0.2F, 1e-6F)));
}

TEST_F(SteadyMaskTest, APauseBeginsAnewAndAShorterOneDoesNot)
{
    static_cast<void>(add({0}));
    EXPECT_NEAR(add({51}, SteadyMask::longestPause)[0], 0.2, 1e-6);
    EXPECT_LT(add({102}, SteadyMask::longestPause - std::chrono::milliseconds{1})[0], 0.35);
}

} // namespace
} // namespace nimbrale
