// How panels stand among each other and among other programs' windows.

#include "platform/x11/server/events.h"
#include "tests/desktop/panel_test.h"
#include "tests/support/image_compare.h"

#include <chrono>
#include <string>
#include <vector>

namespace nimbrale::test {
namespace {

using WindowManager = PrivateDesktop::WindowManager;

TEST_F(X11PanelTest, staysAboveFullScreenWindowsThatComeLater)
{
    startScene({});
    const auto panel = showFrame();
    scene->add("cover", {.geometry = {0, 0, 1280, 720}, .seed = 0, .color = Qt::white});
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(100 + 22, 80 + 22) == yellow; }));
    EXPECT_TRUE(imagesMatch(pictureOf(panelArea), frameWithCorners.over(Qt::white, panelArea.size(), 1, false)));

    scene->raise("cover");
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(100 + 22, 80 + 22) == yellow; }));
}

TEST_F(X11PanelTest, doesNotFightAtFullSpeedWithAProgramThatWantsTheSame)
{
    startScene({});
    const auto panel = showFrame();
    // A window that covered all of the display would first be taken for what may be a locker.
    scene->add("rival", {.geometry = {0, 0, 1280, 700}});
    host->pumpFor(Milliseconds{100});

    const std::vector<xcb_window_t> own = host->ownWindowsInOrder();
    ASSERT_EQ(own.size(), 1U);
    int corrections = 0;
    const auto counter = host->events->add({XCB_CONFIGURE_NOTIFY}, [&](const auto& event) {
        const auto& configure = x11::eventAs<xcb_configure_notify_event_t>(event);
        if (configure.event == host->connection->root() && configure.window == own.front())
            ++corrections;
    });
    const auto start = std::chrono::steady_clock::now();
    int raises = 0;
    while (std::chrono::steady_clock::now() < start + std::chrono::milliseconds(1500)) {
        scene->raise("rival");
        ++raises;
        host->pumpFor(Milliseconds{2});
    }
    EXPECT_GT(raises, 100);
    EXPECT_GE(corrections, 10);
    // Ten in each second that began, and one whose event was on its way when the count began.
    const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
    EXPECT_LE(corrections, 10 * (elapsed.count() + 1) + 1);
}

TEST_F(X11PanelTest, standsByLevelThenByLastOrderedFront)
{
    startDesktop({});
    const auto filled = [&](int level, const QColor& color) {
        auto panel = host->makePanel(panelPlace, PanelStyle::overlay, level);
        PaintedRects{{{{0, 0, 300, 200}, color}}}.applyTo(panel->rootLayer());
        return panel;
    };
    const auto webcam = filled(panel_level::webcam, Qt::red);
    const auto frame = filled(panel_level::frame, Qt::green);
    const auto other = filled(panel_level::frame, Qt::blue);
    frame->orderFront();
    other->orderFront();
    webcam->orderFront();
    host->pump();
    EXPECT_EQ(desktop->pixel(200, 200), QColor(Qt::blue));
    frame->orderFront();
    host->pump();
    EXPECT_EQ(desktop->pixel(200, 200), QColor(Qt::green));
    frame->orderOut();
    other->orderOut();
    host->pump();
    EXPECT_EQ(desktop->pixel(200, 200), QColor(Qt::red));
}

TEST_F(X11PanelTest, aChosenWindowMayStandAbove)
{
    startScene({.windowManager = WindowManager::openbox});
    scene->add("settings", {.geometry = {50, 50, 400, 300}, .seed = 0, .overrideRedirect = false});
    const auto panel = showFrame();
    ASSERT_TRUE(host->pumpUntil([&] { return desktop->pixel(100 + 22, 80 + 22) == yellow; }));

    Subscription above = host->panels->keepBelow(scene->identifier("settings"));
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(100 + 22, 80 + 22) == QColor(Qt::white); }));
    host->pumpFor(Milliseconds{300});
    EXPECT_EQ(desktop->pixel(100 + 22, 80 + 22), QColor(Qt::white));
    above.reset();
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(100 + 22, 80 + 22) == yellow; }));
}

TEST_F(X11PanelTest, severalWindowsMayStandAboveEachForAsLongAsItIsWanted)
{
    startScene({.windowManager = WindowManager::openbox});
    const auto add = [&](const std::string& name, const QRect& geometry, const QColor& color) {
        scene->add(name, {.geometry = geometry, .seed = 0, .color = color, .overrideRedirect = false});
    };
    // Each covers another part of the frame's left border.
    add("editor", {50, 50, 100, 60}, Qt::blue);
    add("settings", {50, 130, 100, 60}, Qt::white);
    add("welcome", {50, 210, 100, 60}, Qt::green);
    const auto panel = showFrame();
    const auto borderAt = [&](int y) { return desktop->pixel(100 + 22, y); };
    constexpr int inEditor = 105;
    constexpr int inSettings = 160;
    constexpr int inWelcome = 240;
    const auto shows = [&](const QColor& editor, const QColor& settings, const QColor& welcome) {
        return host->pumpUntil([&] {
            return borderAt(inEditor) == editor && borderAt(inSettings) == settings && borderAt(inWelcome) == welcome;
        });
    };
    ASSERT_TRUE(shows(yellow, yellow, yellow));

    Subscription settings = host->panels->keepBelow(scene->identifier("settings"));
    scene->raise("settings");
    EXPECT_TRUE(shows(yellow, Qt::white, yellow));
    Subscription welcome = host->panels->keepBelow(scene->identifier("welcome"));
    EXPECT_TRUE(shows(yellow, Qt::white, Qt::green));
    scene->raise("welcome");
    scene->raise("settings");
    EXPECT_TRUE(shows(yellow, Qt::white, Qt::green)) << "whichever of the two is in front";
    // A panel that comes later stands behind both, too.
    const auto second = host->makePanel({100, 230, 60, 30});
    second->rootLayer().setBackgroundColor(Color{1, 0, 0, 1});
    second->orderFront();
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(155, 240) == QColor(Qt::red); }));
    EXPECT_EQ(borderAt(inWelcome), QColor(Qt::green));

    scene->unmap("welcome");
    EXPECT_TRUE(host->pumpUntil([&] { return borderAt(inWelcome) == QColor(Qt::red); }));
    EXPECT_EQ(borderAt(inSettings), QColor(Qt::white));
    scene->map("welcome");
    EXPECT_TRUE(shows(yellow, Qt::white, Qt::green));
    settings.reset();
    EXPECT_TRUE(shows(yellow, yellow, Qt::green));
    welcome.reset();
    EXPECT_TRUE(host->pumpUntil([&] { return borderAt(inWelcome) == QColor(Qt::red); }));
}

TEST_F(X11PanelTest, aWindowAboveMayBeGivenUpAfterThePanels)
{
    startScene({});
    scene->add("settings", {.geometry = {50, 50, 100, 60}});
    const Subscription above = host->panels->keepBelow(scene->identifier("settings"));
    host.reset();
}

} // namespace
} // namespace nimbrale::test
