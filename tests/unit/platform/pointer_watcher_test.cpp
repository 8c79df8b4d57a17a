#include "platform/pointer_watcher.h"
#include "tests/fakes/fake_main_queue.h"
#include "tests/fakes/fake_screens.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class PointerWatcherTest : public testing::Test {
protected:
    void start(bool isTold)
    {
        screens.tellsOfPointer = isTold;
        screens.mouse = {1, 2};
        make([this](Point position) { seen.push_back(position); });
    }
    void make(std::function<void(Point)> onPosition)
    {
        watcher = std::make_unique<PointerWatcher>(screens, queue, area, std::move(onPosition),
                                                   [this] { return PointerWatcher::TimePoint(queue.now()); });
    }
    void moveTo(Point position)
    {
        screens.mouse = position;
        screens.notifyPointer();
    }
    /// What was told within that time.
    std::vector<Point> seenIn(std::chrono::nanoseconds time)
    {
        seen.clear();
        queue.advance(time);
        return seen;
    }

    static constexpr Rect area{0, 0, 200, 100};

    FakeScreens screens;
    FakeMainQueue queue;
    std::vector<Point> seen;
    std::unique_ptr<PointerWatcher> watcher;
};

TEST_F(PointerWatcherTest, TellsWhereThePointerIsFromTheStart)
{
    start(true);
    EXPECT_THAT(seen, IsEmpty());
    EXPECT_THAT(seenIn(33ms), IsEmpty());
    EXPECT_THAT(seenIn(1ms), ElementsAre(Point{1, 2}));
}

TEST_F(PointerWatcherTest, AMovingPointerIsToldThirtyTimesASecond)
{
    start(true);
    int told = 0;
    for (int step = 0; step < 100; ++step) {
        moveTo({10.0 + step, 0});
        told += static_cast<int>(seenIn(10ms).size());
    }
    EXPECT_EQ(told, 30);
}

TEST_F(PointerWatcherTest, ARestingPointerIsLeftAlone)
{
    start(true);
    queue.advance(1s);
    const int asked = screens.mouseQuestions;
    EXPECT_THAT(seenIn(10s), IsEmpty());
    EXPECT_EQ(screens.mouseQuestions, asked);
    EXPECT_EQ(queue.pendingTimers(), 0U);
    seen.clear();
    moveTo({5, 6});
    EXPECT_THAT(seen, ElementsAre(Point{5, 6})) << "at once, after a rest";
    EXPECT_EQ(queue.pendingTimers(), 0U);
}

TEST_F(PointerWatcherTest, AMoveSoonAfterAnotherIsToldAThirtiethOfASecondAfterIt)
{
    start(true);
    queue.advance(1s);
    moveTo({5, 6});
    seenIn(20ms);
    moveTo({7, 8});
    moveTo({9, 10});
    EXPECT_THAT(seenIn(13ms), IsEmpty());
    EXPECT_THAT(seenIn(1ms), ElementsAre(Point{9, 10}));
    seenIn(29ms);
    moveTo({11, 12});
    EXPECT_THAT(seen, ElementsAre(Point{11, 12})) << "it is late enough";
    EXPECT_THAT(seenIn(1s), IsEmpty());
}

TEST_F(PointerWatcherTest, WhereMovesAreNotToldItKeepsAsking)
{
    start(false);
    queue.advance(1s);
    EXPECT_THAT(seenIn(1s), SizeIs(30));
    screens.mouse = {5, 6};
    EXPECT_THAT(seenIn(34ms), ElementsAre(Point{5, 6}));
}

TEST_F(PointerWatcherTest, ARestartTellsARestingPointerOnceMore)
{
    start(true);
    queue.advance(1s);
    seen.clear();
    watcher->restart(area);
    EXPECT_THAT(seen, IsEmpty()) << "not while whoever asks for it is at work";
    EXPECT_THAT(seenIn(1s), ElementsAre(Point{1, 2}));
}

TEST_F(PointerWatcherTest, OnceGoneItIsSilent)
{
    start(true);
    queue.advance(1s);
    watcher.reset();
    moveTo({5, 6});
    EXPECT_THAT(seenIn(1s), IsEmpty());
    EXPECT_EQ(queue.pendingTimers(), 0U);
}

TEST_F(PointerWatcherTest, AMoveOutOfTheAreaIsToldAndThoseBeyondItAreNot)
{
    start(true);
    queue.advance(1s);
    moveTo({300, 0});
    seenIn(1s);
    EXPECT_THAT(seen, IsEmpty());
    const int asked = screens.mouseQuestions;
    moveTo({400, 0});
    EXPECT_THAT(seenIn(1s), IsEmpty());
    EXPECT_EQ(screens.mouseQuestions, asked);
    moveTo({20, 20});
    EXPECT_THAT(seen, ElementsAre(Point{20, 20}));
}

TEST_F(PointerWatcherTest, ARestartMovesTheArea)
{
    start(true);
    queue.advance(1s);
    watcher->restart({300, 0, 200, 100});
    queue.advance(1s);
    moveTo({20, 20});
    queue.advance(1s);
    seen.clear();
    moveTo({30, 20});
    EXPECT_THAT(seenIn(1s), IsEmpty());
    moveTo({310, 20});
    EXPECT_THAT(seen, ElementsAre(Point{310, 20}));
}

TEST_F(PointerWatcherTest, ItMayGoWhileItTells)
{
    screens.tellsOfPointer = true;
    int told = 0;
    make([&](Point) {
        ++told;
        watcher.reset();
    });
    queue.advance(1s);
    EXPECT_EQ(told, 1);
}

} // namespace
} // namespace nimbrale
