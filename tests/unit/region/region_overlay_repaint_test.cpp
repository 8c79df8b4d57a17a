#include "region/region_overlay_window.h"

#include "tests/fakes/fake_platform.h"
#include "tests/fakes/offscreen_application.h"

#include <QDir>
#include <QImage>
#include <QPainter>
#include <cmath>
#include <ctime>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace nimbrale {
namespace {

/// Shows a panel's painted root layer as a real host does: it draws what was invalidated and nothing else, keeps what
/// stays in place on the screen when the panel moves, and asks the painter within the coverage only.
class PaintedPanel {
public:
    explicit PaintedPanel(FakePanel& panel) : panel_(panel), frame_(panel.frame()), picture_(blank(frame_))
    {
        panel_.invalidated.clear();
        draw({0, 0, frame_.width, frame_.height}, picture_);
    }

    /// Brings the picture up to date with what happened to the panel since the last call.
    void update()
    {
        if (panel_.frame() != frame_)
            follow();
        for (const Rect& area : panel_.invalidated) {
            const Rect whole = area.integral();
            const bool isWholePanel = whole.width >= frame_.width && whole.height >= frame_.height;
            if (!isWholePanel) // Moving the fake invalidates everything, which a real panel does not.
                draw(whole, picture_);
        }
        panel_.invalidated.clear();
    }

    /// The picture as if all of it were drawn afresh.
    QImage drawnAfresh() const
    {
        QImage fresh = blank(frame_);
        draw({0, 0, frame_.width, frame_.height}, fresh);
        return fresh;
    }

    const QImage& picture() const { return picture_; }

private:
    static QImage blank(const Rect& frame)
    {
        QImage image(static_cast<int>(frame.width), static_cast<int>(frame.height),
                     QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        return image;
    }

    void follow()
    {
        const Rect frame = panel_.frame();
        if (frame.size() == frame_.size()) { // A window that only moves takes its picture along.
            frame_ = frame;
            return;
        }
        QImage moved = blank(frame);
        QPainter painter(&moved);
        painter.drawImage(QPointF(frame_.x - frame.x, frame.maxY() - frame_.maxY()), picture_);
        painter.end();
        picture_ = moved;
        frame_ = frame;
    }

    void draw(const Rect& area, QImage& image) const
    {
        QPainter painter(&image);
        const auto clipTo = [&](const Rect& rect) {
            painter.setClipRect(QRect(static_cast<int>(rect.x), static_cast<int>(rect.y), static_cast<int>(rect.width),
                                      static_cast<int>(rect.height)));
        };
        clipTo(area);
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(image.rect(), Qt::transparent);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        for (const Rect& covered : panel_.rootLayer().coverage()) {
            const Rect part = covered.integral().intersectedWith(area);
            if (part.isEmpty())
                continue;
            clipTo(part);
            panel_.rootLayer().painter()(painter, part);
        }
    }

    FakePanel& panel_;
    Rect frame_;
    QImage picture_;
};

class RegionOverlayRepaintTest : public testing::Test {
protected:
    explicit RegionOverlayRepaintTest(const Rect& screen = {0, 0, 620, 410}, const Rect& region = {100, 100, 250, 160})
    {
        startOffscreenApplication();
        platform.screens().list = {makeScreen(1, screen)};
        platform.screens().mouse = {-1, -1};
        window =
            RegionOverlayWindow::create(platform.panels(), platform.screens(), platform.mainQueue(), screen, region);
    }

    FakePanel& panel() { return platform.panels().last(); }
    Point centreOf(const Rect& viewRect) const
    {
        return {viewRect.midX() + window->frame().x, viewRect.midY() + window->frame().y};
    }

