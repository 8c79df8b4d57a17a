#include "platform/x11/capture/pointer_follower.h"

#include <gtest/gtest.h>
#include <limits>

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;
using Answer = PointerFollower::Answer;
using NextChange = PointerFollower::NextChange;

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
    follower.gotAnswer(start, Answer::samePosition, NextChange::mayBeUntold);
    EXPECT_EQ(follower.timeToAsk(start + 20ms), 180ms);
    EXPECT_TRUE(follower.isHearing());
    follower.gotAnswer(start + 200ms, Answer::otherPosition, NextChange::mayBeUntold);
    EXPECT_EQ(follower.timeToAsk(start + 200ms), 200ms) << "a program set it, which says nothing of further moves";
    EXPECT_TRUE(follower.isHearing());
}

TEST(PointerFollowerTest, afterAMoveItIsAskedForInsteadOfHeard)
{
    PointerFollower follower;
    follower.gotAnswer(start, Answer::samePosition, NextChange::mayBeUntold);
    follower.heardMove();
    EXPECT_FALSE(follower.isHearing());
    EXPECT_TRUE(follower.isMoving());
    EXPECT_EQ(follower.timeToAsk(start + 20ms), 30ms) << "since the last question";
    follower.gotAnswer(start + 50ms, Answer::otherPosition, NextChange::mayBeUntold);
    EXPECT_FALSE(follower.isHearing());
    EXPECT_TRUE(follower.isMoving());
    EXPECT_EQ(follower.timeToAsk(start + 50ms), 50ms);
}

TEST(PointerFollowerTest, oneThatMovesFarAwayIsAskedForLessOften)
{
    PointerFollower follower;
    follower.heardMove();
    const auto intervalAt = [&follower](int distance) {
        follower.setDistance(distance);
        follower.gotAnswer(start, Answer::otherPosition, NextChange::mayBeUntold);
        return follower.timeToAsk(start);
    };
    EXPECT_EQ(intervalAt(0), 50ms);
    EXPECT_EQ(intervalAt(160), 100ms) << "no later after it has come near than one that was";
    EXPECT_EQ(intervalAt(240), 125ms);
    EXPECT_EQ(intervalAt(320), 150ms);
    EXPECT_EQ(intervalAt(std::numeric_limits<int>::max()), 150ms) << "a program brings it from anywhere";
    EXPECT_EQ(intervalAt(16), 55ms);
}

TEST(PointerFollowerTest, whereItStopsItIsHeardAgainAndAskedForOnceMore)
{
    PointerFollower follower;
    follower.heardMove();
    follower.gotAnswer(start, Answer::otherPosition, NextChange::mayBeUntold);
    follower.gotAnswer(start + 50ms, Answer::samePosition, NextChange::mayBeUntold);
    EXPECT_TRUE(follower.isHearing());
    EXPECT_FALSE(follower.isMoving());
    EXPECT_EQ(follower.timeToAsk(start + 50ms), 50ms);
    follower.gotAnswer(start + 100ms, Answer::samePosition, NextChange::mayBeUntold);
    EXPECT_TRUE(follower.isHearing());
    EXPECT_EQ(follower.timeToAsk(start + 100ms), 200ms);
}

TEST(PointerFollowerTest, aMoveBetweenTheLastAnswerAndTheHearingIsFollowed)
{
    PointerFollower follower;
    follower.heardMove();
    follower.gotAnswer(start, Answer::samePosition, NextChange::mayBeUntold);
    follower.gotAnswer(start + 50ms, Answer::otherPosition, NextChange::mayBeUntold);
    EXPECT_FALSE(follower.isHearing());
    EXPECT_TRUE(follower.isMoving());
    EXPECT_EQ(follower.timeToAsk(start + 50ms), 50ms);
}

TEST(PointerFollowerTest, theSamePositionRightAfterAnotherOneIsNoRest)
{
    PointerFollower follower;
    follower.heardMove();
    follower.gotAnswer(start, Answer::otherPosition, NextChange::mayBeUntold);
    follower.gotAnswer(start + 15ms, Answer::samePosition, NextChange::mayBeUntold);
    EXPECT_TRUE(follower.isMoving()) << "a slow mouse tells of its place every 16 ms";
    follower.gotAnswer(start + 20ms, Answer::samePosition, NextChange::mayBeUntold);
    EXPECT_FALSE(follower.isMoving());
}

TEST(PointerFollowerTest, anAnswerIsFreshForAMomentUnlessSomethingIsHeard)
{
    PointerFollower follower;
    EXPECT_FALSE(follower.isAnswerFresh(start));
    follower.gotAnswer(start, Answer::samePosition, NextChange::isTold);
    EXPECT_TRUE(follower.isAnswerFresh(start + 4ms));
    EXPECT_FALSE(follower.isAnswerFresh(start + 5ms));
    follower.heardChange();
    EXPECT_FALSE(follower.isAnswerFresh(start + 1ms)) << "it may be somewhere else";
}

TEST(PointerFollowerTest, aMoveThatIsHeardWhileItSettlesIsFollowed)
{
    PointerFollower follower;
    follower.heardMove();
    follower.gotAnswer(start, Answer::samePosition, NextChange::mayBeUntold);
    follower.heardMove();
    EXPECT_FALSE(follower.isHearing());
    EXPECT_TRUE(follower.isMoving());
}

TEST(PointerFollowerTest, whileItRestsItIsNotAskedForWhereItsNextChangeIsTold)
{
    PointerFollower follower;
    follower.gotAnswer(start, Answer::samePosition, NextChange::isTold);
    EXPECT_EQ(follower.timeToAsk(start + 1h), std::nullopt);
    EXPECT_FALSE(follower.isDue(start + 1h));
    EXPECT_TRUE(follower.isHearing());
}

TEST(PointerFollowerTest, aChangeThatIsToldIsAskedForAtOnceAndThenAsOfOneThatMayBeUntold)
{
    PointerFollower follower;
    follower.gotAnswer(start, Answer::samePosition, NextChange::isTold);
    follower.heardChange();
    EXPECT_TRUE(follower.isDue(start + 1ms));
    EXPECT_TRUE(follower.isHearing()) << "a program set it, or a button was pressed: no sign of moves";
    follower.gotAnswer(start + 1ms, Answer::otherPosition, NextChange::mayBeUntold);
    EXPECT_EQ(follower.timeToAsk(start + 1ms), 200ms);
    follower.gotAnswer(start + 201ms, Answer::samePosition, NextChange::isTold);
    EXPECT_EQ(follower.timeToAsk(start + 201ms), std::nullopt);
}

TEST(PointerFollowerTest, aMoveThatIsHeardAtRestIsFollowedThoughItsChangeIsTold)
{
    PointerFollower follower;
    follower.gotAnswer(start, Answer::samePosition, NextChange::isTold);
    follower.heardMove();
    EXPECT_TRUE(follower.isDue(start + 50ms));
    follower.heardChange();
    EXPECT_FALSE(follower.isHearing());
    EXPECT_EQ(follower.timeToAsk(start + 20ms), 30ms) << "what is followed is asked for no more often";
}

TEST(PointerFollowerTest, whatSettlesIsAskedForOnceMoreThoughItsNextChangeIsTold)
{
    PointerFollower follower;
    follower.heardMove();
    follower.gotAnswer(start, Answer::samePosition, NextChange::isTold);
    EXPECT_EQ(follower.timeToAsk(start), 50ms) << "it may have moved before the moves were heard again";
}

} // namespace
} // namespace nimbrale::x11
