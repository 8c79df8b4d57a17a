#include "platform/pipewire/sound_timeline.h"

#include <gtest/gtest.h>

namespace nimbrale::pipewire {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

constexpr nanoseconds start = 100s;

TEST(SoundTimelineTest, AMeasuredTimeThatWaversIsCounted)
{
    SoundTimeline timeline;
    ASSERT_EQ(timeline.place(start, 480)->time, start);
    EXPECT_EQ(timeline.place(start + 10ms + 1900us, 480)->time, start + 10ms);
    EXPECT_EQ(timeline.place(start + 20ms - 1900us, 480)->time, start + 20ms);
    EXPECT_EQ(timeline.place(start + 30ms, 480)->skipped, 0U);
}

TEST(SoundTimelineTest, CountedTimesAreRoundedUpToTheNanosecond)
{
    SoundTimeline timeline;
    ASSERT_EQ(timeline.place(start, 1024)->time, start);
    EXPECT_EQ(timeline.place(start + 21333us, 1024)->time, start + 21'333'334ns);
    EXPECT_EQ(timeline.place(start + 42666us, 1024)->time, start + 42'666'667ns);
    EXPECT_EQ(timeline.place(start + 64000us, 1024)->time, start + 64ms);
}

TEST(SoundTimelineTest, WhatIsMissingLeavesAGap)
{
    SoundTimeline timeline;
    ASSERT_TRUE(timeline.place(start, 480));
    const auto later = timeline.place(start + 10ms + 2001us, 480);
    ASSERT_TRUE(later);
    EXPECT_EQ(later->time, start + 12001us);
    EXPECT_EQ(later->skipped, 0U);
    EXPECT_EQ(timeline.place(start + 22ms, 480)->time, start + 22001us) << "counted on from there";
}

TEST(SoundTimelineTest, WhatOverlapsIsLeftOut)
{
    SoundTimeline timeline;
    ASSERT_TRUE(timeline.place(start, 480));
    const auto early = timeline.place(start + 5ms, 480);
    ASSERT_TRUE(early);
    EXPECT_EQ(early->time, start + 10ms);
    EXPECT_EQ(early->skipped, 240U);
    EXPECT_EQ(timeline.place(start + 15ms, 480)->time, start + 15ms);
    EXPECT_FALSE(timeline.place(start + 5ms, 480)) << "all of it was there already";
    EXPECT_EQ(timeline.place(start + 25ms, 480)->time, start + 25ms);
}

TEST(SoundTimelineTest, AClockThatDriftsIsFollowedWithinTheTolerance)
{
    for (const int partsPerMillion : {-200, 200}) {
        SoundTimeline timeline;
        nanoseconds end{};
        for (int piece = 0; piece < 100 * 60; ++piece) {
            const nanoseconds measured = start + piece * (10ms + nanoseconds{10 * partsPerMillion});
            const auto place = timeline.place(measured, 480);
            ASSERT_TRUE(place);
            EXPECT_LE(std::chrono::abs(place->time - measured - nanoseconds{place->skipped * 1'000'000 / 48}), 2100us);
            EXPECT_GE(place->time, end);
            end = place->time + nanoseconds{(480 - place->skipped) * 1'000'000 / 48};
        }
    }
}

TEST(SoundTimelineTest, ATimeThatCannotBeIsReplaced)
{
    const nanoseconds now = start;
    EXPECT_EQ(plausibleTime(now - 30ms, now, 480), now - 30ms);
    EXPECT_EQ(plausibleTime(now, now, 480), now);
    EXPECT_EQ(plausibleTime(now - longestSoundDelay, now, 480), now - longestSoundDelay);
    EXPECT_EQ(plausibleTime(now + 1ns, now, 480), now - 10ms);
    EXPECT_EQ(plausibleTime(now - longestSoundDelay - 1ns, now, 480), now - 10ms);
    EXPECT_EQ(plausibleTime(nanoseconds::min(), now, 480), now - 10ms);
    EXPECT_EQ(plausibleTime(nanoseconds::max(), now, 480), now - 10ms);
}

} // namespace
} // namespace nimbrale::pipewire
