#include "platform/x11/capture/frame_pacer.h"

#include <gtest/gtest.h>
#include <limits>

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;
using Duration = FramePacer::Duration;
using Time = FramePacer::Clock::time_point;

constexpr Time start{1000s};
constexpr auto none = ChangeExpectation::none;
constexpr auto possible = ChangeExpectation::possible;
constexpr auto certain = ChangeExpectation::certain;

class FramePacerTest : public testing::Test {
protected:
    FramePacerTest() { pacer.setInterval(20ms); }

    [[nodiscard]] bool isDue(Time now, ChangeExpectation expectation) const
    {
        return pacer.timing(now, expectation).isDue();
    }
    [[nodiscard]] Duration timeToTurn(Time now, ChangeExpectation expectation) const
    {
        return pacer.timing(now, expectation).timeToTurn.value();
    }

    FramePacer pacer;
};

TEST_F(FramePacerTest, theFirstFrameIsDueAtOnce)
{
    EXPECT_TRUE(isDue(start, certain));
    EXPECT_TRUE(isDue(start, possible));
}

TEST_F(FramePacerTest, nothingIsDueWhereNothingChanged)
{
    EXPECT_FALSE(isDue(start, none));
    EXPECT_EQ(pacer.timing(start, none).timeToTurn, std::nullopt);
}

TEST_F(FramePacerTest, aUsedTickMakesTheNextOneComeAnIntervalLater)
{
    pacer.useTick(start);
    for (const ChangeExpectation expectation : {possible, certain}) {
        EXPECT_FALSE(isDue(start, expectation));
        EXPECT_EQ(timeToTurn(start + 5ms, expectation), 15ms);
        EXPECT_FALSE(isDue(start + 19'999'999ns, expectation));
        EXPECT_TRUE(isDue(start + 20ms, expectation));
        EXPECT_EQ(pacer.timing(start + 5ms, expectation).timeToTick, 15ms);
    }
    EXPECT_EQ(pacer.timing(start + 5ms, none).timeToTick, 15ms);
}

TEST_F(FramePacerTest, aFrameThatIsALittleLateKeepsTheRhythm)
{
    pacer.useTick(start);
    pacer.useTick(start + 23ms);
    EXPECT_EQ(timeToTurn(start + 23ms, certain), 17ms);
    EXPECT_EQ(timeToTurn(start + 23ms, possible), 17ms);
}

TEST_F(FramePacerTest, afterIdlenessTheRhythmStartsAnew)
{
    pacer.useTick(start);
    pacer.useTick(start + 39'999'999ns);
    EXPECT_EQ(timeToTurn(start + 40ms, certain), 0ms);
    pacer.useTick(start + 60ms);
    EXPECT_EQ(timeToTurn(start + 60ms, certain), 20ms);
}

TEST_F(FramePacerTest, lateFramesNeverComeFasterThanTheRhythmAllowsInTheLongRun)
{
    int frames = 0;
    // A thread that comes by every 7 ms and takes what is due.
    for (Time now = start; now < start + 10s; now += 7ms) {
        if (!isDue(now, certain))
            continue;
        pacer.useTick(now);
        ++frames;
    }
    EXPECT_EQ(frames, 500);
}

TEST_F(FramePacerTest, aPossibilityThatCameToNothingIsLookedIntoAgainAtTheNextTick)
{
    pacer.dismissPossibility(start);
    EXPECT_FALSE(isDue(start + 19ms, possible));
    EXPECT_EQ(timeToTurn(start + 5ms, possible), 15ms);
    EXPECT_TRUE(isDue(start + 20ms, possible));
}

TEST_F(FramePacerTest, aPossibilityThatComesSeldomIsNotLookedIntoTwiceWithinAnInterval)
{
    pacer.dismissPossibility(start);
    pacer.dismissPossibility(start + 30ms);
    EXPECT_EQ(timeToTurn(start + 30ms, possible), 20ms);
}

TEST_F(FramePacerTest, aPossibilityThatCameToNothingHoldsUpNoCertainChange)
{
    pacer.dismissPossibility(start);
    EXPECT_TRUE(isDue(start, certain));
    EXPECT_LE(pacer.timing(start, possible).timeToTick, 0ms);
    pacer.useTick(start + 1ms);
    EXPECT_EQ(timeToTurn(start + 1ms, certain), 20ms);
    EXPECT_EQ(timeToTurn(start + 1ms, possible), 20ms);
}

TEST_F(FramePacerTest, aTickThatIsUsedBeforeThePossibilitysTurnStartsARhythmForBoth)
{
    pacer.useTick(start);
    pacer.dismissPossibility(start + 30ms);
    // A certain change may come as early as this, within the possibility's interval.
    pacer.useTick(start + 35ms);
    EXPECT_EQ(timeToTurn(start + 40ms, certain), 0ms) << "the tick was due at 20 ms, so the next one is at 40 ms";
    EXPECT_EQ(timeToTurn(start + 40ms, possible), 0ms);
}

TEST_F(FramePacerTest, aDismissalBeforeItsTickStartsTheRhythmAnew)
{
    pacer.dismissPossibility(start);
    pacer.dismissPossibility(start + 5ms);
    EXPECT_EQ(timeToTurn(start + 5ms, possible), 20ms);
}

TEST_F(FramePacerTest, anotherIntervalCountsFromTheLastTick)
{
    pacer.useTick(start);
    pacer.setInterval(50ms);
    EXPECT_EQ(timeToTurn(start + 20ms, certain), 30ms);
    pacer.setInterval(10ms);
    EXPECT_TRUE(isDue(start + 10ms, certain));
}

