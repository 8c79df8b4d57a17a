// Desktops with far more, far larger and far more finely cut windows than usual: the picture stays exact, goes on in
// time, and costs the server little.

#include "tests/desktop/crowd.h"
#include "tests/desktop/x11_capture_fixture.h"
#include "tests/support/request_counter.h"
#include "tests/support/server_resources.h"

#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>
#include <xcb/shape.h>

namespace nimbrale::test {
namespace {

constexpr QRect region(40, 30, 820, 620);
constexpr int crowdSize = 40000;

/// What something took of this process, and how many requests of the capture.
struct Cost {
    double processorSeconds = 0;
    int requests = 0;
};

class X11CaptureBurdenTest : public X11CaptureTest {
protected:
    void TearDown() override
    {
        captured.reset();
        counter.reset();
        X11CaptureTest::TearDown();
    }

    /// Starts the capture once more, with its requests counted from zero.
    void captureAnew()
    {
        captured.reset();
        counter = RequestCounter::start(desktop->displayName());
        ASSERT_TRUE(counter);
        captured = std::make_unique<CapturedDesktop>(*desktop, counter->displayName());
        captured->start({region.x() * 1.0, region.y() * 1.0, region.width() * 1.0, region.height() * 1.0});
    }

    template <typename Work>
    Cost costOf(Work work)
    {
        const RequestCounter* const before = counter.get();
        const int requestsBefore = counter ? counter->total() : 0;
        const std::clock_t processorStart = std::clock();
        work();
        Cost cost;
        cost.processorSeconds = double(std::clock() - processorStart) / CLOCKS_PER_SEC;
        cost.requests = counter->total() - (counter.get() == before ? requestsBefore : 0);
        return cost;
    }

    /// Cuts the window to a grid of so many small rectangles.
    void cutToGrid(const std::string& name, int columns, int rows)
    {
        std::vector<xcb_rectangle_t> grid;
        for (int row = 0; row < rows; ++row)
            for (int column = 0; column < columns; ++column)
                grid.push_back({std::int16_t(4 * column), std::int16_t(6 * row), 2, 3});
        xcb_shape_rectangles(desktop->connection(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING,
                             XCB_CLIP_ORDERING_YX_BANDED, scene->identifier(name), 0, 0, std::uint32_t(grid.size()),
                             grid.data());
        desktop->synchronize();
    }

    /// How long a change takes into the picture, at the most of a few tries.
    [[nodiscard]] double slowestChange(const std::string& window, QPoint inWindow, QPoint inPicture)
    {
        double slowest = 0;
        for (int count = 0; count < 10; ++count) {
            const QColor color(40 * (count % 5), 10 * count, 200);
            const auto start = std::chrono::steady_clock::now();
            scene->fill(window, QRect(inWindow, QSize(9, 9)), color);
            if (!captured->pumpUntil([&] { return captured->image().pixelColor(inPicture) == color; }))
                return 3;
            slowest =
                std::max(slowest, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        }
        return slowest;
    }

    std::unique_ptr<RequestCounter> counter;
};

TEST_F(X11CaptureBurdenTest, shapesOfManyRectanglesAreExactAndCostLittleMore)
{
    startDesktop({});
    scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 5});
    scene->add("fine", {.geometry = {50, 40, 800, 600}, .seed = 6});
    scene->add("finer", {.geometry = {51, 42, 800, 600}, .seed = 7});
    captureAnew();
    const auto change = [&] {
        scene->move("fine", {53, 44});
        captured->settle();
        scene->repaint("fine", 8);
        captured->settle();
        scene->repaint("below", 9);
        captured->settle();
    };
    cutToGrid("fine", 1, 1);
    cutToGrid("finer", 1, 1);
    const Cost usual = costOf(change);
    scene->unmap("finer");
    scene->unmap("fine");
    const double usualDelay = slowestChange("below", {195, 199}, {160, 173});
    scene->map("fine");
    scene->map("finer");
    const Cost cut = costOf([&] {
        cutToGrid("fine", 200, 100);
        cutToGrid("finer", 200, 100);
        captured->settle();
    });
    const Cost fine = costOf(change);
    expectSameAsScreen(region);
    const double delay = slowestChange("below", {195, 199}, {160, 173});
    EXPECT_LT(cut.requests, 400);
    EXPECT_LT(cut.processorSeconds, 0.5);
    EXPECT_LT(fine.requests, 2 * usual.requests + 400);
    EXPECT_LT(fine.processorSeconds, usual.processorSeconds + 0.5);
    EXPECT_LT(delay, usualDelay + 1) << "what is seen through the gaps";
}

TEST_F(X11CaptureBurdenTest, manyWindowsThatAreNotShownHoldUpNoStart)
{
    startDesktop({});
    scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 5});
    const Cost usual = costOf([&] { captureAnew(); });
    captured.reset();
    Crowd crowd(*desktop);
    crowd.add(crowdSize);
    const Cost crowded = costOf([&] { captureAnew(); });
    EXPECT_LT(crowded.requests, crowdSize + 1000) << "each is asked no more than whether it is shown";
    EXPECT_LT(crowded.processorSeconds, usual.processorSeconds + 0.5);
    EXPECT_LT(slowestChange("below", {200, 200}, {162, 172}), 1);
    expectSameAsScreen(region);
}

