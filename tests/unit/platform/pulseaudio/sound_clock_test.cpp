#include "platform/pulseaudio/sound_clock.h"

#include <array>
#include <gtest/gtest.h>
#include <random>

namespace nimbrale::pulseaudio {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t tenMilliseconds = 480;
constexpr std::chrono::nanoseconds start = 100s;

class SoundClockTest : public testing::Test {
protected:
    /// Places the next 10 ms, which were heard by `off` later than they should have been.
    std::optional<SoundPlace> next(std::chrono::nanoseconds off = {})
    {
        return clock.place(start + heard++ * 10ms + off, tenMilliseconds);
    }
    std::chrono::nanoseconds due() const { return start + heard * 10ms; }

    SoundClock clock;
    int heard = 0;
};

TEST_F(SoundClockTest, TimesThatWaverLeaveNoGaps)
{
    constexpr std::array<std::chrono::nanoseconds, 7> wavering{0ms, 36ms, -8ms, 8ms, -36ms, 8ms, -8ms};
    for (std::size_t index = 0; index < 1000; ++index) {
        const auto expected = due();
        const auto place = next(wavering.at(index % wavering.size()));
        ASSERT_TRUE(place);
        EXPECT_EQ(place->time, expected) << index;
        EXPECT_EQ(place->skipped, 0U);
    }
}

TEST_F(SoundClockTest, AFirstTimeThatIsWrongIsCorrectedWithinASecond)
{
    for (const auto wrong : {36ms, -36ms}) {
        clock = {};
        heard = 0;
        static_cast<void>(next(wrong));
        while (heard < 100)
            static_cast<void>(next());
        const auto expected = due();
        const auto place = next();
        ASSERT_TRUE(place);
        EXPECT_LE(std::chrono::abs(place->time - expected), 1ms) << wrong.count();
    }
}

TEST_F(SoundClockTest, ACorrectionBackwardsOverlapsNothing)
{
    static_cast<void>(next(36ms));
    std::chrono::nanoseconds end{};
    std::size_t skipped = 0;
    while (heard < 100) {
        const auto place = next();
        if (!place) {
            skipped += tenMilliseconds;
            continue;
        }
        EXPECT_GE(place->time, end);
        skipped += place->skipped;
        end = place->time + 10ms - place->skipped * 1'000'000'000ns / 48'000;
    }
    EXPECT_NEAR(static_cast<double>(skipped), 36 * 48, 2);
}

TEST_F(SoundClockTest, AClockThatDriftsIsFollowed)
{
    std::chrono::nanoseconds worst{};
    while (heard < 60'000) {
        const auto drift = heard * 1us; // A tenth of a thousandth.
        const auto expected = due() + drift;
        const auto place = next(drift);
        ASSERT_TRUE(place);
        worst = std::max(worst, std::chrono::abs(place->time - expected));
    }
    EXPECT_LT(worst, SoundClock::tolerance + 1ms);
}

TEST_F(SoundClockTest, AClockThatDriftsIsFollowedWithinEightMillisecondsThoughTimesWaver)
{
    for (const auto drift : {2us, -2us}) { // A fifth of a thousandth.
        clock = {};
        heard = 0;
        std::mt19937 random(1); // NOLINT(bugprone-random-generator-seed): a failure must come again.
        std::uniform_int_distribution<int> wavering(-20'000, 20'000);
        std::chrono::nanoseconds worst{};
        while (heard < 60'000) {
            const auto expected = due() + heard * drift;
            const auto place = next(heard * drift + std::chrono::microseconds(wavering(random)));
            if (!place || heard <= 300)
                continue;
            const std::chrono::nanoseconds skipped{place->skipped * 1'000'000 / 48};
            worst = std::max(worst, std::chrono::abs(place->time - expected - skipped));
        }
        EXPECT_LT(worst, 8ms) << drift.count();
    }
}

TEST_F(SoundClockTest, TheFirstHalfSecondTellsHowFarTheFirstTimeWasOff)
{
    // Less than what makes a difference later.
    for (const auto wrong : {8ms, -8ms}) {
        clock = {};
        heard = 0;
        static_cast<void>(next(wrong));
        while (heard < 51)
            static_cast<void>(next());
        const auto expected = due();
        const auto place = next();
        ASSERT_TRUE(place);
        EXPECT_LE(std::chrono::abs(place->time - expected), 1ms) << wrong.count();
    }
}

TEST_F(SoundClockTest, SoundThatWasLostLeavesAGap)
{
    for (const bool isTold : {true, false}) {
        while (heard % 100 != 99)
            static_cast<void>(next());
        heard += isTold ? 20 : 80;
        if (isTold)
            clock.leaveOut(20 * tenMilliseconds);
        const auto expected = due();
        const auto place = next();
        ASSERT_TRUE(place);
        EXPECT_LE(std::chrono::abs(place->time - expected), 1us) << isTold;
    }
}

TEST_F(SoundClockTest, AnotherStreamBeginsAtItsOwnTime)
{
    while (heard < 100)
        static_cast<void>(next());
    heard += 20;
    clock.restart();
    const auto expected = due();
    const auto place = next();
    ASSERT_TRUE(place);
    EXPECT_EQ(place->time, expected);
}

} // namespace
} // namespace nimbrale::pulseaudio
