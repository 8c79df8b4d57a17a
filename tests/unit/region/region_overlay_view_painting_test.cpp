// What the frame's window shows in each of its states, as its layer's painter draws it.

#include "region/region_overlay_window.h"
#include "tests/fakes/fake_platform.h"
#include "tests/fakes/offscreen_application.h"

#include <QImage>
#include <QPainter>
#include <chrono>
#include <cmath>
#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;

const Rect screenFrame{0, 0, 620, 410};
const Rect regionFrame{100, 100, 300, 200};
const QRgb frameYellow = qRgb(255, 214, 10);
const QRgb activeOrange = qRgb(255, 158, 10);
const QRgb recordingRed = qRgb(255, 59, 48);
const QRgb white = qRgb(255, 255, 255);

/// A frame on a fake display, at rest. All places are in screen coordinates.
class RegionOverlayViewPaintingTest : public testing::Test {
protected:
    RegionOverlayViewPaintingTest()
    {
        startOffscreenApplication();
        platform.screens().list = {makeScreen(1, screenFrame)};
        platform.screens().mouse = nowhere;
        window = RegionOverlayWindow::create(platform.panels(), platform.screens(), platform.mainQueue(), screenFrame,
                                             regionFrame);
    }

    FakePanel& panel() { return platform.panels().last(); }
    RegionOverlayView& view() { return window->view(); }
    Rect onScreen(const Rect& viewRect) { return viewRect.movedBy(window->frame().x, window->frame().y); }
    Rect handle() { return onScreen(view().layout().handle()); }
    Rect resizeButton() { return onScreen(view().layout().resizeButton()); }
    Rect button(FrameButton which) { return onScreen(view().layout().button(which)); }
    static Point middleOf(const Rect& rect) { return {rect.midX(), rect.midY()}; }
    void pointAt(Point location)
    {
        platform.screens().mouse = location;
        platform.mainQueue().advance(40ms);
    }

    /// The device pixel just right of and below `location`, `dx` columns and `dy` rows further on, of the whole window
    /// as its painter draws it.
    QRgb pixelAt(Point location, int dx = 0, int dy = 0)
    {
        const Rect frame = window->frame();
        const double scale = panel().scale;
        QImage picture(static_cast<int>(frame.width * scale), static_cast<int>(frame.height * scale),
                       QImage::Format_ARGB32_Premultiplied);
        picture.fill(Qt::magenta); // What was there before must not shine through.
        QPainter painter(&picture);
        painter.scale(scale, scale);
        panel().rootLayer().painter()(painter, {0, 0, frame.width, frame.height});
        return picture.pixel(static_cast<int>(std::lround((location.x - frame.x) * scale)) + dx,
                             static_cast<int>(std::lround((frame.maxY() - location.y) * scale)) + dy);
    }

    QRgb border() { return pixelAt({97, 200}); }
    /// What tells yellow from orange: of a control's lower part, beside its symbol, where the gradient makes both of
    /// them a little lighter.
    int greenOf(const Rect& control) { return qGreen(pixelAt({control.midX(), control.minY() + 4})); }
    bool isOrange(const Rect& control) { return greenOf(control) > 165 && greenOf(control) < 190; }
    bool isYellow(const Rect& control) { return greenOf(control) > 210; }
    void expectAllToBeActive()
    {
        EXPECT_EQ(border(), activeOrange);
        EXPECT_TRUE(isOrange(handle()));
        EXPECT_TRUE(isOrange(resizeButton()));
        for (const FrameButton which : allFrameButtons)
            EXPECT_TRUE(isOrange(button(which)));
    }
    void expectAllToRest()
    {
        EXPECT_EQ(border(), frameYellow);
        EXPECT_TRUE(isYellow(handle()));
        EXPECT_TRUE(isYellow(resizeButton()));
        for (const FrameButton which : allFrameButtons)
            EXPECT_TRUE(isYellow(button(which)));
    }

    /// Inside of the frame, far from its controls.
    static constexpr Point nowhere{200, 200};

    FakePlatform platform;
    std::shared_ptr<RegionOverlayWindow> window;
};

TEST_F(RegionOverlayViewPaintingTest, EverythingIsYellowAtRestAndTheInsideIsClear)
{
    expectAllToRest();
    EXPECT_EQ(pixelAt(nowhere), 0U);
    EXPECT_EQ(pixelAt({80, 200}), 0U) << "beside the frame";
    EXPECT_EQ(pixelAt(middleOf(button(FrameButton::record))), recordingRed);
}

TEST_F(RegionOverlayViewPaintingTest, EverythingIsOrangeWhileTheHandleOrTheResizeButtonIsHovered)
{
    pointAt(middleOf(handle()));
    expectAllToBeActive();
    pointAt(middleOf(resizeButton()));
    expectAllToBeActive();
    pointAt(nowhere);
    expectAllToRest();
}

TEST_F(RegionOverlayViewPaintingTest, EverythingIsOrangeDuringADragThatBeganBeforeThePointerWasLookedAt)
{
    for (const bool isMove : {true, false}) {
        const Point start = middleOf(isMove ? handle() : resizeButton());
        panel().press(start);
        ASSERT_EQ(view().hoveredZone(), std::nullopt);
        expectAllToBeActive();
        panel().dragTo({start.x + 1, start.y});
        panel().dragTo(start);
        expectAllToBeActive();
        panel().release(start);
        expectAllToRest();
    }
}

