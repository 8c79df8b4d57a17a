#include "platform/x11/capture/frame_pacer.h"

#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;
using Time = FramePacer::Clock::time_point;

constexpr Time start{1000s};

class FramePacerTest : public testing::Test {
protected:
    FramePacerTest() { pacer.setInterval(20ms); }

    FramePacer pacer;
};

TEST_F(FramePacerTest, theFirstFrameIsDueAtOnce)
{
    EXPECT_TRUE(pacer.isTickDue(start));
}

TEST_F(FramePacerTest, aUsedTickMakesTheNextOneComeAnIntervalLater)
{
    pacer.useTick(start);
    EXPECT_FALSE(pacer.isTickDue(start));
    EXPECT_EQ(pacer.timeToTick(start + 5ms), 15ms);
    EXPECT_FALSE(pacer.isTickDue(start + 19'999'999ns));
    EXPECT_TRUE(pacer.isTickDue(start + 20ms));
}

TEST_F(FramePacerTest, aFrameThatIsALittleLateKeepsTheRhythm)
{
    pacer.useTick(start);
    pacer.useTick(start + 23ms);
    EXPECT_EQ(pacer.timeToTick(start + 23ms), 17ms);
}

TEST_F(FramePacerTest, afterIdlenessTheRhythmStartsAnew)
{
    pacer.useTick(start);
    pacer.useTick(start + 40ms);
    EXPECT_EQ(pacer.timeToTick(start + 40ms), 20ms);
}

TEST_F(FramePacerTest, lateFramesNeverComeFasterThanTheRhythmAllowsInTheLongRun)
{
    Time now = start;
    int frames = 0;
    // A thread that comes by every 7 ms and takes what is due.
    for (; now < start + 10s; now += 7ms) {
        if (!pacer.isTickDue(now))
            continue;
        pacer.useTick(now);
        ++frames;
    }
    EXPECT_EQ(frames, 500);
}

TEST_F(FramePacerTest, anotherIntervalCountsFromTheLastTick)
{
    pacer.useTick(start);
    pacer.setInterval(50ms);
    EXPECT_EQ(pacer.timeToTick(start + 20ms), 30ms);
    pacer.setInterval(10ms);
    EXPECT_TRUE(pacer.isTickDue(start + 10ms));
    EXPECT_EQ(pacer.interval(), 10ms);
}

TEST(ThreadWaitTest, withoutStreamsItLastsUntilAnEvent)
{
    EXPECT_EQ(threadWait({}, std::nullopt), (ThreadWait{std::nullopt, true}));
}

TEST(ThreadWaitTest, anIdleStreamIsWokenByTheServerOnly)
{
    EXPECT_EQ(threadWait({{-1s, StreamDemand::none}}, std::nullopt), (ThreadWait{std::nullopt, true}));
}

TEST(ThreadWaitTest, anIdleStreamWithAPointerPolls)
{
    EXPECT_EQ(threadWait({{-1s, StreamDemand::none}}, 200ms), (ThreadWait{200ms, true}));
}

TEST(ThreadWaitTest, aPollThatIsDueIsNotWaitedForAndOneThatIsFarOffHoldsUpNoFrame)
{
    EXPECT_EQ(threadWait({{-1s, StreamDemand::none}}, -3ms), (ThreadWait{0ms, true}));
    EXPECT_EQ(threadWait({{80ms, StreamDemand::frame}}, 200ms), (ThreadWait{80ms, true}));
    EXPECT_EQ(threadWait({{80ms, StreamDemand::frame}}, 60ms), (ThreadWait{60ms, true}));
    EXPECT_EQ(threadWait({{15ms, StreamDemand::none}}, 1ms), (ThreadWait{15ms, false}))
        << "what a poll finds could not be shown before the tick";
}

TEST(ThreadWaitTest, aWantedFrameWhoseTickHasComeIsNotWaitedFor)
{
    EXPECT_EQ(threadWait({{-5ms, StreamDemand::frame}}, 200ms), (ThreadWait{0ms, true}));
    EXPECT_EQ(threadWait({{0ms, StreamDemand::frame}}, 200ms), (ThreadWait{0ms, true}));
}

TEST(ThreadWaitTest, betweenTicksTheServerIsNotHeard)
{
    EXPECT_EQ(threadWait({{15ms, StreamDemand::frame}}, std::nullopt), (ThreadWait{15ms, false}));
    EXPECT_EQ(threadWait({{15ms, StreamDemand::none}}, 200ms), (ThreadWait{15ms, false}))
        << "but from the tick on it is, though nothing is wanted yet";
}

TEST(ThreadWaitTest, aLongWayToTheTickStillHearsTheServer)
{
    EXPECT_EQ(threadWait({{50ms, StreamDemand::frame}}, std::nullopt), (ThreadWait{50ms, false}));
    EXPECT_EQ(threadWait({{51ms, StreamDemand::frame}}, std::nullopt), (ThreadWait{51ms, true}));
    EXPECT_EQ(threadWait({{51ms, StreamDemand::none}}, std::nullopt), (ThreadWait{std::nullopt, true}));
}

TEST(ThreadWaitTest, aFrameThatTheConsumerHoldsUpWaitsForTheConsumer)
{
    EXPECT_EQ(threadWait({{-5ms, StreamDemand::handOver}}, std::nullopt), (ThreadWait{std::nullopt, true}));
    EXPECT_EQ(threadWait({{15ms, StreamDemand::handOver}}, std::nullopt), (ThreadWait{15ms, false}));
}

TEST(ThreadWaitTest, theStreamThatComesFirstDecides)
{
    EXPECT_EQ(threadWait({{15ms, StreamDemand::frame}, {4ms, StreamDemand::frame}}, std::nullopt),
              (ThreadWait{4ms, false}));
    EXPECT_EQ(threadWait({{4ms, StreamDemand::frame}, {15ms, StreamDemand::frame}}, std::nullopt),
              (ThreadWait{4ms, false}));
    EXPECT_EQ(threadWait({{15ms, StreamDemand::frame}, {-1ms, StreamDemand::none}}, std::nullopt),
              (ThreadWait{15ms, true}))
        << "the idle one may have a frame as soon as the server tells of a change";
    EXPECT_EQ(threadWait({{15ms, StreamDemand::frame}, {4ms, StreamDemand::none}}, std::nullopt),
              (ThreadWait{4ms, false}));
}

} // namespace
} // namespace nimbrale::x11
