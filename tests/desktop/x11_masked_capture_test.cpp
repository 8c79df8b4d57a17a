// The picture under compositing managers: what the screen shows, decorations and all, but never a pixel of this
// process.

#include "platform/x11/capture/change_collector.h"
#include "tests/desktop/masked_capture_fixture.h"
#include "tests/support/window_touches.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <semaphore>

namespace nimbrale::test {
namespace {

using WindowManager = Managers::WindowManager;
using Compositor = Managers::Compositor;

TEST_P(X11MaskedCaptureTest, DecoratedWindowsAreAsTheScreenShowsThem)
{
    expectSameAsScreen(region);
    scene->raise("lower");
    scene->move("upper", {250, 150});
    expectSameAsScreen(region);
    scene->remove("lower");
    waitUntilStill();
    expectSameAsScreen(region);
}

TEST_P(X11MaskedCaptureTest, APanelThatIsDraggedIsInNoPicture)
{
    watch.watch(*captured);
    const xcb_window_t panel = makePanel({200, 150});
    QPoint corner;
    for (int step = 0; step < 200; ++step) {
        corner = QPoint(200 + (step * 13) % 380, 150 + (step * 7) % 280);
        movePanel(panel, corner);
        if (step % 3 == 0)
            scene->fill("upper", {10 + step, 20, 30, 30}, QColor(step, 200, 40));
        if (step % 10 == 5)
            scene->move("lower", {150 + step, 130});
        captured->pumpFor(Milliseconds{16});
    }
    EXPECT_TRUE(captured->pumpUntil([&] { return ownPixels(desktop->screenshot({corner, panelSize})) > 0; }));
    xcb_destroy_window(captured->connection().get(), panel);
    captured->connection().flush();
    // Without a panel nothing proves that the screen shows it no more.
    EXPECT_TRUE(captured->pumpUntil([&] { return captured->image() == desktop->screenshot(region); }, 8000));
    captured->onFrame = nullptr;
    watch.expectNoneFound(100);
}

TEST_P(X11MaskedCaptureTest, APanelThatComesAndGoesIsInNoPicture)
{
    watch.watch(*captured);
    for (int round = 0; round < 8; ++round) {
        const xcb_window_t panel = makePanel({180 + 30 * round, 160 + 20 * round});
        scene->fill("upper", {10, 20 + 10 * round, 30, 30}, QColor(20 * round, 200, 40));
        captured->pumpFor(Milliseconds{50});
        xcb_destroy_window(captured->connection().get(), panel);
        captured->connection().flush();
        for (int step = 0; step < 20; ++step) {
            scene->fill("lower", {10, 20 + 10 * step, 30, 30}, QColor(20 * round, 10 * step, 40));
            captured->pumpFor(Milliseconds{16});
        }
    }
    captured->onFrame = nullptr;
    watch.expectNoneFound(100);
}

TEST_P(X11MaskedCaptureTest, APanelThatACompositorWithoutTimeStillShowsIsInNoPicture)
{
    constexpr QPoint first(200, 150);
    constexpr QPoint second(420, 300);
    const xcb_window_t panel = makePanel(first);
    captured->settle();
    watch.watch(*captured);
    const int before = watch.pictures();
    ASSERT_TRUE(desktop->pauseCompositor());
    movePanel(panel, second);
    captured->pumpFor(x11::ChangeCollector::longestLag + Milliseconds{750});
    // The control: it is still shown, and pictures were drawn that could have shown it.
    const int stillShown = ownPixels(desktop->screenshot({first, panelSize}));
    captured->updateRegion(
        {double(region.x()), double(region.y()), double(region.width()), double(region.height()) - 1});
    desktop->resumeCompositor();
    EXPECT_EQ(stillShown, panelSize.width() * panelSize.height());
    EXPECT_TRUE(captured->pumpUntil([&] { return ownPixels(desktop->screenshot({second, panelSize})) > 0; }));
    captured->pumpFor(Milliseconds{500});
    captured->onFrame = nullptr;
    watch.expectNoneFound(before + 1);
}

TEST_P(X11MaskedCaptureTest, BelowAPanelWindowsShowWhatTheyDraw)
{
    constexpr QPoint corner(330, 250);
    const QRect below(corner - region.topLeft(), panelSize);
    waitUntilStill();
    captured->settle();
    const QImage before = captured->image().copy(below);
    const xcb_window_t panel = makePanel(corner);
    waitUntilStill();
    captured->settle();
    EXPECT_TRUE(imagesMatch(captured->image().copy(below), before)) << "while nothing changes it is as before";

    scene->fill("upper", {0, 0, 300, 220}, QColor(200, 90, 20));
    captured->settle();
    const QImage drawn = captured->image().copy(below);
    xcb_destroy_window(captured->connection().get(), panel);
    captured->connection().flush();
    waitUntilStill();
    const QImage shown = desktop->screenshot({corner, panelSize});
    ASSERT_EQ(ownPixels(shown), 0);
    ASSERT_NE(shown, before);
    EXPECT_TRUE(imagesMatch(drawn, shown));
}

TEST_P(X11MaskedCaptureTest, WhatAWindowDrewJustBeforeAPanelCameIsInThePicture)
{
    constexpr QPoint corner(480, 320);
    const xcb_window_t panel = makePanel({330, 230});
    waitUntilStill();
    captured->settle();
    ASSERT_TRUE(desktop->pauseCompositor());
    const QColor color(200, 90, 20);
    scene->fill("upper", {0, 0, 300, 220}, color);
    captured->pumpFor(Milliseconds{100});
    movePanel(panel, corner);
    captured->pumpFor(Milliseconds{100});
    desktop->resumeCompositor();
    QImage expected(panelSize, QImage::Format_RGB32);
    expected.fill(color);
    const QRect below(corner - region.topLeft(), panelSize);
    EXPECT_TRUE(captured->pumpUntil([&] { return imagesAreAlike(captured->image().copy(below), expected); }));
    EXPECT_TRUE(captured->pumpUntil([&] {
        return ownPixels(desktop->screenshot({corner, panelSize})) == panelSize.width() * panelSize.height();
    })) << "the control: the panel is there";
    EXPECT_TRUE(imagesAreAlike(captured->image().copy(below), expected)) << "and it stays";
}

TEST_P(X11MaskedCaptureTest, AWindowThatComesBelowAPanelIsThereOnceItHasPainted)
{
    constexpr QPoint corner(330, 250);
    (void)makePanel(corner);
    captured->settle();
    const QColor color(20, 90, 200);
    scene->add("fresh", {.geometry = {300, 200, 260, 220}, .seed = 0, .color = color});
    QImage expected(panelSize, QImage::Format_RGB32);
    expected.fill(color);
    const QRect below(corner - region.topLeft(), panelSize);
    EXPECT_TRUE(captured->pumpUntil([&] { return imagesAreAlike(captured->image().copy(below), expected); }));
}

TEST_P(X11MaskedCaptureTest, WhatWasThereBeforeTheCaptureIsDrawnBelowAPanelAtOnce)
{
    constexpr QPoint corner(330, 290);
    (void)makePanel(corner);
    waitUntilStill();
    const QRect below(corner - region.topLeft(), panelSize);
    // A capture that begins as the application does: with its first picture the windows are there, and nothing changes.
    CapturedDesktop later(*desktop);
    later.painted().set(panels.back(), x11::PixelRegion(0, 0, panelSize.width(), panelSize.height()));
    later.start({double(region.x()), double(region.y()), double(region.width()), double(region.height())});
    QImage expected(panelSize, QImage::Format_RGB32);
    expected.fill(QColor(120, 160, 40));
    EXPECT_TRUE(imagesMatch(later.image().copy(below), expected));
}

/// A window of another program that lets a panel's pixels into its memory and takes its time to paint.
class X11UnpaintedWindowTest : public X11MaskedCaptureTest {
protected:
    static constexpr QPoint panelCorner{330, 250};

