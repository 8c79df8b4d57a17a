// What the capture asks of the server, and how often: each question costs both of them processor time.

#include "tests/desktop/x11_capture_fixture.h"
#include "tests/support/request_counter.h"

#include <chrono>
#include <xcb/damage.h>

namespace nimbrale::test {
namespace {

constexpr int framesPerSecond = 20;

class X11CaptureRequestsTest : public X11CaptureTest {
protected:
    void startCountedDesktop()
    {
        startDesktop({});
        captured.reset();
        counter = RequestCounter::start(desktop->displayName());
        ASSERT_TRUE(counter);
        captured = std::make_unique<CapturedDesktop>(*desktop, counter->displayName());
    }

    void TearDown() override
    {
        captured.reset();
        counter.reset();
        X11CaptureTest::TearDown();
    }

    [[nodiscard]] int pointerQuestions() const { return counter->count(XCB_QUERY_POINTER); }
    [[nodiscard]] int damageQuestions() const
    {
        return counter->count(captured->connection().extensions().damage.majorOpcode);
    }

    /// Does `step` every few milliseconds for a while. Returns how many ticks of the stream that was at the most.
    template <typename Step>
    int keepDoing(Step step)
    {
        const auto start = std::chrono::steady_clock::now();
        for (int count = 0; count < 300; ++count) {
            step(count);
            (void)captured->pumpUntil([] { return false; }, 3);
        }
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
        return static_cast<int>(passed.count() * framesPerSecond) + 2;
    }

    std::unique_ptr<RequestCounter> counter;
};

TEST_F(X11CaptureRequestsTest, aPointerOutsideTheRegionIsAskedForOnceATick)
{
    startCountedDesktop();
    scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 5});
    captured->start({0, 0, 400, 300}, framesPerSecond, false, true);
    captured->rest();
    const int before = pointerQuestions();
    const int framesBefore = captured->frames();
    const int ticks = keepDoing([&](int count) { desktop->movePointer({600 + count, 500}); });
    EXPECT_LE(pointerQuestions() - before, ticks);
    EXPECT_GE(pointerQuestions() - before, ticks / 3) << "the moves were noticed";
    EXPECT_EQ(captured->frames(), framesBefore);
    // What comes after that is shown as ever.
    desktop->movePointer({100, 100});
    EXPECT_TRUE(captured->pumpUntil([&] { return captured->frames() > framesBefore; }));
}

TEST_F(X11CaptureRequestsTest, aWindowThatDrawsWhereAnotherHidesItIsAskedOnceATick)
{
    startCountedDesktop();
    scene->add("below", {.geometry = {50, 50, 300, 200}, .seed = 5});
    scene->add("above", {.geometry = {50, 50, 300, 150}, .seed = 6});
    captured->start({0, 0, 400, 300}, framesPerSecond);
    captured->rest();
    const int before = damageQuestions();
    const int framesBefore = captured->frames();
    const int ticks = keepDoing([&](int count) {
        scene->fill("below", {10, 10, 40, 40}, count % 2 == 0 ? Qt::red : Qt::green);
    });
    EXPECT_LE(damageQuestions() - before, 2 * ticks) << "the window's own damage, and the root's";
    EXPECT_GE(damageQuestions() - before, ticks / 3) << "the drawing was noticed";
    EXPECT_EQ(captured->frames(), framesBefore);
    scene->fill("below", {10, 160, 40, 40}, Qt::red);
    EXPECT_TRUE(captured->pumpUntil([&] { return captured->frames() > framesBefore; }));
    expectSameAsScreen({0, 0, 400, 300});
}

TEST_F(X11CaptureRequestsTest, aWindowThatNobodySeesIsNotAskedForItsDamage)
{
    startCountedDesktop();
    scene->add("below", {.geometry = {50, 50, 300, 200}, .seed = 5});
    scene->add("above", {.geometry = {50, 50, 300, 200}, .seed = 6});
    captured->start({0, 0, 400, 300}, framesPerSecond);
    captured->rest();
    const int before = damageQuestions();
    const int ticks = keepDoing([&](int count) {
        scene->fill("below", {10, 10, 40, 40}, count % 2 == 0 ? Qt::red : Qt::green);
    });
    EXPECT_LE(damageQuestions() - before, ticks / 3) << "but for the root's damage, now and then";
    // What it drew meanwhile is there as soon as it can be seen.
    scene->fill("below", {10, 10, 40, 40}, Qt::blue);
    scene->unmap("above");
    expectSameAsScreen({0, 0, 400, 300});
    EXPECT_EQ(captured->image().pixelColor(70, 70), QColor(Qt::blue));
    scene->fill("below", {10, 10, 40, 40}, Qt::yellow);
    EXPECT_TRUE(captured->pumpUntil([&] { return captured->image().pixelColor(70, 70) == QColor(Qt::yellow); }));
}

TEST_F(X11CaptureRequestsTest, twoCapturesOfOneDesktopLeaveEachOtherAtRest)
{
    startCountedDesktop();
    scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 5});
    const auto requestsAtRest = [&] {
        captured->rest();
        const int before = counter->total();
        (void)captured->pumpUntil([] { return false; }, 1000);
        return counter->total() - before;
    };
    captured->start({0, 0, 400, 300}, framesPerSecond, false, true);
    const int alone = requestsAtRest();
    const auto otherCounter = RequestCounter::start(desktop->displayName());
    CapturedDesktop other(*desktop, otherCounter->displayName());
    other.start({200, 100, 400, 300}, framesPerSecond, false, true);
    other.rest();
    const int otherBefore = otherCounter->total();
    EXPECT_LE(requestsAtRest(), alone + 10);
    EXPECT_LE(otherCounter->total() - otherBefore, 3 * alone + 30) << "in about two seconds, as long as both rested";
    EXPECT_EQ(captured->image(), desktop->screenshot({0, 0, 400, 300}));
    const int otherAfter = otherCounter->total();
    desktop->movePointer({300, 200});
    EXPECT_TRUE(other.pumpUntil([&] { return otherCounter->total() > otherAfter; })) << "the control: requests count";
}

} // namespace
} // namespace nimbrale::test
