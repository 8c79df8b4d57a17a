#include "platform/x11/displays/pointer_tracker.h"

#include <QCoreApplication>

#include <gtest/gtest.h>
#include <thread>

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;

PixelRect everywhere()
{
    return {0, 0, 1000, 1000};
}

class PointerTrackerTest : public testing::Test {
protected:
    std::optional<PixelPoint> server = PixelPoint{10, 20};
    int questions = 0;
    PointerTracker::TimePoint time{std::chrono::hours(1)};
    PointerTracker tracker{[this] {
                               ++questions;
                               return server;
                           },
                           [this] { return time; }};
};

TEST_F(PointerTrackerTest, WhereNobodyTellsOfMovesTheServerIsAskedEveryTime)
{
    EXPECT_EQ(tracker.position(), (PixelPoint{10, 20}));
    server = PixelPoint{11, 20};
    EXPECT_EQ(tracker.position(), (PixelPoint{11, 20}));
    EXPECT_EQ(questions, 2);
    EXPECT_EQ(tracker.observeMoves(everywhere, [] {}), nullptr);
    tracker.mayHaveMoved();
    EXPECT_EQ(tracker.observeMoves(everywhere, [] {}), nullptr) << "an event is no telling of every move";
}

TEST_F(PointerTrackerTest, WhereMovesAreToldTheServerIsAskedAfterAMoveOnly)
{
    tracker.didMove();
    EXPECT_EQ(tracker.position(), (PixelPoint{10, 20}));
    server = PixelPoint{30, 40};
    EXPECT_EQ(tracker.position(), (PixelPoint{10, 20}));
    EXPECT_EQ(questions, 1);
    tracker.didMove();
    EXPECT_EQ(tracker.position(), (PixelPoint{30, 40}));
    server = PixelPoint{50, 60};
    tracker.mayHaveMoved();
    EXPECT_EQ(tracker.position(), (PixelPoint{50, 60}));
    EXPECT_EQ(questions, 3);
}

// Programs can set the position without anybody being told.
TEST_F(PointerTrackerTest, AnAnswerCountsForAFifthOfASecond)
{
    tracker.didMove();
    EXPECT_EQ(tracker.position(), (PixelPoint{10, 20}));
    server = PixelPoint{30, 40};
    time += 199ms;
    EXPECT_EQ(tracker.position(), (PixelPoint{10, 20}));
    time += 1ms;
    EXPECT_EQ(tracker.position(), (PixelPoint{30, 40}));
    time += 199ms;
    EXPECT_EQ(tracker.position(), (PixelPoint{30, 40}));
    EXPECT_EQ(questions, 2);
}

TEST_F(PointerTrackerTest, APositionThatComesWithAMoveIsNotAskedFor)
{
    tracker.didMove(PixelPoint{1, 2});
    EXPECT_EQ(tracker.position(), (PixelPoint{1, 2}));
    tracker.didMove(PixelPoint{3, 4});
    tracker.didMove(PixelPoint{5, 6});
    EXPECT_EQ(tracker.position(), (PixelPoint{5, 6}));
    EXPECT_EQ(tracker.position(), (PixelPoint{5, 6}));
    EXPECT_EQ(questions, 0);
    tracker.didMove();
    EXPECT_EQ(tracker.position(), (PixelPoint{10, 20})) << "a later move without a position";
    EXPECT_EQ(questions, 1);
    tracker.didMove(PixelPoint{7, 8});
    time += 200ms;
    EXPECT_EQ(tracker.position(), (PixelPoint{10, 20})) << "what was told counts no longer than an answer";
    EXPECT_EQ(questions, 2);
}

TEST_F(PointerTrackerTest, WithoutAnAnswerTheLastOneStaysAndTheServerIsAskedAgain)
{
    tracker.didMove();
    EXPECT_EQ(tracker.position(), (PixelPoint{10, 20}));
    server.reset();
    tracker.didMove();
    EXPECT_EQ(tracker.position(), (PixelPoint{10, 20}));
    EXPECT_EQ(tracker.position(), (PixelPoint{10, 20}));
    EXPECT_EQ(questions, 3);
}

TEST_F(PointerTrackerTest, WhileAnEventsPositionIsHeldNobodyIsAsked)
{
    {
        const auto held = tracker.hold({1, 2});
        EXPECT_EQ(tracker.position(), (PixelPoint{1, 2}));
        EXPECT_EQ(questions, 0);
    }
    EXPECT_EQ(tracker.position(), (PixelPoint{10, 20}));
}

TEST_F(PointerTrackerTest, ObserversAreToldOnTheMainThreadOfTheFirstMoveAfterAQuestion)
{
    int argumentCount = 1;
    char name[] = "pointer_tracker_test";
    char* arguments[] = {name, nullptr};
    const QCoreApplication application(argumentCount, arguments);
    tracker.didMove();
    int told = 0;
    const std::thread::id mainThread = std::this_thread::get_id();
    const Subscription subscription = tracker.observeMoves(everywhere, [&] {
        EXPECT_EQ(std::this_thread::get_id(), mainThread);
        ++told;
    });
    ASSERT_NE(subscription, nullptr);
    const auto moveTwice = [this] {
        std::thread([this] {
            tracker.didMove();
            tracker.didMove();
        }).join();
        QCoreApplication::processEvents();
    };
    QCoreApplication::processEvents();
    moveTwice();
    EXPECT_EQ(told, 0) << "nobody has asked for the position yet";
    static_cast<void>(tracker.position());
    moveTwice();
    EXPECT_EQ(told, 1);
    moveTwice();
    EXPECT_EQ(told, 1);
    static_cast<void>(tracker.position());
    moveTwice();
    EXPECT_EQ(told, 2);
}

TEST_F(PointerTrackerTest, OnlyMovesIntoAPlaceWithinItAndOutOfItAreTold)
{
    int argumentCount = 1;
    char name[] = "pointer_tracker_test";
    char* arguments[] = {name, nullptr};
    const QCoreApplication application(argumentCount, arguments);
    PixelRect place{100, 100, 50, 50};
    int told = 0;
    tracker.didMove(PixelPoint{0, 0});
    const Subscription subscription = tracker.observeMoves([&] { return place; }, [&] { ++told; });
    const auto toldOf = [&](std::optional<PixelPoint> position) {
        static_cast<void>(tracker.position());
        told = 0;
        tracker.didMove(position);
        QCoreApplication::processEvents();
        return told;
    };
    EXPECT_EQ(toldOf(PixelPoint{10, 10}), 1) << "it may have been there before";
    EXPECT_EQ(toldOf(PixelPoint{20, 10}), 0);
    EXPECT_EQ(tracker.position(), (PixelPoint{20, 10})) << "what nobody is told is known all the same";
    EXPECT_EQ(toldOf(PixelPoint{100, 100}), 1);
    EXPECT_EQ(toldOf(PixelPoint{110, 100}), 1);
    EXPECT_EQ(toldOf(PixelPoint{150, 100}), 1) << "out of it";
    EXPECT_EQ(toldOf(PixelPoint{160, 100}), 0);
    EXPECT_EQ(toldOf(std::nullopt), 1) << "nobody knows where to";
    EXPECT_EQ(toldOf(PixelPoint{170, 100}), 1) << "it may have been there meanwhile";
    EXPECT_EQ(toldOf(PixelPoint{160, 100}), 0);
    place = {160, 100, 50, 50};
    tracker.placesMoved();
    EXPECT_EQ(toldOf(PixelPoint{170, 100}), 1);
}

} // namespace
} // namespace nimbrale::x11
