// Panels against real X servers: what they show, where clicks go, and how they stand among other programs' windows.

#include "tests/desktop/panel_host.h"
#include "tests/support/image_compare.h"
#include "tests/support/scene.h"

#include <chrono>
#include <cstring>
#include <unistd.h>

namespace nimbrale::test {
namespace {

using Options = PrivateDesktop::Options;
using Compositor = PrivateDesktop::Compositor;
using WindowManager = PrivateDesktop::WindowManager;

constexpr std::uint32_t superKey = 0xffeb;
const QColor yellow{255, 214, 10};
const Rect panelPlace{100, 80, 300, 200};
const QRect panelArea{100, 80, 300, 200};

/// A frame with translucent corners, above and below the half.
const PaintedRects frameWithCorners{{{{20, 20, 260, 5}, yellow},
                                     {{20, 175, 260, 5}, yellow},
                                     {{20, 25, 5, 150}, yellow},
                                     {{275, 25, 5, 150}, yellow},
                                     {{4, 4, 10, 10}, QColor(200, 40, 80, 191)},
                                     {{286, 4, 10, 10}, QColor(200, 40, 80, 64)}}};

class X11PanelTest : public PanelTest {
protected:
    void TearDown() override
    {
        scene.reset();
        PanelTest::TearDown();
    }

    void startScene(const Options& options)
    {
        startDesktop(options);
        if (IsSkipped())
            return;
        scene = Scene::start(*desktop);
        ASSERT_TRUE(scene);
    }

    [[nodiscard]] std::unique_ptr<Panel> showFrame(const Rect& place = panelPlace)
    {
        auto panel = host->makePanel(place);
        frameWithCorners.applyTo(panel->rootLayer());
        panel->orderFront();
        host->pump();
        return panel;
    }

    [[nodiscard]] xcb_window_t focus()
    {
        xcb_connection_t* const raw = desktop->connection();
        const x11::Reply<xcb_get_input_focus_reply_t> reply(
            xcb_get_input_focus_reply(raw, xcb_get_input_focus(raw), nullptr));
        return reply->focus;
    }

    [[nodiscard]] std::string property(xcb_window_t window, const std::string& name, const std::string& type)
    {
        xcb_connection_t* const raw = host->connection->get();
        const x11::Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            raw, xcb_get_property(raw, 0, window, host->connection->atom(name), host->connection->atom(type), 0, 1000),
            nullptr));
        return {static_cast<const char*>(xcb_get_property_value(reply.get())),
                std::size_t(xcb_get_property_value_length(reply.get()))};
    }

    [[nodiscard]] std::vector<std::uint32_t> words(xcb_window_t window, const std::string& name,
                                                   const std::string& type)
    {
        const std::string bytes = property(window, name, type);
        std::vector<std::uint32_t> values(bytes.size() / 4);
        std::memcpy(values.data(), bytes.data(), values.size() * 4);
        return values;
    }

    /// Compositing managers take a plain colour of the root for no background at all.
    void addBackdrop()
    {
        Scene::Window backdrop;
        backdrop.geometry = {0, 0, 1280, 720};
        backdrop.seed = 0;
        backdrop.colour = background;
        scene->add("backdrop", backdrop);
    }

    /// Among the windows that the window manager manages.
    [[nodiscard]] xcb_window_t clientWithTitle(const std::string& title)
    {
        for (const xcb_window_t client : words(host->connection->root(), "_NET_CLIENT_LIST", "WINDOW")) {
            if (property(client, "WM_NAME", "UTF8_STRING") == title)
                return client;
        }
        return XCB_NONE;
    }

    [[nodiscard]] QRect areaOf(xcb_window_t window)
    {
        xcb_connection_t* const raw = host->connection->get();
        const x11::Reply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(raw, xcb_get_geometry(raw, window), nullptr));
        const x11::Reply<xcb_translate_coordinates_reply_t> place(xcb_translate_coordinates_reply(
            raw, xcb_translate_coordinates(raw, window, host->connection->root(), 0, 0), nullptr));
        return {place->dst_x, place->dst_y, geometry->width, geometry->height};
    }

    std::unique_ptr<Scene> scene;
};

