// The webcam's panel: what it shows under the pointer, which clicks it takes and how it is dragged.

#include "webcam/webcam_window.h"

#include "tests/fakes/fake_platform.h"
#include "tests/fakes/offscreen_application.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using Shape = AppSettings::WebcamShape;

const Rect screenFrame{0, 0, 1512, 982};
const Rect frame{400, 300, 300, 200};
constexpr Point onMove{550, 483};
constexpr Point onClose{683, 483};
constexpr Point onSettings{683, 455};
constexpr Point onResize{683, 317};
constexpr Point onPicture{500, 400};
constexpr Point outside{100, 100};

class WebcamWindowTest : public testing::Test {
protected:
    WebcamWindowTest()
    {
        startOffscreenApplication();
        platform.screens().list = {makeScreen(1, screenFrame)};
        platform.screens().mouse = outside;
        window = WebcamWindow::create(platform.panels(), platform.screens(), platform.mainQueue(), pictures, frame);
        window->onFrameChange = [this](const Rect& changed) { changes.push_back(changed); };
        window->onChangeEnded = [this](const Rect& last) { ended.push_back(last); };
        window->onHoverChange = [this](bool isHovered) { hovers.push_back(isHovered); };
        window->onClose = [this] { events.push_back("close"); };
        window->onOpenSettings = [this] { events.push_back("settings"); };
        window->orderFront();
    }

    /// The webcam's; a tip comes after it.
    FakePanel& panel() { return *platform.panels().living.at(0); }
    void pointAt(Point location)
    {
        platform.screens().mouse = location;
        platform.screens().notifyPointer();
        platform.mainQueue().advance(40ms);
    }
    void drag(Point from, Point to)
    {
        panel().press(from);
        panel().dragTo(to);
        panel().release(to);
    }
    [[nodiscard]] double opacity() { return window->view().pictureLayer().layer()->opacity(); }

    FakePlatform platform;
    std::shared_ptr<WebcamPictures> pictures = std::make_shared<WebcamPictures>();
    std::unique_ptr<WebcamWindow> window;
    std::vector<Rect> changes;
    std::vector<Rect> ended;
    std::vector<bool> hovers;
    std::vector<std::string> events;
};

TEST_F(WebcamWindowTest, StandsBehindTheFrameAndInFrontOfWindows)
{
    EXPECT_EQ(panel().options.level, panel_level::webcam);
    EXPECT_LT(panel_level::webcam, panel_level::frame);
    EXPECT_EQ(panel().options.style, PanelStyle::overlay);
    EXPECT_EQ(panel().order, FakePanel::Order::front);
}

TEST_F(WebcamWindowTest, ThePictureFillsIt)
{
    EXPECT_EQ(window->view().pictureLayer().layer()->frame(), (Rect{0, 0, 300, 200}));
    window->setFrame({10, 20, 400, 240});
    EXPECT_EQ(panel().frame(), (Rect{10, 20, 400, 240}));
    EXPECT_EQ(window->view().pictureLayer().layer()->frame(), (Rect{0, 0, 400, 240}));
}

TEST_F(WebcamWindowTest, AppearanceReachesThePicture)
{
    window->applyAppearance(Shape::circle, false, true);
    EXPECT_EQ(window->view().pictureLayer().shape(), Shape::circle);
    EXPECT_FALSE(window->view().pictureLayer().isMirrored());
    EXPECT_TRUE(window->isSquare());
    window->applyAppearance(Shape::rectangle, true, true);
    EXPECT_FALSE(window->isSquare());
    EXPECT_TRUE(window->view().pictureLayer().isMirrored());
}

TEST_F(WebcamWindowTest, ThePictureFadesUnderThePointer)
{
    pointAt(onPicture);
    EXPECT_TRUE(window->view().isHovered());
    platform.mainQueue().advance(150ms);
    EXPECT_EQ(opacity(), 0.2);
    pointAt(outside);
    platform.mainQueue().advance(150ms);
    EXPECT_EQ(opacity(), 1);
    EXPECT_EQ(hovers, (std::vector<bool>{true, false}));
}

TEST_F(WebcamWindowTest, APictureThatDoesNotFadeStays)
{
    window->applyAppearance(Shape::rounded, true, false);
    pointAt(onPicture);
    platform.mainQueue().advance(1s);
    EXPECT_EQ(opacity(), 1);
    window->applyAppearance(Shape::rounded, true, true);
    platform.mainQueue().advance(150ms);
    EXPECT_EQ(opacity(), 0.2) << "the setting is changed under the pointer";
}

TEST_F(WebcamWindowTest, AFadingPictureLetsClicksThroughBesideItsControls)
{
    EXPECT_FALSE(panel().takesClickAt(onPicture));
    for (const Point control : {onMove, onClose, onSettings, onResize})
        EXPECT_TRUE(panel().takesClickAt(control));
    window->applyAppearance(Shape::rounded, true, false);
    EXPECT_TRUE(panel().takesClickAt(onPicture));
    panel().press(onPicture);
    panel().release(onPicture);
    EXPECT_TRUE(events.empty() && changes.empty() && ended.empty()) << "and does nothing";
}

TEST_F(WebcamWindowTest, CursorsTellTheControls)
{
    const std::pair<Point, CursorShape> cursors[]{{onMove, CursorShape::openHand},
                                                  {onClose, CursorShape::pointingHand},
                                                  {onSettings, CursorShape::pointingHand},
                                                  {onResize, CursorShape::resizeBottomRight},
                                                  {onPicture, CursorShape::arrow}};
    for (const auto& [place, cursor] : cursors) {
        pointAt(place);
        EXPECT_EQ(panel().cursor, cursor) << place.x << ", " << place.y;
    }
    pointAt(onMove);
    panel().press(onMove);
    EXPECT_EQ(panel().cursor, CursorShape::closedHand);
    panel().release(onMove);
    EXPECT_EQ(panel().cursor, CursorShape::openHand);
}

