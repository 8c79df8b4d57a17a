#include "platform/x11/capture/painting_time.h"

#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;

constexpr PaintingTime::Clock::time_point start{1h};

class PaintingTimeTest : public testing::Test {
protected:
    PaintingTimeTest()
    {
        time.notePainted(start);
        (void)time.takeIdle(start);
        (void)time.takeIdle(start + PaintingTime::mostBetween);
    }

    PaintingTime time;
    static constexpr auto begin = start + PaintingTime::mostBetween;
};

TEST_F(PaintingTimeTest, whoPaintsNothingIsIdle)
{
    EXPECT_EQ(time.takeIdle(begin + 100ms), 100ms);
    EXPECT_EQ(time.takeIdle(begin + 5s), 4900ms);
}

TEST_F(PaintingTimeTest, whoPaintsOftenIsHardlyIdle)
{
    PaintingTime::Clock::duration idle{};
    for (auto passed = 10ms; passed <= 3s; passed += 10ms) {
        if (passed % 100ms == 0ms)
            time.notePainted(begin + passed);
        idle += time.takeIdle(begin + passed);
    }
    EXPECT_LE(idle, 100ms);
}

TEST_F(PaintingTimeTest, whoPaintsRarelyIsAtWorkForALittleEachTime)
{
    PaintingTime::Clock::duration idle{};
    for (auto passed = 10ms; passed <= 30s; passed += 10ms) {
        if (passed % 3s == 0s)
            time.notePainted(begin + passed);
        idle += time.takeIdle(begin + passed);
    }
    EXPECT_GE(idle, 30s - 10 * PaintingTime::mostBetween);
    EXPECT_LE(idle, 30s - 8 * PaintingTime::mostBetween);
}

TEST_F(PaintingTimeTest, whoHasPaintedNothingForLongRests)
{
    time.notePainted(begin);
    EXPECT_FALSE(time.isResting(begin + PaintingTime::longestRest));
    EXPECT_TRUE(time.isResting(begin + PaintingTime::longestRest + 1ms));
}

} // namespace
} // namespace nimbrale::x11
