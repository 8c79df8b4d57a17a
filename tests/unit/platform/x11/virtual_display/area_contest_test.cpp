#include "platform/x11/virtual_display/area_contest.h"

#include <chrono>
#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;

constexpr AreaContest::Clock::time_point start{100s};

/// Whether the last of so many raises, one every `interval`, is one too many, and none before it.
bool isLastTheFirstTooMany(std::size_t raises, AreaContest::Clock::duration interval)
{
    AreaContest contest;
    for (std::size_t raise = 1; raise < raises; ++raise) {
        if (contest.note(start + raise * interval))
            return false;
    }
    return contest.note(start + raises * interval);
}

TEST(AreaContestTest, TheTenthRaiseWithinTenSecondsMakesAContest)
{
    EXPECT_TRUE(isLastTheFirstTooMany(10, 10ms));
    EXPECT_TRUE(isLastTheFirstTooMany(10, 1s));
    EXPECT_FALSE(isLastTheFirstTooMany(9, 10ms));
}

TEST(AreaContestTest, RaisesThatAreFurtherApartMakeNone)
{
    AreaContest contest;
    for (int raise = 0; raise < 1000; ++raise)
        ASSERT_FALSE(contest.note(start + raise * 1200ms)) << raise;
}

TEST(AreaContestTest, AContestLastsWhileTheRaisesDo)
{
    AreaContest contest;
    for (int raise = 1; raise < 500; ++raise)
        ASSERT_EQ(contest.note(start + raise * 10ms), raise >= 10) << raise;
    EXPECT_FALSE(contest.note(start + 20s)) << "it was quiet meanwhile";
}

} // namespace
} // namespace nimbrale::x11