    void TearDown() override
    {
        if (scene)
            scene->process().signal(SIGCONT);
        X11MaskedCaptureTest::TearDown();
    }

    /// It belongs to the scene, which stands still from now on, so that nobody paints it.
    void addWindowThatIsNotPainted(const QRect& geometry, bool isMapped)
    {
        scene->add("late", {.geometry = geometry, .seed = 0, .color = lateColor, .isMapped = isMapped});
        window_ = scene->identifier("late");
        const std::uint32_t none = XCB_BACK_PIXMAP_NONE;
        xcb_change_window_attributes(raw(), window_, XCB_CW_BACK_PIXMAP, &none);
        captured->connection().synchronize();
        (void)makePanel(panelCorner);
        captured->settle();
        waitUntilStill();
        watch.watch(*captured);
        scene->process().signal(SIGSTOP);
    }

    /// The screen shows the panel's pixels beside the panel, since the window takes them along. Without a compositing
    /// manager the server shows what is below the window's place instead, and that is ours alike.
    void moveAwayAndPaint(QPoint corner)
    {
        int mostBeside = 0;
        // Within the time that windows have to paint.
        const auto end = std::chrono::steady_clock::now() + Milliseconds{400};
        for (int step = 0; (step < 8 || mostBeside <= 100) && std::chrono::steady_clock::now() < end; ++step) {
            corner += QPoint(9, 5);
            const std::uint32_t place[] = {std::uint32_t(corner.x()), std::uint32_t(corner.y())};
            xcb_configure_window(raw(), window_, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, place);
            captured->connection().flush();
            captured->pumpFor(Milliseconds{16});
            mostBeside =
                std::max(mostBeside, ownPixels(desktop->screenshot(region)) - panelSize.width() * panelSize.height());
        }
        EXPECT_GT(mostBeside, 100) << "the control: the screen shows them";
        scene->process().signal(SIGCONT);
        const auto isPainted = [&] {
            // mutter misses at times what a window has drawn, until it draws again.
            scene->fill("late", {0, 0, 1, 1}, lateColor);
            const QPoint beside = corner + QPoint(180, 180);
            return desktop->pixel(beside.x(), beside.y()).rgb() == lateColor.rgb() &&
                   captured->image().pixelColor(beside - region.topLeft()).rgb() == lateColor.rgb();
        };
        EXPECT_TRUE(captured->pumpUntil(isPainted)) << "in the end it is in the picture as in the screen's";
        captured->pumpFor(Milliseconds{1000});
        captured->onFrame = nullptr;
        watch.expectNoneFound(10);
    }