TEST_F(WebcamWindowTest, IsMovedByWholePoints)
{
    drag(onMove, {onMove.x + 10.7, onMove.y - 5.9});
    EXPECT_EQ(window->frame(), frame.movedBy(10, -5));
    EXPECT_EQ(changes, (std::vector{frame.movedBy(10, -5)}));
    EXPECT_EQ(ended, (std::vector{frame.movedBy(10, -5)}));
}

// A pixel is no whole number of points there, and differences between pixels miss whole numbers by a hair.
TEST_F(WebcamWindowTest, FollowsThePointerToThePointWhereTheScaleIsOneAndAHalf)
{
    const auto atPixelRow = [](int row) { return Point{onMove.x, screenFrame.height - row / 1.5}; };
    for (int row = 746; row < 752; ++row) {
        window->setFrame(frame);
        drag(atPixelRow(row), atPixelRow(row - 180));
        EXPECT_EQ(window->frame(), frame.movedBy(0, 120)) << "from row " << row;
    }
}

TEST_F(WebcamWindowTest, IsResizedWithItsTopLeftCornerInPlace)
{
    drag(onResize, {onResize.x + 40, onResize.y - 10});
    EXPECT_EQ(window->frame(), (Rect{400, 290, 340, 210}));
    EXPECT_EQ(window->frame().maxY(), frame.maxY());
}

TEST_F(WebcamWindowTest, ASquareStaysOne)
{
    window->applyAppearance(Shape::circle, true, true);
    window->setFrame({400, 300, 200, 200});
    const Point corner{583, 317};
    drag(corner, {corner.x + 40, corner.y + 10});
    EXPECT_EQ(window->frame(), (Rect{400, 260, 240, 240}));
}

TEST_F(WebcamWindowTest, GoesOnlyWhereItIsAllowed)
{
    window->constrain = [](const Rect& wanted) { return Rect{410, wanted.y, wanted.width, wanted.height}; };
    drag(onMove, {onMove.x + 300, onMove.y + 7});
    EXPECT_EQ(window->frame(), frame.movedBy(10, 7));
    EXPECT_EQ(changes.back(), frame.movedBy(10, 7));
}

TEST_F(WebcamWindowTest, ButtonsActOnReleaseOverThemselves)
{
    panel().press(onClose);
    EXPECT_TRUE(events.empty());
    panel().release(onClose);
    panel().press(onSettings);
    panel().release(onSettings);
    EXPECT_EQ(events, (std::vector<std::string>{"close", "settings"}));
    panel().press(onClose);
    panel().release(onPicture);
    panel().press(onClose);
    panel().release(onSettings);
    EXPECT_EQ(events.size(), 2U) << "released elsewhere";
}

TEST_F(WebcamWindowTest, APointerThatLeftWhileAControlWasHeldIsMissedAtTheRelease)
{
    platform.screens().tellsOfPointer = true;
    window.reset();
    window = WebcamWindow::create(platform.panels(), platform.screens(), platform.mainQueue(), pictures, frame);
    pointAt(onClose);
    ASSERT_TRUE(window->view().isHovered());
    panel().press(onClose);
    pointAt(outside);
    EXPECT_TRUE(window->view().isHovered());
    panel().release(outside);
    platform.mainQueue().advance(40ms);
    EXPECT_FALSE(window->view().isHovered()) << "no further move is told";
}

TEST_F(WebcamWindowTest, HoverRestsWhileAControlIsHeld)
{
    pointAt(onMove);
    panel().press(onMove);
    pointAt(outside);
    EXPECT_TRUE(window->view().isHovered());
    panel().release(outside);
    pointAt({outside.x + 1, outside.y});
    EXPECT_FALSE(window->view().isHovered());
}

TEST_F(WebcamWindowTest, IsNoticedWhenItMovesAwayFromAPointerAtRest)
{
    pointAt(onPicture);
    ASSERT_TRUE(window->view().isHovered());
    window->setFrame(frame.movedBy(600, 0));
    platform.mainQueue().advance(40ms);
    EXPECT_FALSE(window->view().isHovered());
}

TEST_F(WebcamWindowTest, ButtonsHaveTips)
{
    const std::pair<Point, const char*> tips[]{
        {onClose, "Nimbrale: Close"}, {onSettings, "Nimbrale: Settings"}, {onResize, "Nimbrale: Resize"}};
    for (const auto& [place, title] : tips) {
        pointAt(place);
        platform.mainQueue().advance(1s);
        ASSERT_EQ(platform.panels().living.size(), 2U) << title;
        EXPECT_EQ(platform.panels().last().title, title);
    }
    pointAt(onMove);
    platform.mainQueue().advance(1s);
    EXPECT_EQ(platform.panels().living.size(), 1U);
}

TEST_F(WebcamWindowTest, OnceClosedItIsHiddenAndLeavesThePointerAlone)
{
    window->close();
    EXPECT_EQ(panel().order, FakePanel::Order::out);
    pointAt(onPicture);
    EXPECT_TRUE(hovers.empty());
}

TEST_F(WebcamWindowTest, ControlsAreDescribedAndItsButtonsPressed)
{
    std::vector<std::string> names;
    for (const AccessibleControl& control : window->view().accessibleControls()) {
        names.push_back(control.name);
        if (control.press)
            control.press();
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Move", "Close", "Settings", "Resize"}));
    EXPECT_EQ(events, (std::vector<std::string>{"close", "settings"}));
}

} // namespace
} // namespace nimbrale