    FakePlatform platform;
    std::shared_ptr<RegionOverlayWindow> window;
};

TEST_F(RegionOverlayRepaintTest, WhatIsDrawnInPartsIsWhatWouldBeDrawnWhole)
{
    std::mt19937 random(11);
    const auto between = [&](int low, int high) { return std::uniform_int_distribution(low, high)(random); };
    window->onChange = [&](const Rect& frame, DragZone, bool) {
        RegionOverlayWindow::Change change{.frame = frame, .guides = {}, .label = {}, .screenFrame = std::nullopt};
        if (between(0, 1) == 0)
            change.guides.push_back({static_cast<double>(between(0, 620)), 0, 0, 410});
        if (between(0, 1) == 0)
            change.guides.push_back({0, static_cast<double>(between(0, 410)), 620, 0});
        if (between(0, 3) != 0)
            change.label = std::to_string(between(10, 2000)) + " × " + std::to_string(between(10, 2000));
        return change;
    };
    PaintedPanel painted(panel());
    const auto check = [&](const char* after) {
        painted.update();
        const QImage fresh = painted.drawnAfresh();
        if (painted.picture() == fresh)
            return;
        QDir().mkpath("test-output");
        painted.picture().save("test-output/repaint-actual.png");
        fresh.save("test-output/repaint-expected.png");
        FAIL() << "after " << after << "; both pictures are in test-output";
    };
    RegionOverlayView& view = window->view();
    for (int round = 0; round < 40; ++round) {
        view.setRecordingTime(between(0, 1) == 0 ? std::nullopt : std::optional<double>(between(0, 8000)));
        ASSERT_NO_FATAL_FAILURE(check("a change of the recording time"));
        const bool isMove = between(0, 1) == 0;
        const Point start = centreOf(isMove ? view.layout().handle() : view.layout().resizeButton());
        view.pollHover(start);
        ASSERT_NO_FATAL_FAILURE(check("hovering"));
        panel().press(start);
        ASSERT_NO_FATAL_FAILURE(check("the start of a drag"));
        for (int step = 0; step < 4; ++step) {
            panel().dragTo({start.x + between(-60, 60), start.y + between(-60, 60)});
            ASSERT_NO_FATAL_FAILURE(check("a step of a drag"));
        }
        panel().dragTo({between(100, 500) - 0.0, between(100, 300) - 0.0});
        painted.update(); // The window has its panel commit before it moves it.
        panel().release(start);
        ASSERT_NO_FATAL_FAILURE(check("the end of a drag"));
        panel().press(centreOf(view.layout().button(FrameButton::record)));
        ASSERT_NO_FATAL_FAILURE(check("a press"));
        panel().release({0, 0});
        ASSERT_NO_FATAL_FAILURE(check("a release"));
        window->setRegionFrame({between(0, 200) - 0.0, between(0, 150) - 0.0, between(100, 300) - 0.0, 150});
        window->setFrame(window->frameAtRest());
        ASSERT_NO_FATAL_FAILURE(check("a new region"));
        // From the screen's left edge to its right: the border lies inside on another side.
        window->setRegionFrame(window->regionFrame().movedBy(-window->regionFrame().x, 0));
        window->setFrame(window->frameAtRest());
        ASSERT_NO_FATAL_FAILURE(check("a region moved to the left edge"));
        window->setRegionFrame(window->regionFrame().movedBy(620 - window->regionFrame().width, 0));
        window->setFrame(window->frameAtRest());
        ASSERT_NO_FATAL_FAILURE(check("a region moved to the right edge"));
    }
}

TEST(RegionOverlayPartsTest, PartsThatEndBetweenPixelsMakeUpTheWhole)
{
    startOffscreenApplication();
    constexpr Size viewSize{360, 260};
    RegionOverlayLayoutInput input;
    input.region = {40, 60, 260, 150};
    input.screen = {0, 0, viewSize.width, viewSize.height};
    // The first is a fraction of a pixel away from the end of a part.
    input.guides = {{13, 0, 0, viewSize.height}, {169, 0, 0, viewSize.height}, {0, 121, viewSize.width, 0}};
    input.sizeLabelTextWidth = 60;
    const RegionOverlayLayout layout(input);
    RegionOverlayAppearance appearance;
    appearance.sizeLabel = "1 × 1";
    RegionOverlayPainter overlayPainter{OverlayColors{}};
    std::vector<Rect> parts;
    constexpr double side = 12.9;
    for (double y = 0; y < viewSize.height; y += side) {
        for (double x = 0; x < viewSize.width; x += side)
            parts.push_back({x, y, side, side});
    }
    for (const double scale : {1.0, 1.25, 2.0}) {
        const auto drawn = [&](const std::vector<Rect>& dirtyRects) {
            QImage picture(static_cast<int>(viewSize.width * scale), static_cast<int>(viewSize.height * scale),
                           QImage::Format_ARGB32_Premultiplied);
            picture.fill(Qt::magenta);
            for (const Rect& dirty : dirtyRects) {
                QPainter painter(&picture);
                const QRectF pixels(dirty.x * scale, dirty.y * scale, dirty.width * scale, dirty.height * scale);
                painter.setClipRect(pixels.toAlignedRect());
                painter.scale(scale, scale);
                overlayPainter.paint(painter, dirty, layout, appearance, viewSize, scale);
            }
            return picture;
        };
        const QImage whole = drawn({{0, 0, viewSize.width, viewSize.height}});
        EXPECT_EQ(drawn(parts), whole) << scale;
        EXPECT_EQ(drawn({parts.rbegin(), parts.rend()}), whole) << scale;
    }
}

/// A frame that nearly fills a display of 3840 × 2160.
class LargeRegionOverlayRepaintTest : public RegionOverlayRepaintTest {
protected:
    LargeRegionOverlayRepaintTest() : RegionOverlayRepaintTest({0, 0, 3840, 2160}, {200, 150, 3300, 1800}) {}
};

TEST_F(LargeRegionOverlayRepaintTest, StepOfADragInvalidatesBandsAndNotTheInside)
{
    window->onChange = [](const Rect& frame, DragZone, bool) {
        return RegionOverlayWindow::Change{
            .frame = frame, .guides = {{1920, 0, 0, 2160}}, .label = "3300 × 1800", .screenFrame = std::nullopt};
    };
    const Point start = centreOf(window->view().layout().handle());
    panel().press(start);
    panel().dragTo({start.x + 5, start.y});
    panel().invalidated.clear();
    panel().dragTo({start.x + 9, start.y + 3});
    double area = 0;
    for (const Rect& rect : panel().invalidated) {
        EXPECT_FALSE(rect.contains({1000, 1000}));
        area += rect.width * rect.height;
    }
    EXPECT_GT(area, 0);
    EXPECT_LT(area, 200'000) << "two borders, two guides and the controls";
}

} // namespace
} // namespace nimbrale