TEST(FrameIntervalTest, isWhatTheStreamAsksFor)
{
    EXPECT_EQ(boundedInterval({1, 30}), 33'333'333ns);
    EXPECT_EQ(boundedInterval({1, 1000}), 1ms);
    EXPECT_EQ(boundedInterval({5, 2}), 2500ms);
}

TEST(FrameIntervalTest, aRateThatNoClockCanKeepLeavesTheThreadItsRest)
{
    EXPECT_EQ(boundedInterval({1, 1001}), 1ms);
    EXPECT_EQ(boundedInterval({1, std::numeric_limits<std::int32_t>::max()}), 1ms);
    EXPECT_EQ(boundedInterval({0, 30}), 1ms);
}

TEST(FrameIntervalTest, anIntervalBeyondAllTimeIsAnHour)
{
    EXPECT_EQ(boundedInterval({std::numeric_limits<std::int64_t>::max(), 1}), 1h);
    EXPECT_EQ(boundedInterval({std::numeric_limits<std::int64_t>::max() / 1'000'000'000 + 1, 30}), 1h);
}

TEST(FrameIntervalTest, anIntervalWithoutAMeaningIsASecond)
{
    EXPECT_EQ(boundedInterval({1, 0}), 1s);
    EXPECT_EQ(boundedInterval({1, -30}), 1s);
    EXPECT_EQ(boundedInterval({-1, 30}), 1s);
}

StreamTiming idle(Duration timeToTick)
{
    return {timeToTick, std::nullopt};
}

StreamTiming wanted(Duration timeToTick)
{
    return {timeToTick, timeToTick};
}

TEST(ThreadWaitTest, withoutStreamsItLastsUntilAnEvent)
{
    EXPECT_EQ(threadWait({}, std::nullopt), (ThreadWait{std::nullopt, true}));
}

TEST(ThreadWaitTest, anIdleStreamIsWokenByTheServerOnly)
{
    EXPECT_EQ(threadWait({idle(-1s)}, std::nullopt), (ThreadWait{std::nullopt, true}));
    EXPECT_EQ(threadWait({idle(0s)}, std::nullopt), (ThreadWait{std::nullopt, true}));
}

TEST(ThreadWaitTest, aPollIsWaitedForAtTheMost)
{
    EXPECT_EQ(threadWait({idle(-1s)}, 200ms), (ThreadWait{200ms, true}));
    EXPECT_EQ(threadWait({}, 200ms), (ThreadWait{200ms, true}));
    EXPECT_EQ(threadWait({idle(-1s)}, -3ms), (ThreadWait{0ms, true}));
    EXPECT_EQ(threadWait({wanted(80ms)}, 200ms), (ThreadWait{80ms, true}));
    EXPECT_EQ(threadWait({wanted(80ms)}, 60ms), (ThreadWait{60ms, true}));
    EXPECT_EQ(threadWait({idle(15ms)}, 1ms), (ThreadWait{15ms, false}))
        << "what a poll finds could not be shown before the tick";
}

TEST(ThreadWaitTest, aTurnThatIsDueIsNotWaitedFor)
{
    EXPECT_EQ(threadWait({wanted(-5ms)}, 200ms), (ThreadWait{0ms, true}));
    EXPECT_EQ(threadWait({wanted(0ms)}, 200ms), (ThreadWait{0ms, true}));
}

TEST(ThreadWaitTest, betweenTicksTheServerIsNotHeard)
{
    EXPECT_EQ(threadWait({wanted(15ms)}, std::nullopt), (ThreadWait{15ms, false}));
    EXPECT_EQ(threadWait({idle(15ms)}, 200ms), (ThreadWait{15ms, false}))
        << "but from the tick on it is, though nothing is wanted yet";
}

TEST(ThreadWaitTest, aLongWayToTheTickStillHearsTheServer)
{
    EXPECT_EQ(threadWait({wanted(50ms)}, std::nullopt), (ThreadWait{50ms, false}));
    EXPECT_EQ(threadWait({wanted(51ms)}, std::nullopt), (ThreadWait{51ms, true}));
    EXPECT_EQ(threadWait({idle(51ms)}, std::nullopt), (ThreadWait{std::nullopt, true}));
}

TEST(ThreadWaitTest, aPossibilitysTurnIsWaitedForWhileCertainChangesAreHeard)
{
    EXPECT_EQ(threadWait({{-5ms, 12ms}}, std::nullopt), (ThreadWait{12ms, true}));
    EXPECT_EQ(threadWait({{5ms, 12ms}}, std::nullopt), (ThreadWait{5ms, false}));
}

TEST(ThreadWaitTest, theStreamThatComesFirstDecides)
{
    EXPECT_EQ(threadWait({wanted(15ms), wanted(4ms)}, std::nullopt), (ThreadWait{4ms, false}));
    EXPECT_EQ(threadWait({wanted(4ms), wanted(15ms)}, std::nullopt), (ThreadWait{4ms, false}));
    EXPECT_EQ(threadWait({wanted(15ms), idle(-1ms)}, std::nullopt), (ThreadWait{15ms, true}))
        << "the idle one may have a frame as soon as the server tells of a change";
    EXPECT_EQ(threadWait({wanted(15ms), idle(4ms)}, std::nullopt), (ThreadWait{4ms, false}));
    EXPECT_EQ(threadWait({idle(4ms), idle(51ms)}, std::nullopt), (ThreadWait{4ms, false}));
}

} // namespace
} // namespace nimbrale::x11
