#include "platform/pulseaudio/stream_times.h"

#include <gtest/gtest.h>

namespace nimbrale::pulseaudio {
namespace {

using namespace std::chrono_literals;

constexpr pa_sample_spec stereo{PA_SAMPLE_FLOAT32LE, 48'000, 2};
constexpr std::int64_t second = std::int64_t{48'000} * 2 * 4;
constexpr std::chrono::nanoseconds start = 1000s;

pa_timing_info answer(std::int64_t written, std::chrono::microseconds held = 0us, std::chrono::microseconds ahead = 0us)
{
    pa_timing_info info{};
    info.write_index = written;
    info.source_usec = static_cast<pa_usec_t>(held.count());
    info.sink_usec = static_cast<pa_usec_t>(ahead.count());
    return info;
}

class StreamTimesTest : public testing::Test {
protected:
    void note(const pa_timing_info& info, std::chrono::nanoseconds asked, std::chrono::nanoseconds took = 0ns)
    {
        times.note(info, stereo, asked, asked + took);
    }

    StreamTimes times;
};

TEST_F(StreamTimesTest, NothingIsKnownBeforeTheFirstAnswer)
{
    EXPECT_EQ(times.timeOf(0), std::nullopt);
    note(answer(0), start);
    EXPECT_EQ(times.timeOf(0), start);
    times.restart();
    EXPECT_EQ(times.timeOf(0), std::nullopt) << "another stream's answers say nothing of this one";
}

TEST_F(StreamTimesTest, SamplesAreHeardOneAfterTheOther)
{
    note(answer(second), start);
    EXPECT_EQ(times.timeOf(second), start);
    EXPECT_EQ(times.timeOf(0), start - 1s);
    EXPECT_EQ(times.timeOf(second / 2), start - 500ms);
    EXPECT_EQ(times.timeOf(2 * second), start + 1s) << "one that has not come yet";
}

TEST_F(StreamTimesTest, WhatTheDeviceHoldsWasHeardBefore)
{
    note(answer(second, 30ms), start);
    EXPECT_EQ(times.timeOf(second), start - 30ms);
}

TEST_F(StreamTimesTest, WhatALoudspeakerIsAboutToPlayIsHeardLater)
{
    note(answer(second, 0us, 40ms), start);
    EXPECT_EQ(times.timeOf(second), start + 40ms);
}

TEST_F(StreamTimesTest, TheServerAnsweredInBetween)
{
    note(answer(second), start, 10ms);
    EXPECT_EQ(times.timeOf(second), start + 5ms);
}

TEST_F(StreamTimesTest, TheNewestAnswerCounts)
{
    note(answer(second), start);
    note(answer(2 * second), start + 1s + 3ms);
    EXPECT_EQ(times.timeOf(2 * second), start + 1s + 3ms);
}

TEST_F(StreamTimesTest, AnAnswerThatTookLongIsBelievedWhereThereIsNoOther)
{
    note(answer(second), start, 2 * StreamTimes::longestAnswer);
    EXPECT_EQ(times.timeOf(second), start + StreamTimes::longestAnswer);
    note(answer(second), start, StreamTimes::longestAnswer);
    EXPECT_EQ(times.timeOf(second), start + StreamTimes::longestAnswer / 2) << "just quick enough";
    note(answer(second), start + 7s, StreamTimes::longestAnswer + 1ns);
    EXPECT_EQ(times.timeOf(second), start + StreamTimes::longestAnswer / 2) << "a moment too slow";
}

TEST_F(StreamTimesTest, AnAnswerWithoutAPlaceSaysNothing)
{
    pa_timing_info info = answer(second);
    info.write_index_corrupt = 1;
    note(info, start);
    EXPECT_EQ(times.timeOf(0), std::nullopt);
}

TEST_F(StreamTimesTest, DaysOfSoundAreExact)
{
    constexpr std::int64_t secondsOfDays = std::int64_t{100} * 86'400;
    note(answer(secondsOfDays * second), start + std::chrono::seconds{secondsOfDays});
    EXPECT_EQ(times.timeOf(0), start);
    EXPECT_EQ(times.timeOf(secondsOfDays * second + 8), start + std::chrono::seconds{secondsOfDays} + 20'833ns);
}

} // namespace
} // namespace nimbrale::pulseaudio