/// With and without a compositor.
class X11PanelOnBothTest : public X11PanelTest, public testing::WithParamInterface<Compositor> {};

INSTANTIATE_TEST_SUITE_P(, X11PanelOnBothTest, testing::Values(Compositor::none, Compositor::picom),
                         [](const auto& parameter) {
                             return parameter.param == Compositor::none ? "withoutCompositor" : "withPicom";
                         });

TEST_F(X11PanelTest, withoutCompositorShowsWhatIsHalfOpaqueAndNothingElse)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const auto panel = showFrame();
    EXPECT_TRUE(imagesMatch(pictureOf(panelArea), frameWithCorners.over(background, panelArea.size(), 1, false)));
    panel->orderOut();
    EXPECT_TRUE(imagesMatch(pictureOf(panelArea), PaintedRects{}.over(background, panelArea.size(), 1, false)));
}

TEST_F(X11PanelTest, aPointIsTwoPixelsAtScaleTwo)
{
    Options options;
    options.dotsPerInch = 192;
    startDesktop(options);
    if (IsSkipped())
        return;
    const auto panel = showFrame({50, 40, 300, 200});
    EXPECT_EQ(panel->backingScaleFactor(), 2);
    EXPECT_TRUE(
        imagesMatch(pictureOf({100, 80, 600, 400}), frameWithCorners.over(background, panelArea.size(), 2, false)));
}

TEST_F(X11PanelTest, followsACompositorThatComesAndGoes)
{
    startScene({});
    if (IsSkipped())
        return;
    addBackdrop();
    const auto panel = showFrame();
    for (int round = 0; round < 2; ++round) {
        desktop->startCompositor();
        if (!desktop->isComposited())
            GTEST_SKIP() << "picom is not installed or does not start";
        const QImage blended = frameWithCorners.over(background, panelArea.size(), 1, true);
        EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(100 + 288, 80 + 8) == blended.pixelColor(288, 8); },
                                    Milliseconds{5000}));
        EXPECT_TRUE(imagesMatch(pictureOf(panelArea), blended, {1, 0}));
        desktop->stopCompositor();
        host->pumpFor(Milliseconds{200});
        EXPECT_TRUE(imagesMatch(pictureOf(panelArea), frameWithCorners.over(background, panelArea.size(), 1, false)));
    }
}

TEST_P(X11PanelOnBothTest, onlyTheMouseRegionTakesClicks)
{
    Options options;
    options.compositor = GetParam();
    startScene(options);
    if (IsSkipped())
        return;
    Scene::Window below;
    below.geometry = {0, 0, 600, 400};
    scene->add("below", below);
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

    panel->setIgnoresMouseEvents(true);
    host->pump();
    desktop->click({100 + 22, 80 + 22});
    EXPECT_EQ(scene->pressCount("below"), 3);
    panel->setIgnoresMouseEvents(false);
    host->pump();
    desktop->click({100 + 22, 80 + 22});
    EXPECT_TRUE(host->pumpUntil([&] { return presses == 2; }));
    EXPECT_EQ(scene->pressCount("below"), 3);
}

TEST_F(X11PanelTest, neverTakesTheFocus)
{
    Options options;
    options.windowManager = WindowManager::openbox;
    startScene(options);
    if (IsSkipped())
        return;
    Scene::Window window;
    window.geometry = {0, 0, 600, 400};
    window.overrideRedirect = false;
    scene->add("editor", window);
    ASSERT_TRUE(waitUntil([&] { return scene->focused() == "editor"; }, Milliseconds{3000}));
    const xcb_window_t before = focus();

    const auto panel = showFrame();
    const auto mirror = host->makePanel({300, 200, 200, 100}, PanelStyle::mirrorWindow);
    mirror->orderBack();
    desktop->click({100 + 22, 80 + 22});
    host->pumpFor(Milliseconds{300});
    EXPECT_EQ(focus(), before);
    EXPECT_EQ(scene->focused(), "editor");
}

