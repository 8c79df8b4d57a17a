// Panels with and without compositing managers, and under those that desktops bring.

#include "tests/desktop/paint_watch.h"
#include "tests/desktop/panel_test.h"
#include "tests/support/image_compare.h"
#include "tests/support/requirements.h"

namespace nimbrale::test {
namespace {

using WindowManager = PrivateDesktop::WindowManager;
using Compositor = PrivateDesktop::Compositor;

/// With and without a compositing manager.
class X11PanelOnBothTest : public X11PanelTest, public testing::WithParamInterface<Compositor> {};

INSTANTIATE_TEST_SUITE_P(, X11PanelOnBothTest, testing::Values(Compositor::none, Compositor::picom),
                         [](const auto& parameter) {
                             return parameter.param == Compositor::none ? "withoutCompositor" : "withPicom";
                         });

TEST_F(X11PanelTest, followsACompositorThatComesAndGoes)
{
    startScene({});
    requireProgram("picom");
    addBackdrop();
    const auto panel = showFrame();
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(desktop->startCompositor());
        const QImage blended = frameWithCorners.over(background, panelArea.size(), 1, true);
        EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(100 + 288, 80 + 8) == blended.pixelColor(288, 8); },
                                    Milliseconds{5000}));
        EXPECT_TRUE(imagesMatch(pictureOf(panelArea), blended, {1, 0}));
        ASSERT_TRUE(desktop->stopCompositor());
        host->pumpFor(Milliseconds{200});
        EXPECT_TRUE(imagesMatch(pictureOf(panelArea), frameWithCorners.over(background, panelArea.size(), 1, false)));
    }
}

TEST_F(X11PanelTest, whatItDrewLastIsReportedOnceMoreToACompositor)
{
    startScene({.compositor = Compositor::picom});
    const auto panel = showFrame();
    host->pumpFor(Milliseconds{1500});
    PaintWatch watch(std::move(*x11::Connection::open(desktop->displayName())), {50, 50, 10, 10},
                     host->ownWindowsInOrder().front());
    EXPECT_FALSE(watch.takePainted()) << "the control: nothing is drawn any more";
    const auto layer = std::make_shared<Layer>();
    layer->setBackgroundColor(Color{1, 0, 0, 1});
    layer->setFrame({50, 50, 10, 10});
    panel->rootLayer().addSublayer(layer);
    ASSERT_TRUE(host->pumpUntil([&] { return watch.takePainted(); }));
    EXPECT_TRUE(host->pumpUntil([&] { return watch.takePainted(); })) << "although it draws nothing more";
}

/// Under the compositing managers that desktops bring.
class X11PanelOnDesktopsTest : public X11PanelTest, public testing::WithParamInterface<WindowManager> {};

INSTANTIATE_TEST_SUITE_P(, X11PanelOnDesktopsTest,
                         testing::Values(WindowManager::xfwm4, WindowManager::kwin, WindowManager::marco),
                         [](const auto& parameter) { return PrivateDesktop::managerName(parameter.param); });

TEST_P(X11PanelOnDesktopsTest, isBlendedWithoutAShadow)
{
    startScene({.windowManager = GetParam(), .compositor = Compositor::windowManagersOwn});
    // xfwm4 steps aside for a window that covers everything and is not left to it, and shows nothing above it then.
    addBackdrop(700);
    const auto panel = showFrame();
    const QRect around = panelArea.adjusted(-50, -50, 50, 50);
    QImage expected(around.size(), QImage::Format_RGB32);
    expected.fill(background);
    QPainter(&expected).drawImage(50, 50, frameWithCorners.over(background, panelArea.size(), 1, true));
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(100 + 22, 80 + 22) == yellow; }, Milliseconds{5000}));
    host->pumpFor(Milliseconds{500});
    EXPECT_TRUE(imagesMatch(pictureOf(around), expected, {1, 0}));
}

