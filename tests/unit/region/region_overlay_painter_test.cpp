#include "region/region_overlay_painter.h"

#include "controls/control_drawing.h"
#include "controls/label_text.h"
#include "tests/fakes/offscreen_application.h"

#include <QDir>
#include <QImage>
#include <QPainter>
#include <cmath>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace nimbrale {
namespace {

constexpr Size viewSize{360, 260};
const Rect region{40, 60, 260, 150};
const QRgb frameYellow = qRgb(255, 214, 10);
const QRgb activeOrange = qRgb(255, 158, 10);

TEST(RecordingTimeTextTest, ShowsMinutesAndThenHours)
{
    EXPECT_EQ(recordingTimeText(0), "REC 0:00");
    EXPECT_EQ(recordingTimeText(-0.5), "REC 0:00");
    EXPECT_EQ(recordingTimeText(-5), "REC 0:00") << "a clock that was set back";
    EXPECT_EQ(recordingTimeText(-3600), "REC 0:00");
    EXPECT_EQ(recordingTimeText(5.99), "REC 0:05");
    EXPECT_EQ(recordingTimeText(10), "REC 0:10");
    EXPECT_EQ(recordingTimeText(65), "REC 1:05");
    EXPECT_EQ(recordingTimeText(3599), "REC 59:59");
    EXPECT_EQ(recordingTimeText(3600), "REC 1:00:00");
    EXPECT_EQ(recordingTimeText(36'061.5), "REC 10:01:01");
}

/// Draws the frame at the scale of the parameter. Coordinates of pixels are asked for in view points, so that the same
/// expectations hold for every scale.
class RegionOverlayPainterTest : public testing::TestWithParam<double> {
protected:
    RegionOverlayPainterTest()
    {
        startOffscreenApplication();
        input.region = region;
        input.screen = {0, 0, viewSize.width, viewSize.height};
    }

    ~RegionOverlayPainterTest() override
    {
        if (HasFailure())
            keepPicture();
    }

    double scale() const { return GetParam(); }

    void draw()
    {
        RegionOverlayPainter overlayPainter{OverlayColors{}};
        if (appearance.recordingText)
            input.recordingTextWidth = overlayPainter.recordingTextWidth(*appearance.recordingText);
        if (!appearance.sizeLabel.empty())
            input.sizeLabelTextWidth = overlayPainter.sizeLabelTextWidth(appearance.sizeLabel);
        layout = RegionOverlayLayout(input);
        picture = QImage(static_cast<int>(viewSize.width * scale()), static_cast<int>(viewSize.height * scale()),
                         QImage::Format_ARGB32_Premultiplied);
        picture.fill(Qt::magenta); // What was there before must not shine through.
        QPainter painter(&picture);
        painter.scale(scale(), scale());
        overlayPainter.paint(painter, {0, 0, viewSize.width, viewSize.height}, layout, appearance, viewSize, scale());
    }

    /// The pixel just right of and below the point (x, y), which is given with y upward, moved by whole pixels.
    QRgb pixel(double x, double y, int dx = 0, int dy = 0) const
    {
        return picture.pixel(static_cast<int>(std::lround(x * scale())) + dx,
                             static_cast<int>(std::lround((viewSize.height - y) * scale())) + dy);
    }

    void keepPicture() const
    {
        QDir().mkpath("test-output");
        const QString name = QString::fromLatin1(testing::UnitTest::GetInstance()->current_test_info()->name());
        picture.save("test-output/" + QString(name).replace('/', '-') + ".png");
    }

    int countIn(const Rect& viewRect, const std::function<bool(QRgb)>& matches) const
    {
        int count = 0;
        const QRect pixels = QRectF(viewRect.x * scale(), (viewSize.height - viewRect.maxY()) * scale(),
                                    viewRect.width * scale(), viewRect.height * scale())
                                 .toAlignedRect();
        for (int y = pixels.top(); y <= pixels.bottom(); ++y) {
            for (int x = pixels.left(); x <= pixels.right(); ++x)
                count += matches(picture.pixel(x, y)) ? 1 : 0;
        }
        return count;
    }

    RegionOverlayLayoutInput input;
    RegionOverlayAppearance appearance;
    RegionOverlayLayout layout;
    QImage picture;
};

TEST_P(RegionOverlayPainterTest, BorderIsAFivePointBandWithExactEdges)
{
    draw();
    // The left band goes from 35 to 40, at a height where nothing else is drawn.
    EXPECT_EQ(pixel(35, 100, -1), 0U);
    EXPECT_EQ(pixel(35, 100), frameYellow);
    EXPECT_EQ(pixel(40, 100, -1), frameYellow);
    EXPECT_EQ(pixel(40, 100), 0U);
    // The bottom band goes from 55 to 60; a pixel below a y belongs to the point beneath it.
    EXPECT_EQ(pixel(100, 60, 0, -1), 0U);
    EXPECT_EQ(pixel(100, 60), frameYellow);
    EXPECT_EQ(pixel(100, 55, 0, -1), frameYellow);
    EXPECT_EQ(pixel(100, 55), 0U);
    // Right and top, by their outer corners.
    EXPECT_EQ(pixel(100, 215), frameYellow);
    EXPECT_EQ(pixel(100, 215, 0, -1), 0U);
    EXPECT_EQ(pixel(305, 100, -1), frameYellow);
    EXPECT_EQ(pixel(305, 100), 0U);
    EXPECT_EQ(pixel(35, 215), frameYellow);
    EXPECT_EQ(pixel(35, 55, 0, -1), frameYellow);
}

TEST_P(RegionOverlayPainterTest, InsideOfTheFrameIsTransparent)
{
    draw();
    EXPECT_EQ(countIn({40, 60, 200, 120}, [](QRgb color) { return color != 0; }), 0);
}

TEST_P(RegionOverlayPainterTest, NothingIsDrawnOutsideOfTheCoverage)
{
    appearance.recordingText = "REC 1:02:03";
    appearance.sizeLabel = "1280 × 720 · ½ × ⅓";
    input.guides = {{170, 0, 0, 260}, {0, 120, 360, 0}};
    draw();
    QImage uncovered = picture;
    {
        QPainter painter(&uncovered);
        painter.setCompositionMode(QPainter::CompositionMode_Clear);
        painter.scale(scale(), scale());
        for (const Rect& rect : layout.coverage())
            painter.fillRect(QRectF(rect.x, viewSize.height - rect.maxY(), rect.width, rect.height), Qt::transparent);
    }
    int left = 0;
    for (int y = 0; y < uncovered.height(); ++y) {
        for (int x = 0; x < uncovered.width(); ++x)
            left += uncovered.pixel(x, y) != 0 ? 1 : 0;
    }
    EXPECT_EQ(left, 0);
}

TEST_P(RegionOverlayPainterTest, BorderAtTheScreensEdgeLiesInside)
{
    input.region = {0, 60, 260, 150};
    draw();
    EXPECT_EQ(pixel(0, 100), frameYellow);
    EXPECT_EQ(pixel(5, 100, -1), frameYellow);
    EXPECT_EQ(pixel(5, 100), 0U);
    EXPECT_EQ(pixel(265, 100, -1), frameYellow);
}

TEST_P(RegionOverlayPainterTest, ActiveFrameIsOrange)
{
    appearance.isActive = true;
    draw();
    EXPECT_EQ(pixel(35, 100), activeOrange);
}

TEST_P(RegionOverlayPainterTest, GuidesAreOnePixelWideDashesInOrange)
{
    input.guides = {{170, 0, 0, 260}, {0, 30, 360, 0}};
    draw();
    // The vertical one starts at the bottom: on from 0 to 8, off to 13, on to 21.
    EXPECT_EQ(pixel(170, 0, 0, -1), activeOrange);
    EXPECT_EQ(pixel(170, 8), activeOrange);
    EXPECT_EQ(pixel(170, 8, 0, -1), 0U);
    EXPECT_EQ(pixel(170, 13), 0U);
    EXPECT_EQ(pixel(170, 13, 0, -1), activeOrange);
    EXPECT_EQ(pixel(170, 5, -1), 0U);
    EXPECT_EQ(pixel(170, 5, 1), 0U);
    // The horizontal one starts at the left, in the pixel row just above its y.
    EXPECT_EQ(pixel(0, 30, 0, -1), activeOrange);
    EXPECT_EQ(pixel(8, 30, -1, -1), activeOrange);
    EXPECT_EQ(pixel(8, 30, 0, -1), 0U);
    EXPECT_EQ(pixel(13, 30, 0, -1), activeOrange);
    EXPECT_EQ(pixel(3, 30), 0U);
    EXPECT_EQ(pixel(3, 30, 0, -2), 0U);
}

TEST_P(RegionOverlayPainterTest, GuidesAtFractionalPlacesLieOnTheNearestWholePoint)
{
    const auto columnsWithGuide = [&] {
        std::vector<int> columns;
        for (int x = 0; x < picture.width(); ++x) {
            if (picture.pixel(x, picture.height() - 1) == activeOrange)
                columns.push_back(x);
        }
        return columns;
    };
    const auto rowsWithGuide = [&] {
        std::vector<int> rows;
        for (int y = 0; y < picture.height(); ++y) {
            if (picture.pixel(0, y) == activeOrange)
                rows.push_back(y);
        }
        return rows;
    };
    for (const auto& [place, nearest] : {std::pair{20.4, 20}, {20.5, 21}, {20.6, 21}, {19.5, 20}}) {
        input.guides = {{place, 0, 0, 260}, {0, place, 360, 0}};
        draw();
        // One pixel: the one just right of, and just above, the whole point.
        const int column = static_cast<int>(nearest * scale());
        const int row = static_cast<int>((viewSize.height - nearest) * scale()) - 1;
        EXPECT_EQ(columnsWithGuide(), std::vector{column}) << place;
        EXPECT_EQ(rowsWithGuide(), std::vector{row}) << place;
    }
}

TEST_P(RegionOverlayPainterTest, ControlsAreOpaqueAndThrowASoftShadowDownward)
{
    draw();
    const Rect handle = layout.handle();
    const auto alphaAt = [&](double x, double y) { return qAlpha(pixel(x, y)); };
    EXPECT_EQ(alphaAt(handle.midX() + 12, handle.midY()), 255);
    // Below the handle and above the inside of the frame nothing else is drawn.
    const int near = alphaAt(handle.midX(), handle.minY() - 1);
    const int far = alphaAt(handle.midX(), handle.minY() - 6);
    EXPECT_GT(near, far);
    EXPECT_GT(far, 0);
    EXPECT_LT(near, 77) << "black at three tenths at most";
    EXPECT_EQ(alphaAt(handle.midX(), handle.minY() - 10), 0);
    EXPECT_GT(near, alphaAt(handle.midX(), handle.maxY() + 2)) << "weaker above than below";
    EXPECT_EQ(alphaAt(handle.midX(), handle.maxY() + 9), 0);
    EXPECT_EQ(qRed(pixel(handle.midX(), handle.minY() - 1)), 0);
}

TEST_P(RegionOverlayPainterTest, ControlsGrowLighterDownward)
{
    draw();
    const Rect handle = layout.handle();
    const QRgb upper = pixel(handle.minX() + 12, handle.maxY() - 4);
    const QRgb lower = pixel(handle.minX() + 12, handle.minY() + 4);
    EXPECT_LT(qBlue(upper), qBlue(lower));
    EXPECT_LT(qGreen(upper), qGreen(lower));
}

TEST_P(RegionOverlayPainterTest, HoveredButtonIsOrangeAndTheOthersAreNot)
{
    appearance.hoveredButton = FrameButton::settings;
    draw();
    const auto greenOf = [&](FrameButton button) {
        const Rect rect = layout.button(button);
        return qGreen(pixel(rect.midX(), rect.minY() + 4));
    };
    EXPECT_LT(greenOf(FrameButton::settings), 190);
    EXPECT_GT(greenOf(FrameButton::close), 200);
    EXPECT_GT(greenOf(FrameButton::record), 200);
}

TEST_P(RegionOverlayPainterTest, PressedButtonIsDarker)
{
    draw();
    const Rect rect = layout.button(FrameButton::close);
    const int before = qGreen(pixel(rect.midX(), rect.minY() + 4));
    appearance.pressedButton = FrameButton::close;
    draw();
    EXPECT_LT(qGreen(pixel(rect.midX(), rect.minY() + 4)), before - 10);
}

TEST_P(RegionOverlayPainterTest, RecordSymbolTurnsIntoAWhiteStopSymbol)
{
    draw();
    const Rect rect = layout.button(FrameButton::record);
    EXPECT_EQ(pixel(rect.midX(), rect.midY()), qRgb(255, 59, 48));
    appearance.recordingText = "REC 0:01";
    draw();
    EXPECT_EQ(pixel(rect.midX(), rect.midY()), qRgb(255, 255, 255));
    const auto isWhite = [](QRgb color) { return color == qRgb(255, 255, 255); };
    const double pixelSize = 1 / scale();
    EXPECT_EQ(countIn({rect.x, rect.midY(), rect.width, pixelSize}, isWhite), 8 * scale()) << "8 points wide";
    EXPECT_EQ(countIn({rect.midX(), rect.y, pixelSize, rect.height}, isWhite), 8 * scale()) << "and as high";
}

TEST_P(RegionOverlayPainterTest, SymbolsAreCentredOnTheirControls)
{
    draw();
    const auto darkIn = [&](const Rect& rect) {
        return countIn(rect, [](QRgb color) { return qAlpha(color) == 255 && qGreen(color) < 120; });
    };
    for (const Rect& control : {layout.handle().insetBy(12, 0), layout.button(FrameButton::close),
                                layout.button(FrameButton::settings), layout.resizeButton()}) {
        // As much on one side as on the other, but for the half point that whole points may take.
        const Rect left{control.x, control.y, control.width / 2, control.height};
        const Rect lower{control.x, control.y, control.width, control.height / 2};
        EXPECT_GT(darkIn(left), 8 * scale());
        EXPECT_NEAR(darkIn(left), darkIn(left.movedBy(control.width / 2, 0)), 0.15 * darkIn(left));
        EXPECT_NEAR(darkIn(lower), darkIn(lower.movedBy(0, control.height / 2)), 0.15 * darkIn(lower));
    }
}

TEST_P(RegionOverlayPainterTest, LabelsAreWhiteOnBlack)
{
    appearance.recordingText = "REC 0:01";
    appearance.sizeLabel = "640 × 400 · ⅓ width";
    draw();
    for (const Rect& background : {*layout.recordingBackground(), *layout.sizeLabelBackground()}) {
        EXPECT_EQ(pixel(background.minX() + 5, background.midY()), qRgb(0, 0, 0));
        EXPECT_EQ(pixel(background.maxX() - 5, background.midY()), qRgb(0, 0, 0));
        const int whitish = countIn(background, [](QRgb color) { return qGreen(color) > 180; });
        EXPECT_GT(whitish, 60 * scale() * scale());
        EXPECT_NE(qAlpha(pixel(background.minX(), background.maxY())), 255) << "the corner is round";
    }
}

TEST_P(RegionOverlayPainterTest, TextKeepsItsDistanceFromTheEndsOfItsBackground)
{
    appearance.sizeLabel = "1111 × 1111";
    draw();
    const Rect background = *layout.sizeLabelBackground();
    const auto isText = [](QRgb color) { return qGreen(color) > 100 && qRed(color) > 100; };
    EXPECT_EQ(countIn({background.x, background.y, 9, background.height}, isText), 0);
    EXPECT_EQ(countIn({background.maxX() - 9, background.y, 9, background.height}, isText), 0);
}

TEST_P(RegionOverlayPainterTest, OtherColorsCanBeGiven)
{
    RegionOverlayPainter overlayPainter{OverlayColors{.frame = {0, 1, 0, 1}, .active = {}, .recording = {}}};
    layout = RegionOverlayLayout(input);
    picture = QImage(static_cast<int>(viewSize.width * scale()), static_cast<int>(viewSize.height * scale()),
                     QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&picture);
    painter.scale(scale(), scale());
    overlayPainter.paint(painter, {0, 0, viewSize.width, viewSize.height}, layout, appearance, viewSize, scale());
    EXPECT_EQ(pixel(35, 100), qRgb(0, 255, 0));
}

TEST_P(RegionOverlayPainterTest, EachControlHasItsSymbolInItsSize)
{
    draw();
    const Color yellow = OverlayColors{}.frame;
    const Color dark{0, 0, 0, 0.7};
    const std::pair<Rect, ControlStyle> controls[]{
        {layout.handle(), {yellow, ControlSymbol::move, 11, dark}},
        {layout.button(FrameButton::close), {yellow, ControlSymbol::close, 10, dark}},
        {layout.button(FrameButton::settings), {yellow, ControlSymbol::settings, 11, dark}},
        {layout.button(FrameButton::record), {yellow, ControlSymbol::record, 10, OverlayColors{}.recording}},
        {layout.resizeButton(), {yellow, ControlSymbol::resize, 10, dark}}};
    for (const auto& [place, style] : controls) {
        QImage alone(picture.size(), QImage::Format_ARGB32_Premultiplied);
        alone.fill(Qt::transparent);
        const QRectF inLayer(place.x, viewSize.height - place.maxY(), place.width, place.height);
        QPainter painter(&alone);
        painter.scale(scale(), scale());
        ControlDrawing().drawControl(painter, inLayer, style, scale());
        painter.end();
        // What lies further out may bear the shadow of the next control.
        const QRectF inner = inLayer.adjusted(6, 6, -6, -6);
        const QRect pixels = QRectF(inner.topLeft() * scale(), inner.size() * scale()).toRect();
        EXPECT_EQ(picture.copy(pixels), alone.copy(pixels)) << static_cast<int>(style.symbol);
    }
}

TEST_P(RegionOverlayPainterTest, PlaceOfALabelWithoutTextStaysClear)
{
    input.recordingTextWidth = 60;
    input.sizeLabelTextWidth = 60;
    draw();
    for (const Rect& background : {*layout.recordingBackground(), *layout.sizeLabelBackground()})
        EXPECT_EQ(countIn(background, [](QRgb color) { return color == qRgb(0, 0, 0); }), 0);
}

INSTANTIATE_TEST_SUITE_P(Scales, RegionOverlayPainterTest, testing::Values(1.0, 2.0),
                         [](const auto& suite) { return "Scale" + std::to_string(static_cast<int>(suite.param)); });

TEST(LabelWidthTest, DigitsAreAllEquallyWide)
{
    startOffscreenApplication();
    const RegionOverlayPainter overlayPainter{OverlayColors{}};
    EXPECT_EQ(overlayPainter.sizeLabelTextWidth("1111 × 111"), overlayPainter.sizeLabelTextWidth("8888 × 888"));
    EXPECT_EQ(overlayPainter.recordingTextWidth("REC 1:11"), overlayPainter.recordingTextWidth("REC 0:48"));
    EXPECT_GT(overlayPainter.recordingTextWidth("REC 1:11:11"), overlayPainter.recordingTextWidth("REC 1:11"));
}

TEST(LabelWidthTest, IsThatOfTheLabelsFont)
{
    startOffscreenApplication();
    const RegionOverlayPainter overlayPainter{OverlayColors{}};
    EXPECT_EQ(overlayPainter.recordingTextWidth("REC 1:11"), labelTextWidth(labelFont(11, QFont::Bold), "REC 1:11"));
    EXPECT_EQ(overlayPainter.sizeLabelTextWidth("1 × 1"), labelTextWidth(labelFont(12, QFont::DemiBold), "1 × 1"));
}

} // namespace
} // namespace nimbrale