TEST_F(RegionOverlayViewPaintingTest, HoveredButtonAloneIsOrange)
{
    for (const FrameButton hovered : allFrameButtons) {
        pointAt(middleOf(button(hovered)));
        EXPECT_EQ(border(), frameYellow);
        EXPECT_TRUE(isYellow(handle()));
        EXPECT_TRUE(isYellow(resizeButton()));
        for (const FrameButton which : allFrameButtons)
            EXPECT_EQ(isOrange(button(which)), which == hovered);
    }
    pointAt(nowhere);
    expectAllToRest();
}

TEST_F(RegionOverlayViewPaintingTest, PressedButtonAloneIsDarkerUntilItIsReleased)
{
    const Rect close = button(FrameButton::close);
    const Rect record = button(FrameButton::record);
    const int closeAtRest = greenOf(close);
    const int recordAtRest = greenOf(record);
    panel().press(middleOf(close));
    EXPECT_LT(greenOf(close), closeAtRest - 10);
    EXPECT_EQ(greenOf(record), recordAtRest);
    EXPECT_EQ(border(), frameYellow) << "a press on a button drags nothing";
    panel().release(nowhere);
    EXPECT_EQ(greenOf(close), closeAtRest);
}

TEST_F(RegionOverlayViewPaintingTest, PressedButtonUnderThePointerIsADarkerOrange)
{
    const Rect settings = button(FrameButton::settings);
    pointAt(middleOf(settings));
    const int hovered = greenOf(settings);
    panel().press(middleOf(settings));
    EXPECT_LT(greenOf(settings), hovered - 10);
}

TEST_F(RegionOverlayViewPaintingTest, RecordingShowsItsTimeAndTheStopSymbol)
{
    view().setRecordingTime(65);
    const Rect label = onScreen(*view().layout().recordingBackground());
    EXPECT_EQ(pixelAt(middleOf(button(FrameButton::record))), white);
    EXPECT_EQ(pixelAt({label.minX() + 5, label.midY()}), qRgb(0, 0, 0));
    EXPECT_EQ(border(), frameYellow);
    view().setRecordingTime(std::nullopt);
    EXPECT_EQ(pixelAt(middleOf(button(FrameButton::record))), recordingRed);
    EXPECT_EQ(pixelAt({label.minX() + 5, label.midY() - 5}), 0U) << "below the border, where the label was";
}

TEST_F(RegionOverlayViewPaintingTest, RecordingTimeIsTheOneThatWasSetLast)
{
    const auto labelPicture = [&](double seconds) {
        view().setRecordingTime(seconds);
        const Rect label = onScreen(*view().layout().recordingBackground());
        std::vector<QRgb> pixels;
        for (double x = label.minX() + 2; x < label.maxX() - 2; ++x)
            pixels.push_back(pixelAt({x, label.midY()}));
        return pixels;
    };
    const auto first = labelPicture(65);
    EXPECT_EQ(labelPicture(65.9), first);
    EXPECT_NE(labelPicture(74), first);
}

TEST_F(RegionOverlayViewPaintingTest, StepOfADragShowsItsGuidesAndItsSize)
{
    window->onChange = [](const Rect& frame, DragZone, bool) {
        return RegionOverlayWindow::Change{
            .frame = frame, .guides = {{310, 0, 0, 410}}, .label = "300 × 200", .screenFrame = std::nullopt};
    };
    const Point start = middleOf(handle());
    panel().press(start);
    panel().dragTo({start.x + 1, start.y});
    const Rect label = onScreen(*view().layout().sizeLabelBackground());
    // The window at rest still holds the upper part of the label's place.
    const Point onLabel{label.minX() + 14, label.maxY() - 4};
    const Point onGuide{310, 200};
    EXPECT_EQ(pixelAt(onGuide), activeOrange);
    EXPECT_EQ(pixelAt(onLabel), qRgb(0, 0, 0));
    panel().release({start.x + 1, start.y});
    EXPECT_EQ(pixelAt(onGuide), 0U);
    EXPECT_EQ(pixelAt(onLabel), 0U);
}

TEST_F(RegionOverlayViewPaintingTest, GuideIsOnePixelWideAtThePanelsScale)
{
    panel().scale = 2;
    panel().onBackingScaleChange();
    window->onChange = [](const Rect& frame, DragZone, bool) {
        return RegionOverlayWindow::Change{
            .frame = frame, .guides = {{310, 0, 0, 410}}, .label = {}, .screenFrame = std::nullopt};
    };
    const Point start = middleOf(handle());
    panel().press(start);
    panel().dragTo({start.x + 1, start.y});
    EXPECT_EQ(pixelAt({310, 5}, -1), 0U);
    EXPECT_EQ(pixelAt({310, 5}), activeOrange);
    EXPECT_EQ(pixelAt({310, 5}, 1), 0U);
}

} // namespace
} // namespace nimbrale