TEST_F(X11CaptureBurdenTest, windowsThatComeAndGoUnshownHoldUpNoPicture)
{
    startDesktop({});
    scene->add("below", {.geometry = {0, 0, 1280, 720}, .seed = 5});
    captureAnew();
    Crowd crowd(*desktop);
    const Cost cost = costOf([&] {
        crowd.add(crowdSize);
        captured->settle();
        crowd.clear();
        captured->settle();
    });
    EXPECT_LT(cost.requests, 400);
    EXPECT_LT(cost.processorSeconds, 1);
    std::atomic<bool> isOver = false;
    int rounds = 0;
    const double usual = slowestChange("below", {200, 200}, {162, 172});
    std::thread other([&] {
        for (; !isOver; ++rounds) {
            crowd.add(200);
            crowd.clear();
            sleepFor(Milliseconds{2});
        }
    });
    const double crowded = slowestChange("below", {300, 200}, {262, 172});
    isOver = true;
    other.join();
    EXPECT_GT(rounds, 0);
    EXPECT_LT(crowded, usual + 1);
    expectSameAsScreen(region);
}

TEST_F(X11CaptureBurdenTest, aWindowThatIsRaisedAgainAndAgainCostsNoMoreAmongManyThatAreNotShown)
{
    startDesktop({});
    for (const char* const name : {"one", "other"})
        scene->add(name, {.geometry = {100, 100, 200, 200}, .seed = 5});
    captureAnew();
    const auto raise = [&] {
        for (int count = 0; count < 300; ++count) {
            scene->raise(count % 2 == 0 ? "one" : "other");
            captured->pumpFor(Milliseconds{10});
        }
    };
    const Cost usual = costOf(raise);
    Crowd crowd(*desktop);
    crowd.add(crowdSize);
    captured->settle();
    const Cost crowded = costOf(raise);
    EXPECT_LT(crowded.processorSeconds, 3 * usual.processorSeconds + 0.3);
    EXPECT_LT(crowded.requests, 2 * usual.requests + 400);
    expectSameAsScreen(region);
}

class X11CaptureHugeWindowTest : public X11CaptureBurdenTest {
protected:
    /// All of the picture is drawn anew.
    void drawAnew()
    {
        captured->updateRegion({0, 0, 100, 100});
        captured->updateRegion({region.x() * 1.0, region.y() * 1.0, region.width() * 1.0, region.height() * 1.0});
    }
    [[nodiscard]] QColor captureOf(QPoint root) { return captured->image().pixelColor(root - region.topLeft()); }
    /// Mapped after a moment, so that the server is told in time: else it takes the memory for as long as it is not,
    /// and to fill four gigabytes keeps it busy for seconds.
    void addHugeInSteps(const QRect& geometry)
    {
        scene->add("huge", {.geometry = geometry, .seed = 0, .color = color, .isMapped = false});
        captured->settle();
        scene->map("huge");
    }
    void expectLittleMemory() const
    {
        EXPECT_LT(residentBytes(desktop->server().pid()), residentBefore + (200U << 20));
    }

    const QColor color{200, 100, 50};
    std::uint64_t residentBefore = 0;
};

class X11CaptureHugeWindowsTest : public X11CaptureHugeWindowTest, public testing::WithParamInterface<QRect> {};

INSTANTIATE_TEST_SUITE_P(, X11CaptureHugeWindowsTest,
                         testing::Values(QRect(400, 300, 20000, 20000), QRect(-9000, -8000, 20000, 20000),
                                         QRect(-1000, -2000, 32767, 32767)));

TEST_P(X11CaptureHugeWindowsTest, windowsFarLargerThanTheScreenTakeNoMemory)
{
    startDesktop({});
    captureAnew();
    residentBefore = residentBytes(desktop->server().pid());
    if (GetParam().width() > 20000)
        addHugeInSteps(GetParam());
    else
        scene->add("huge", {.geometry = GetParam(), .seed = 0, .color = color});
    scene->add("above", {.geometry = {350, 350, 200, 100}, .seed = 3});
    expectSameAsScreen(region);
    ASSERT_EQ(captureOf({640, 530}), color);
    expectLittleMemory();
    scene->fill("huge", QRect(QPoint(500, 500) - GetParam().topLeft(), QSize(20, 20)), Qt::green);
    scene->move("above", {520, 450});
    expectSameAsScreen(region);
}

TEST_F(X11CaptureHugeWindowTest, aHugeWindowThatIsThereAtTheStartTakesNoMemory)
{
    startDesktop({});
    captured.reset();
    residentBefore = residentBytes(desktop->server().pid());
    scene->add("huge", {.geometry = {400, 300, 20000, 20000}, .seed = 0, .color = color});
    captureAnew();
    expectSameAsScreen(region);
    expectLittleMemory();
}

TEST_P(X11CaptureHugeWindowsTest, ofAHugeWindowNothingOwnIsShown)
{
    startDesktop({});
    captureAnew();
    const QColor ownColor(255, 0, 255);
    addHugeInSteps(GetParam());
    const xcb_window_t own = makeOwnWindow({450, 420, 100, 100});
    captured->settle();
    drawAnew();
    captured->settle();
    EXPECT_EQ(desktop->pixel(500, 500), ownColor) << "the own window does show on the screen";
    EXPECT_EQ(captureOf({500, 500}), QColor(Qt::black)) << "what it covers is nowhere";
    EXPECT_EQ(captureOf({560, 500}), color);
    // Smaller, and shown again, it is a window like any other.
    scene->unmap("huge");
    scene->resize("huge", {600, 600});
    scene->move("huge", {300, 200});
    scene->map("huge");
    scene->lower("huge");
    captured->settle();
    drawAnew();
    EXPECT_EQ(desktop->pixel(500, 500), ownColor);
    EXPECT_TRUE(captured->pumpUntil([&] { return captureOf({500, 500}) == color; })) << "once it has painted";
    xcb_destroy_window(captured->connection().get(), own);
    captured->connection().flush();
    expectSameAsScreen(region);
}

} // namespace
} // namespace nimbrale::test
