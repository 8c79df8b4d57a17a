// Panels against real X servers: what they show, and where clicks go.

#include "tests/desktop/panel_test.h"
#include "tests/support/image_compare.h"

#include <algorithm>
#include <unistd.h>

namespace nimbrale::test {
namespace {

using WindowManager = PrivateDesktop::WindowManager;

constexpr std::uint32_t superKey = 0xffeb;

TEST_F(X11PanelTest, withoutCompositorShowsWhatIsHalfOpaqueAndNothingElse)
{
    startDesktop({});
    const auto panel = showFrame();
    EXPECT_TRUE(imagesMatch(pictureOf(panelArea), frameWithCorners.over(background, panelArea.size(), 1, false)));
    panel->orderOut();
    EXPECT_TRUE(imagesMatch(pictureOf(panelArea), PaintedRects{}.over(background, panelArea.size(), 1, false)));
}

TEST_F(X11PanelTest, aPointIsTwoPixelsAtScaleTwo)
{
    startDesktop({.dotsPerInch = 192});
    const auto panel = showFrame({50, 40, 300, 200});
    EXPECT_EQ(panel->backingScaleFactor(), 2);
    EXPECT_TRUE(
        imagesMatch(pictureOf({100, 80, 600, 400}), frameWithCorners.over(background, panelArea.size(), 2, false)));
}

TEST_F(X11PanelTest, neverTakesTheFocus)
{
    startScene({.windowManager = WindowManager::openbox});
    scene->add("editor", {.geometry = {0, 0, 600, 400}, .overrideRedirect = false});
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

TEST_F(X11PanelTest, withoutInputClicksOnPanelsDoNothingAtAll)
{
    startScene({});
    scene->add("below", {.geometry = {0, 0, 600, 400}});
    const auto panel = showFrame();
    int presses = 0;
    int releases = 0;
    panel->onMouseDown = [&](const MouseEvent&) { ++presses; };
    panel->onMouseUp = [&](const MouseEvent&) { ++releases; };
    constexpr QPoint onFrame(122, 102);
    desktop->movePointer(onFrame);
    desktop->pressButton();
    ASSERT_TRUE(host->pumpUntil([&] { return presses == 1; }));

    host->panels->setInput(PanelInput::disabled);
    desktop->releaseButton();
    EXPECT_TRUE(host->pumpUntil([&] { return releases == 1; })) << "what was under way goes on to its end";
    desktop->click(onFrame);
    const auto later = host->makePanel({700, 80, 100, 100});
    later->rootLayer().setBackgroundColor(Color{1, 0, 0, 1});
    later->setMouseRegion({{0, 0, 100, 100}});
    later->onMouseDown = [&](const MouseEvent&) { ++presses; };
    later->orderFront();
    host->pump();
    desktop->click({750, 120});
    host->pumpFor(Milliseconds{200});
    EXPECT_EQ(presses, 1);
    EXPECT_EQ(releases, 1);
    EXPECT_EQ(scene->pressCount("below"), 0) << "nor do they reach what lies below";

    host->panels->setInput(PanelInput::enabled);
    desktop->click(onFrame);
    EXPECT_TRUE(host->pumpUntil([&] { return presses == 2 && releases == 2; }));
    desktop->click({750, 120});
    EXPECT_TRUE(host->pumpUntil([&] { return presses == 3; }));
}

TEST_F(X11PanelTest, thePanelsKnowWhenTheyWereClickedLast)
{
    startDesktop({});
    const auto panel = showFrame();
    EXPECT_EQ(host->panels->timeOfLastClick(), std::nullopt);
    std::vector<std::optional<EventTime>> times;
    const auto note = [&](const MouseEvent&) { times.push_back(host->panels->timeOfLastClick()); };
    panel->onMouseDown = note;
    panel->onMouseUp = note;
    const EventTime before = desktop->serverTime();
    desktop->click({122, 102});
    ASSERT_TRUE(host->pumpUntil([&] { return times.size() == 2; }));
    const EventTime after = desktop->serverTime();
    ASSERT_TRUE(times[0] && times[1]);
    EXPECT_LE(before, *times[0]);
    EXPECT_LT(*times[0], *times[1]) << "a click's press and release are a while apart";
    EXPECT_LE(*times[1], after);
}

TEST_F(X11PanelTest, aPanelMayGoWithinItsOwnEvents)
{
    startDesktop({});
    for (const char last : {'d', 'm', 'u'}) {
        std::unique_ptr<Panel> panel = showFrame();
        std::string seen;
        const auto endAt = [&](char kind) {
            return [&, kind](const MouseEvent&) {
                seen += kind;
                if (kind == last)
                    panel.reset();
            };
        };
        panel->onMouseDown = endAt('d');
        panel->onMouseDragged = endAt('m');
        panel->onMouseUp = endAt('u');
        desktop->movePointer({122, 102});
        desktop->pressButton();
        host->pump();
        desktop->movePointer({200, 150});
        desktop->synchronize();
        ASSERT_TRUE(host->pumpUntil([&] { return last == 'd' || seen.size() >= 2; }));
        desktop->movePointer({210, 150});
        desktop->releaseButton();
        EXPECT_TRUE(host->pumpUntil([&] { return !panel; })) << seen;
        host->pump();
        EXPECT_EQ(seen.find(last), seen.size() - 1) << seen;
    }
}

TEST_F(X11PanelTest, dragsDeliverTheNewestPlaceAndTheCommandKey)
{
    startDesktop({});
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

TEST_F(X11PanelTest, thePointerIsWhereAMouseEventHappenedWhileThatIsDealtWith)
{
    startDesktop({});
    const auto panel = showFrame();
    std::vector<Point> found;
    const auto lookAfterTheFact = [&](const MouseEvent&) {
        // The pointer goes on before anybody has asked where it is.
        desktop->movePointer({900, 600});
        found.push_back(host->screens->mouseLocation());
    };
    panel->onMouseDown = lookAfterTheFact;
    panel->onMouseUp = lookAfterTheFact;
    desktop->movePointer({122, 102});
    desktop->pressButton();
    ASSERT_TRUE(host->pumpUntil([&] { return found.size() == 1; }));
    EXPECT_EQ(found[0], (Point{122, 720 - 102}));

    panel->onMouseDragged = lookAfterTheFact;
    desktop->movePointer({300, 200});
    ASSERT_TRUE(host->pumpUntil([&] { return std::ranges::find(found, Point{300, 720 - 200}) != found.end(); }));
    panel->onMouseDragged = nullptr;
    host->pumpFor(Milliseconds{50});

    const std::size_t before = found.size();
    desktop->movePointer({400, 250});
    desktop->releaseButton();
    ASSERT_TRUE(host->pumpUntil([&] { return found.size() > before; }));
    EXPECT_EQ(found.back(), (Point{400, 720 - 250}));
    EXPECT_EQ(host->screens->mouseLocation(), (Point{900, 720 - 600}));
}

TEST_F(X11PanelTest, theMirrorWindowIsPickableUndecoratedAndBehind)
{
    startScene({.windowManager = WindowManager::openbox});
    scene->add("editor", {.geometry = {0, 0, 600, 400}, .overrideRedirect = false});
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