TEST_P(X11PanelOnDesktopsTest, isSeenAboveAFullScreenWindow)
{
    startScene({.windowManager = GetParam(), .compositor = Compositor::windowManagersOwn});
    const auto panel = showFrame();
    scene->add("film", {.geometry = {0, 0, 1280, 720}, .seed = 0, .overrideRedirect = false, .isFullScreen = true});
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(640, 700) == QColor(Qt::white); }, Milliseconds{5000}));
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(100 + 22, 80 + 22) == yellow; }, Milliseconds{5000}));
    // Still so after the window has drawn, which is when some compositing managers think of stepping aside.
    scene->fill("film", {500, 500, 50, 50}, Qt::blue);
    host->pumpFor(Milliseconds{500});
    EXPECT_EQ(desktop->pixel(510, 510), QColor(Qt::blue));
    EXPECT_EQ(desktop->pixel(100 + 22, 80 + 22), yellow);
}

TEST_P(X11PanelOnBothTest, onlyTheMouseRegionTakesClicks)
{
    startScene({.compositor = GetParam()});
    scene->add("below", {.geometry = {0, 0, 600, 400}});
    const auto panel = showFrame();
    int presses = 0;
    MouseEvent last;
    panel->onMouseDown = [&](const MouseEvent& event) {
        ++presses;
        last = event;
    };
    // From the bottom-left: the top-left corner of the frame.
    panel->setMouseRegion({{20, 175, 10.2, 5}});
    host->pump();

    desktop->click({250, 180});
    EXPECT_EQ(scene->pressCount("below"), 1);
    desktop->click({100 + 30, 80 + 22});
    EXPECT_TRUE(host->pumpUntil([&] { return presses == 1; }));
    EXPECT_EQ(last.locationInPanel, (Point{30, 178}));
    EXPECT_EQ(last.screenLocation, (Point{130, 720 - 102}));
    desktop->click({100 + 31, 80 + 22});
    EXPECT_EQ(scene->pressCount("below"), 2);

    panel->setMouseRegion({});
    host->pump();
    desktop->click({100 + 22, 80 + 22});
    EXPECT_EQ(scene->pressCount("below"), 3);
    panel->setMouseRegion({{20, 175, 10.2, 5}});
    host->pump();
    desktop->click({100 + 22, 80 + 22});
    EXPECT_TRUE(host->pumpUntil([&] { return presses == 2; }));
    EXPECT_EQ(scene->pressCount("below"), 3);
}

TEST_P(X11PanelOnBothTest, growingToTheWholeDisplayKeepsThePictureInPlace)
{
    startScene({.compositor = GetParam()});
    addBackdrop();
    const auto panel = host->makePanel(panelPlace);
    int paintings = 0;
    // Anchored to the screen, as a frame that is dragged is.
    const auto paint = [&] {
        const Rect frame = panel->frame();
        const Rect onPanel{120 - frame.x, frame.maxY() - (720 - 100), 60, 40};
        panel->rootLayer().setCoverage({onPanel});
        panel->rootLayer().setPainter([&paintings, onPanel](QPainter& painter, const Rect&) {
            ++paintings;
            painter.fillRect(QRectF(onPanel.x, onPanel.y, onPanel.width, onPanel.height), yellow);
        });
    };
    paint();
    panel->orderFront();
    const QImage expected = PaintedRects{{{{120, 100, 60, 40}, yellow}}}.over(background, {1280, 720}, 1, true);
    ASSERT_TRUE(host->pumpUntil([&] { return desktop->screenshot() == expected; }));
    paintings = 0;

    for (const Rect& frame : {Rect{0, 0, 1280, 720}, host->onScreen(panelPlace)}) {
        panel->setFrame(frame);
        host->connection->synchronize();
        if (GetParam() == Compositor::picom)
            sleepFor(Milliseconds{150});
        EXPECT_EQ(paintings, 0);
        EXPECT_TRUE(imagesMatch(desktop->screenshot(), expected));
        paint();
        EXPECT_TRUE(host->pumpUntil([&] { return paintings > 0; }));
        host->pumpFor(Milliseconds{100});
        EXPECT_TRUE(imagesMatch(desktop->screenshot(), expected));
        EXPECT_EQ(paintings, 1) << "exposures were painted twice";
        paintings = 0;
    }
}

} // namespace
} // namespace nimbrale::test