    [[nodiscard]] xcb_connection_t* raw() { return captured->connection().get(); }

    static inline const QColor lateColor{20, 90, 200};
    xcb_window_t window_ = XCB_NONE;
};

TEST_P(X11UnpaintedWindowTest, AWindowThatComesBelowAPanelAndMovesOnTakesNothingOfItIntoAPicture)
{
    constexpr QPoint corner(300, 210);
    addWindowThatIsNotPainted({corner, QSize(220, 200)}, false);
    xcb_map_window(raw(), window_);
    moveAwayAndPaint(corner);
}

TEST_P(X11UnpaintedWindowTest, AWindowThatGrowsBelowAPanelAndMovesOnTakesNothingOfItIntoAPicture)
{
    constexpr QPoint corner(300, 210);
    addWindowThatIsNotPainted({corner, QSize(20, 200)}, true);
    const std::uint32_t width = 220;
    xcb_configure_window(raw(), window_, XCB_CONFIG_WINDOW_WIDTH, &width);
    moveAwayAndPaint(corner);
}

TEST_P(X11UnpaintedWindowTest, AWindowThatGrowsBelowAPanelWhileItIsAskedAboutTakesNothingOfItIntoAPicture)
{
    constexpr QPoint corner(300, 210);
    constexpr Milliseconds untilItIsAsked{100};
    addWindowThatIsNotPainted({corner, QSize(20, 200)}, false);
    // What the capture asks is answered after the grab, when the window is larger than any news has told by then.
    xcb_grab_server(raw());
    xcb_map_window(raw(), window_);
    captured->connection().synchronize();
    captured->pumpFor(untilItIsAsked);
    const std::uint32_t width = 220;
    xcb_configure_window(raw(), window_, XCB_CONFIG_WINDOW_WIDTH, &width);
    xcb_ungrab_server(raw());
    captured->connection().synchronize();
    moveAwayAndPaint(corner);
}

TEST_P(X11UnpaintedWindowTest, AWindowThatTheRootGetsBackBelowAPanelTakesNothingOfItIntoAPicture)
{
    constexpr QPoint corner(300, 210);
    addWindowThatIsNotPainted({corner, QSize(220, 200)}, true);
    xcb_reparent_window(raw(), window_, window_touches::makeHiddenParent(raw()), 0, 0);
    captured->pumpFor(Milliseconds{200});
    xcb_reparent_window(raw(), window_, captured->connection().root(), corner.x(), corner.y());
    moveAwayAndPaint(corner);
}

TEST_P(X11UnpaintedWindowTest, AWindowThatComesWhereAPanelHasMovedBeforeAnybodyHearsOfItTakesNothingOfItIntoAPicture)
{
    constexpr QPoint corner(300, 210);
    constexpr QPoint elsewhere(480, 100);
    addWindowThatIsNotPainted({corner, QSize(220, 200)}, false);
    movePanel(panels.back(), elsewhere);
    waitUntilStill();
    std::binary_semaphore heard(0);
    captured->engine().post([&heard] { heard.acquire(); });
    movePanel(panels.back(), panelCorner);
    EXPECT_TRUE(waitUntil(
        [&] {
            return ownPixels(desktop->screenshot({panelCorner, panelSize})) > 1000;
        },
        Milliseconds{1000}));
    xcb_map_window(raw(), window_);
    captured->connection().synchronize();
    heard.release();
    moveAwayAndPaint(corner);
}

/// While one compositing manager takes over from another.
class X11HandOverTest : public X11UnpaintedWindowTest {};

TEST_P(X11HandOverTest, AWindowThatIsMappedAfterACompositorsEndTakesNothingOfAPanelIntoAPictureHoweverLateItPaints)
{
    constexpr QPoint corner(300, 210);
    constexpr Milliseconds late{2000};
    addWindowThatIsNotPainted({corner, QSize(220, 200)}, false);
    ASSERT_TRUE(desktop->stopCompositor());
    xcb_map_window(raw(), window_);
    captured->connection().synchronize();
    movePanel(panels.back(), {120, 100});
    captured->connection().synchronize();
    const auto kept = [&] { return ownPixels(desktop->screenshot({panelCorner, panelSize})); };
    EXPECT_GT(kept(), 1000) << "the control: the window has the panel's pixels";
    captured->pumpFor(late);
    EXPECT_GT(kept(), 1000) << "the control: it has not painted yet";

    scene->process().signal(SIGCONT);
    const QPoint inside = corner + QPoint(100, 100);
    EXPECT_TRUE(captured->pumpUntil(
        [&] { return captured->image().pixelColor(inside - region.topLeft()).rgb() == lateColor.rgb(); }, 10'000))
        << "in the end it is in the picture";
    captured->onFrame = nullptr;
    watch.expectNoneFound(3);
}

INSTANTIATE_TEST_SUITE_P(, X11HandOverTest,
                         testing::Values(Managers{"Picom", WindowManager::openbox, Compositor::picom}),
                         [](const auto& managers) { return std::string(managers.param.name); });

INSTANTIATE_TEST_SUITE_P(Uncomposited, X11UnpaintedWindowTest,
                         testing::Values(Managers{"Openbox", WindowManager::openbox, Compositor::none},
                                         Managers{"Marco", WindowManager::marco, Compositor::none}),
                         [](const auto& managers) { return std::string(managers.param.name); });

INSTANTIATE_TEST_SUITE_P(, X11UnpaintedWindowTest, everyCompositingManager,
                         [](const auto& managers) { return std::string(managers.param.name); });

INSTANTIATE_TEST_SUITE_P(, X11MaskedCaptureTest, everyCompositingManager,
                         [](const auto& managers) { return std::string(managers.param.name); });

} // namespace
} // namespace nimbrale::test
