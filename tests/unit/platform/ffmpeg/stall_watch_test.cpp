#include "platform/ffmpeg/stall_watch.h"

#include <gtest/gtest.h>

namespace nimbrale::ffmpeg {
namespace {

using namespace std::chrono_literals;

class StallWatchTest : public testing::Test {
protected:
    /// Looks so often, half a second apart; whether the last look found a stall.
    bool looks(int count)
    {
        bool isStalled = false;
        for (int look = 0; look < count; ++look) {
            now_ += 500ms;
            isStalled = watch_.isStalled(now_);
        }
        return isStalled;
    }

    StallWatch watch_{10s};
    StallWatch::TimePoint now_;
};

TEST_F(StallWatchTest, WorkThatTakesTooLongIsAStall)
{
    const StallWatch::Work work(watch_);
    EXPECT_FALSE(looks(21));
    EXPECT_TRUE(looks(1));
}

TEST_F(StallWatchTest, NoWorkIsNoStall)
{
    {
        const StallWatch::Work work(watch_);
        EXPECT_FALSE(looks(15));
    }
    EXPECT_FALSE(looks(100));
}

TEST_F(StallWatchTest, OnePieceOfWorkAfterAnotherIsNoStall)
{
    for (int piece = 0; piece < 10; ++piece) {
        const StallWatch::Work work(watch_);
        EXPECT_FALSE(looks(15));
    }
}

TEST_F(StallWatchTest, TimeInWhichNobodyLookedHardlyCounts)
{
    const StallWatch::Work work(watch_);
    EXPECT_FALSE(looks(2));
    now_ += 1h;
    EXPECT_FALSE(looks(1));
}

} // namespace
} // namespace nimbrale::ffmpeg
