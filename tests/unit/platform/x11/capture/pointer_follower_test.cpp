#include "platform/x11/capture/pointer_follower.h"

#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;
using Answer = PointerFollower::Answer;

constexpr PointerFollower::TimePoint start{1000s};

TEST(PointerFollowerTest, atFirstThePositionIsAskedForAtOnce)
{
    const PointerFollower follower;
    EXPECT_LE(follower.timeToAsk(start), 0ms);
    EXPECT_TRUE(follower.isHearing());
    EXPECT_FALSE(follower.isMoving());
}

TEST(PointerFollowerTest, whileItRestsItIsAskedForNowAndThen)
{
    PointerFollower follower;
    follower.gotAnswer(start, Answer::samePosition);
    EXPECT_EQ(follower.timeToAsk(start + 20ms), 180ms);
    EXPECT_TRUE(follower.isHearing());
    follower.gotAnswer(start + 200ms, Answer::otherPosition);
    EXPECT_EQ(follower.timeToAsk(start + 200ms), 200ms) << "a program set it, which says nothing of further moves";
    EXPECT_TRUE(follower.isHearing());
}

TEST(PointerFollowerTest, afterAMoveItIsAskedForInsteadOfHeard)
{
    PointerFollower follower;
    follower.gotAnswer(start, Answer::samePosition);
    follower.heardMove();
    EXPECT_FALSE(follower.isHearing());
    EXPECT_TRUE(follower.isMoving());
    EXPECT_EQ(follower.timeToAsk(start + 20ms), 30ms) << "since the last question";
    follower.gotAnswer(start + 50ms, Answer::otherPosition);
    EXPECT_FALSE(follower.isHearing());
    EXPECT_TRUE(follower.isMoving());
    EXPECT_EQ(follower.timeToAsk(start + 50ms), 50ms);
}

TEST(PointerFollowerTest, whereItStopsItIsHeardAgainAndAskedForOnceMore)
{
    PointerFollower follower;
    follower.heardMove();
    follower.gotAnswer(start, Answer::otherPosition);
    follower.gotAnswer(start + 50ms, Answer::samePosition);
    EXPECT_TRUE(follower.isHearing());
    EXPECT_FALSE(follower.isMoving());
    EXPECT_EQ(follower.timeToAsk(start + 50ms), 50ms);
    follower.gotAnswer(start + 100ms, Answer::samePosition);
    EXPECT_TRUE(follower.isHearing());
    EXPECT_EQ(follower.timeToAsk(start + 100ms), 200ms);
}

TEST(PointerFollowerTest, aMoveBetweenTheLastAnswerAndTheHearingIsFollowed)
{
    PointerFollower follower;
    follower.heardMove();
    follower.gotAnswer(start, Answer::samePosition);
    follower.gotAnswer(start + 50ms, Answer::otherPosition);
    EXPECT_FALSE(follower.isHearing());
    EXPECT_TRUE(follower.isMoving());
    EXPECT_EQ(follower.timeToAsk(start + 50ms), 50ms);
}

TEST(PointerFollowerTest, aMoveThatIsHeardWhileItSettlesIsFollowed)
{
    PointerFollower follower;
    follower.heardMove();
    follower.gotAnswer(start, Answer::samePosition);
    follower.heardMove();
    EXPECT_FALSE(follower.isHearing());
    EXPECT_TRUE(follower.isMoving());
}

} // namespace
} // namespace nimbrale::x11