TEST_F(X11PanelTest, staysAboveFullScreenWindowsThatComeLater)
{
    startScene({});
    if (IsSkipped())
        return;
    const auto panel = showFrame();
    Scene::Window cover;
    cover.geometry = {0, 0, 1280, 720};
    cover.seed = 0;
    cover.colour = Qt::white;
    scene->add("cover", cover);
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(100 + 22, 80 + 22) == yellow; }));
    EXPECT_TRUE(imagesMatch(pictureOf(panelArea), frameWithCorners.over(Qt::white, panelArea.size(), 1, false)));

    scene->raise("cover");
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(100 + 22, 80 + 22) == yellow; }));
}

TEST_F(X11PanelTest, doesNotFightAtFullSpeedWithAProgramThatWantsTheSame)
{
    startScene({});
    if (IsSkipped())
        return;
    const auto panel = showFrame();
    Scene::Window rival;
    rival.geometry = {0, 0, 1280, 720};
    scene->add("rival", rival);
    host->pumpFor(Milliseconds{100});

    const std::vector<xcb_window_t> own = host->ownWindowsInOrder();
    ASSERT_EQ(own.size(), 1U);
    int corrections = 0;
    const auto counter = host->events->add([&](const xcb_generic_event_t& event) {
        if (x11::eventType(event) == XCB_CONFIGURE_NOTIFY &&
            x11::eventAs<xcb_configure_notify_event_t>(event).window == own.front())
            ++corrections;
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
    int raises = 0;
    while (std::chrono::steady_clock::now() < end) {
        scene->raise("rival");
        ++raises;
        host->pumpFor(Milliseconds{2});
    }
    EXPECT_GT(raises, 100);
    EXPECT_GE(corrections, 10);
    EXPECT_LE(corrections, 20);
}

TEST_F(X11PanelTest, standsByLevelThenByLastOrderedFront)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const auto filled = [&](int level, const QColor& colour) {
        auto panel = host->makePanel(panelPlace, PanelStyle::overlay, level);
        PaintedRects{{{{0, 0, 300, 200}, colour}}}.applyTo(panel->rootLayer());
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
    Options options;
    options.windowManager = WindowManager::openbox;
    startScene(options);
    if (IsSkipped())
        return;
    Scene::Window settings;
    settings.geometry = {50, 50, 400, 300};
    settings.seed = 0;
    settings.overrideRedirect = false;
    scene->add("settings", settings);
    const auto panel = showFrame();
    ASSERT_TRUE(host->pumpUntil([&] { return desktop->pixel(100 + 22, 80 + 22) == yellow; }));

    host->panels->setWindowAbovePanels(scene->identifier("settings"));
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(100 + 22, 80 + 22) == QColor(Qt::white); }));
    host->pumpFor(Milliseconds{300});
    EXPECT_EQ(desktop->pixel(100 + 22, 80 + 22), QColor(Qt::white));
    host->panels->setWindowAbovePanels(0);
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(100 + 22, 80 + 22) == yellow; }));
}

TEST_F(X11PanelTest, dragsDeliverTheNewestPlaceAndTheCommandKey)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const auto panel = showFrame();
    std::vector<std::pair<char, MouseEvent>> seen;
    panel->onMouseDown = [&](const MouseEvent& event) { seen.emplace_back('d', event); };
    panel->onMouseDragged = [&](const MouseEvent& event) { seen.emplace_back('m', event); };
    panel->onMouseUp = [&](const MouseEvent& event) { seen.emplace_back('u', event); };
    desktop->movePointer({122, 102});
    desktop->pressButton();
    ASSERT_TRUE(host->pumpUntil([&] { return seen.size() == 1; }));
    EXPECT_FALSE(seen[0].second.isCommandHeld);

    desktop->pressKey(superKey);
    for (int step = 0; step < 50; ++step)
        desktop->movePointer({200 + step, 300});
    desktop->synchronize();
    ASSERT_TRUE(host->pumpUntil([&] { return seen.size() == 2; }));
    EXPECT_EQ(seen[1].second.screenLocation, (Point{249, 720 - 300}));
    EXPECT_TRUE(seen[1].second.isCommandHeld);

    // The panel grows under the pointer: places in it are by where it is now.
    panel->setFrame({0, 0, 1280, 720});
    desktop->movePointer({1000, 700});
    desktop->releaseKey(superKey);
    desktop->releaseButton();
    ASSERT_TRUE(host->pumpUntil([&] { return seen.size() == 4; }));
    EXPECT_EQ(seen[2].first, 'm');
    EXPECT_EQ(seen[2].second.locationInPanel, (Point{1000, 20}));
    EXPECT_EQ(seen[3].first, 'u');
    EXPECT_EQ(seen[3].second.locationInPanel, (Point{1000, 20}));
    EXPECT_FALSE(seen[3].second.isCommandHeld);
}

