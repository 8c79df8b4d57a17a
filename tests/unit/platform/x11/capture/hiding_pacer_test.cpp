#include "platform/x11/capture/hiding_pacer.h"

#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;

constexpr HidingPacer::TimePoint start{1000s};

TEST(HidingPacerTest, atFirstItIsAskedAtOnce)
{
    EXPECT_TRUE(HidingPacer().isDue(start));
}

TEST(HidingPacerTest, afterAChangeItIsAskedOftenForAWhile)
{
    HidingPacer pacer;
    pacer.noteChange(start);
    for (auto time = start; time < start + 4700ms; time += 200ms) {
        EXPECT_TRUE(pacer.isDue(time));
        pacer.noteQuestion(time);
        EXPECT_EQ(pacer.nextQuestion(), time + 200ms);
    }
}

TEST(HidingPacerTest, aPointerThatRestsIsHiddenWithinASecond)
{
    HidingPacer pacer;
    pacer.noteChange(start);
    pacer.noteQuestion(start + 4900ms);
    EXPECT_GT(pacer.nextQuestion(), start + 5100ms) << "asked seldom by now";
    EXPECT_LT(pacer.nextQuestion(), start + 5900ms);
    pacer.noteQuestion(start + 10s);
    EXPECT_FALSE(pacer.isDue(start + 10500ms));
    EXPECT_TRUE(pacer.isDue(start + 10900ms));
}

TEST(HidingPacerTest, aChangeAfterALongRestIsFollowedByAQuestionAtOnce)
{
    HidingPacer pacer;
    pacer.noteChange(start);
    pacer.noteQuestion(start + 60s);
    EXPECT_FALSE(pacer.isDue(start + 60s + 300ms));
    pacer.noteChange(start + 60s + 300ms);
    EXPECT_TRUE(pacer.isDue(start + 60s + 300ms));
}

} // namespace
} // namespace nimbrale::x11
