#include "platform/x11/server/correction_limiter.h"

#include <chrono>
#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;

TEST(CorrectionLimiterTest, LetsThatManyThroughInASpanAndTheNextOneWaitForTheFirstToAge)
{
    CorrectionLimiter limiter(3, 1s);
    const CorrectionLimiter::Clock::time_point start{100s};
    for (const auto after : {0ms, 100ms, 200ms}) {
        EXPECT_EQ(limiter.delay(start + after), 0ms);
        limiter.note(start + after);
    }
    EXPECT_EQ(limiter.delay(start + 300ms), 700ms);
    EXPECT_EQ(limiter.delay(start + 999ms), 1ms);
    EXPECT_EQ(limiter.delay(start + 1000ms), 0ms);
    limiter.note(start + 1000ms);
    EXPECT_EQ(limiter.delay(start + 1050ms), 50ms) << "now the second one's";
    EXPECT_EQ(limiter.delay(start + 5s), 0ms);
}

TEST(CorrectionLimiterTest, OnesMadeBeforeTheirTimeAreWaitedForToo)
{
    CorrectionLimiter limiter(2, 1s);
    const CorrectionLimiter::Clock::time_point start{100s};
    for (const auto after : {0ms, 10ms, 20ms, 30ms})
        limiter.note(start + after);
    EXPECT_EQ(limiter.delay(start + 30ms), 990ms);
}

} // namespace
} // namespace nimbrale::x11