TEST_P(X11PanelOnBothTest, growingToTheWholeDisplayKeepsThePictureInPlace)
{
    Options options;
    options.compositor = GetParam();
    startScene(options);
    if (IsSkipped())
        return;
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

TEST_F(X11PanelTest, theMirrorWindowIsPickableUndecoratedAndBehind)
{
    Options options;
    options.windowManager = WindowManager::openbox;
    startScene(options);
    if (IsSkipped())
        return;
    Scene::Window window;
    window.geometry = {0, 0, 600, 400};
    window.overrideRedirect = false;
    scene->add("editor", window);
    const std::string title = "🎯 Share this · Screen area 301×220";
    const auto mirror = host->makePanel({100, 500, 301, 220}, PanelStyle::mirrorWindow, 0, title);
    mirror->rootLayer().setBackgroundColor(Color{1, 0, 0, 1});
    mirror->orderBack();
    ASSERT_TRUE(host->pumpUntil([&] { return desktop->pixel(400, 719) == QColor(Qt::red); }));
    const xcb_window_t client = clientWithTitle(title);
    ASSERT_NE(client, XCB_NONE);
    EXPECT_EQ(property(client, "_NET_WM_NAME", "UTF8_STRING"), title);
    EXPECT_EQ(property(client, "WM_CLASS", "STRING"), std::string("nimbrale\0nimbrale\0", 18));
    EXPECT_EQ(words(client, "_NET_WM_PID", "CARDINAL"), std::vector<std::uint32_t>{std::uint32_t(getpid())});
    EXPECT_EQ(words(client, "_NET_WM_WINDOW_TYPE", "ATOM"),
              std::vector<std::uint32_t>{host->connection->atom("_NET_WM_WINDOW_TYPE_NORMAL")});
    constexpr std::uint32_t normalState = 1;
    EXPECT_EQ(words(client, "WM_STATE", "WM_STATE").at(0), normalState);
    EXPECT_EQ(areaOf(client), QRect(100, 500, 301, 220));

    // A part beyond the screen's edge is kept, too.
    mirror->setFrame(host->onScreen({-60, 300, 700, 150}));
    mirror->setTitle("🎯 Share this · Screen area 700×150");
    EXPECT_TRUE(host->pumpUntil([&] { return areaOf(client) == QRect(-60, 300, 700, 150); }));
    EXPECT_EQ(property(client, "WM_NAME", "UTF8_STRING"), "🎯 Share this · Screen area 700×150");
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(639, 449) == QColor(Qt::red); }));
    EXPECT_NE(desktop->pixel(640, 449), QColor(Qt::red));
    EXPECT_NE(desktop->pixel(100, 350), QColor(Qt::red)) << "the mirror window stands before another window";

    mirror->orderOut();
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(639, 449) == background; }));
    mirror->orderBack();
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(639, 449) == QColor(Qt::red); }));
    EXPECT_EQ(areaOf(client), QRect(-60, 300, 700, 150));
}

TEST_F(X11PanelTest, overlaysAreOfATypeThatPickersLeaveOut)
{
    startDesktop({});
    if (IsSkipped())
        return;
    const auto panel = showFrame();
    const std::vector<xcb_window_t> own = host->ownWindowsInOrder();
    ASSERT_EQ(own.size(), 1U);
    EXPECT_EQ(words(own[0], "_NET_WM_WINDOW_TYPE", "ATOM"),
              std::vector<std::uint32_t>{host->connection->atom("_NET_WM_WINDOW_TYPE_DOCK")});
    EXPECT_EQ(words(own[0], "_NET_WM_PID", "CARDINAL"), std::vector<std::uint32_t>{std::uint32_t(getpid())});
    EXPECT_FALSE(property(own[0], "WM_CLIENT_MACHINE", "STRING").empty());
}

} // namespace
} // namespace nimbrale::test
