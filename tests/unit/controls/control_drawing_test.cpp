// The numbers that the look of the controls is made of.

#include "controls/control_drawing.h"

#include "controls/painting.h"
#include "tests/fakes/offscreen_application.h"

#include <QImage>
#include <QPainter>
#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <string>
#include <vector>

namespace nimbrale {
namespace {

/// Red, green and blue, 0 to 255 each.
using Channels = std::array<double, 3>;

constexpr Channels frameYellow{1.0 * 255, 0.84 * 255, 0.04 * 255};
constexpr Channels black{0, 0, 0};
constexpr Channels white{255, 255, 255};

Channels mixed(const Channels& from, const Channels& to, double fraction)
{
    Channels result{};
    for (std::size_t channel = 0; channel < result.size(); ++channel)
        result.at(channel) = from.at(channel) + (to.at(channel) - from.at(channel)) * fraction;
    return result;
}

/// How much of the span from `top` to `bottom` lies between `from` and `to`.
double coverage(double top, double bottom, double from, double to)
{
    return std::max(0.0, std::min(bottom, to) - std::max(top, from)) / (bottom - top);
}

/// A handle, 46 × 22 points, drawn at the scale of the parameter. Its straight upper and lower edges run from 11 to 35
/// points, its symbol is within 17 and 29.
class ControlDrawingTest : public testing::TestWithParam<int> {
protected:
    ControlDrawingTest()
    {
        startOffscreenApplication();
        picture_ = QImage(86 * scale(), 62 * scale(), QImage::Format_ARGB32_Premultiplied);
        picture_.fill(Qt::transparent);
        QPainter painter(&picture_);
        painter.scale(scale(), scale());
        ControlDrawing controls;
        controls.drawControl(painter, {20, 20, 46, height},
                             {{1.0, 0.84, 0.04, 1.0}, ControlSymbol::move, 11, {0, 0, 0, 0.7}}, scale());
    }

    static int scale() { return GetParam(); }
    /// The pixel in that column, in points from the control's left edge, and that row, in pixels from its top.
    QRgb pixel(double x, int row) const
    {
        return picture_.pixel(static_cast<int>((20 + x) * scale()), 20 * scale() + row);
    }

    /// The fill of a row whose middle is at `y` points: the base with 0.08 of black at the top, which makes it 234.6,
    /// 197.1, 9.4, and with 0.3 of white at the bottom, which makes it 255, 226.4, 83.6.
    static Channels gradientAt(double y)
    {
        return mixed(mixed(frameYellow, black, 0.08), mixed(frameYellow, white, 0.3), y / height);
    }
    /// The same with the lines on it that run along the straight edges: a highlight of 1 point whose middle is 1 point
    /// inside of the edge, then a rim of half a point whose middle is a quarter inside.
    static Channels expectedInRow(int row)
    {
        const double top = static_cast<double>(row) / scale();
        const double bottom = (row + 1.0) / scale();
        const double highlight = coverage(top, bottom, 0.5, 1.5) + coverage(top, bottom, height - 1.5, height - 0.5);
        const double rim = coverage(top, bottom, 0, 0.5) + coverage(top, bottom, height - 0.5, height);
        return mixed(mixed(gradientAt((top + bottom) / 2), white, 0.35 * highlight), black, 0.2 * rim);
    }
    /// The alpha of the shadow in a row under or over the middle of the control, 0 to 255: three tenths of black, 2
    /// points below the control, blurred over a radius of 6 points, which is two standard deviations.
    static double expectedShadowInRow(int row)
    {
        const double y = (row + 0.5) / scale() - 2;
        const auto shareBelow = [](double distance) { return 0.5 * std::erfc(-distance / 3 / std::numbers::sqrt2); };
        return 255 * 0.3 * (shareBelow(y) - shareBelow(y - height));
    }

    static void expectColor(QRgb actual, const Channels& expected, int row)
    {
        EXPECT_NEAR(qRed(actual), expected[0], 1.01) << "in row " << row;
        EXPECT_NEAR(qGreen(actual), expected[1], 1.01) << "in row " << row;
        EXPECT_NEAR(qBlue(actual), expected[2], 1.01) << "in row " << row;
        EXPECT_EQ(qAlpha(actual), 255) << "in row " << row;
    }

    static constexpr double height = 22;

private:
    QImage picture_;
};

TEST_P(ControlDrawingTest, GradientRunsFromLighterAtTheBottomToDarkerAtTheTop)
{
    for (int row = 2 * scale(); row < 20 * scale(); ++row)
        expectColor(pixel(14, row), gradientAt((row + 0.5) / scale()), row);
}

TEST_P(ControlDrawingTest, HighlightAndRimFollowTheEdges)
{
    for (int row = 0; row < 2 * scale(); ++row)
        expectColor(pixel(14, row), expectedInRow(row), row);
    for (int row = 20 * scale(); row < 22 * scale(); ++row)
        expectColor(pixel(14, row), expectedInRow(row), row);
}

TEST_P(ControlDrawingTest, ShadowFadesBelowAndAboveTheControl)
{
    const auto expectShadow = [&](int row) {
        const QRgb actual = pixel(23, row);
        EXPECT_NEAR(qAlpha(actual), expectedShadowInRow(row), 1) << "in row " << row;
        EXPECT_EQ(actual & 0xffffff, 0U) << "black, in row " << row;
    };
    for (int row = 22 * scale(); row < 32 * scale(); ++row)
        expectShadow(row);
    for (int row = -10 * scale(); row < 0; ++row)
        expectShadow(row);
}

INSTANTIATE_TEST_SUITE_P(Scales, ControlDrawingTest, testing::Values(1, 2),
                         [](const auto& suite) { return "Scale" + std::to_string(suite.param); });

struct Symbol {
    const char* name;
    ControlSymbol symbol;
    double pointSize;
    /// Of the symbol's box, in points from the left and from the bottom of a control of 22 × 22.
    int left;
    int bottom;
};

class ControlSymbolPlaceTest : public testing::TestWithParam<Symbol> {};

TEST_P(ControlSymbolPlaceTest, IsInTheMiddleOnWholePoints)
{
    startOffscreenApplication();
    constexpr int scale = 8;
    constexpr int side = 22;
    constexpr int around = 20;
    QImage picture((side + 2 * around) * scale, (side + 2 * around) * scale, QImage::Format_ARGB32_Premultiplied);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.scale(scale, scale);
    const Symbol& symbol = GetParam();
    ControlDrawing().drawControl(painter, {around, around, side, side},
                                 {{1, 1, 0, 1}, symbol.symbol, symbol.pointSize, {0, 0, 1, 1}}, scale);
    painter.end();
    int left = picture.width();
    int bottom = 0;
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            const QRgb pixel = picture.pixel(x, y);
            if (qBlue(pixel) > qRed(pixel) && qAlpha(pixel) == 255) {
                left = std::min(left, x);
                bottom = std::max(bottom, y + 1);
            }
        }
    }
    // Of a round end's last row too little is covered to be seen.
    EXPECT_NEAR(left, (around + symbol.left) * scale, 1);
    EXPECT_NEAR(bottom, (around + side - symbol.bottom) * scale, 1);
}

// The sizes of the boxes: 14.08, 9.2, 13.64, 11.3, 11 and 8 points.
INSTANTIATE_TEST_SUITE_P(Symbols, ControlSymbolPlaceTest,
                         testing::Values(Symbol{"Move", ControlSymbol::move, 11, 4, 4},
                                         Symbol{"Close", ControlSymbol::close, 10, 6, 6},
                                         Symbol{"Settings", ControlSymbol::settings, 11, 4, 4},
                                         Symbol{"Resize", ControlSymbol::resize, 10, 5, 5},
                                         Symbol{"Record", ControlSymbol::record, 10, 6, 6},
                                         Symbol{"Stop", ControlSymbol::stopRecording, 8, 7, 7}),
                         [](const auto& suite) { return suite.param.name; });

struct Control {
    QRectF rect{20, 20, 22, 22};
    ControlStyle style;
};

QImage drawn(ControlDrawing& controls, const Control& control, double scale = 2)
{
    QImage picture(140, 140, QImage::Format_ARGB32_Premultiplied);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.scale(scale, scale);
    controls.drawControl(painter, control.rect, control.style, scale);
    return picture;
}

TEST(ControlDrawingKeptTest, WhatIsKeptIsNotTakenForAnotherLook)
{
    startOffscreenApplication();
    const ControlStyle style{{1, 0.8, 0.2, 1}, ControlSymbol::move, 11, {0, 0, 0, 0.7}};
    std::vector<Control> controls(10, Control{{20, 20, 22, 22}, style});
    controls[1].style.symbol = ControlSymbol::close;
    controls[2].style.symbolSize = 8;
    controls[3].style.symbolColor.red = 1;
    controls[4].style.symbolColor.green = 1;
    controls[5].style.symbolColor.blue = 1;
    controls[6].style.base.green = 0.3;
    controls[7].style.base.blue = 0.9;
    controls[8].rect.setWidth(46);
    controls[9].rect.setHeight(30);
    ControlDrawing kept;
    for (std::size_t index = 0; index < controls.size(); ++index) {
        ControlDrawing fresh;
        const QImage expected = drawn(fresh, controls[index]);
        EXPECT_EQ(drawn(kept, controls[index]), expected) << "control " << index;
        EXPECT_EQ(drawn(kept, controls[index]), expected) << "control " << index << " again";
        EXPECT_EQ(expected == drawn(kept, controls[0]), index == 0) << "control " << index << " looks like the first";
    }
    ControlDrawing fresh;
    EXPECT_EQ(drawn(kept, controls[0], 1), drawn(fresh, controls[0], 1)) << "at another scale";
}

TEST(ControlDrawingKeptTest, BackgroundsOfOtherColorsAreOtherLooks)
{
    startOffscreenApplication();
    ControlDrawing controls;
    for (const Color& color : {Color{0, 0, 0, 1}, Color{1, 0, 0, 1}, Color{0, 1, 0, 1}, Color{0, 0, 1, 1}}) {
        QImage picture(80, 60, QImage::Format_ARGB32_Premultiplied);
        picture.fill(Qt::transparent);
        QPainter painter(&picture);
        controls.drawBackground(painter, {20, 20, 40, 20}, color, 1);
        painter.end();
        EXPECT_EQ(picture.pixelColor(40, 30), toQColor(color).toRgb());
    }
}

TEST(ControlDrawingKeptTest, EdgesFallOnPixelsWhereverTheControlIsPut)
{
    startOffscreenApplication();
    ControlDrawing controls;
    const QImage whole = drawn(controls, {{20, 20, 22, 22}, {}});
    EXPECT_EQ(drawn(controls, {{20.2, 19.8, 22, 22}, {}}), whole);
    EXPECT_NE(drawn(controls, {{20.5, 20, 22, 22}, {}}), whole) << "a pixel further";
}

TEST(ControlBlendTest, MixesColorsByFraction)
{
    EXPECT_EQ(blended({1, 0.5, 0, 1}, 0, {0, 0, 0, 1}), (Color{1, 0.5, 0, 1}));
    EXPECT_EQ(blended({1, 0.5, 0, 1}, 0.5, {0, 0, 1, 1}), (Color{0.5, 0.25, 0.5, 1}));
}

TEST(ControlSymbolsTest, AreAsLargeAsTheirPointSizeSays)
{
    const auto boxOf = [](ControlSymbol symbol) { return controlSymbolPath(symbol, 100).boundingRect(); };
    const auto expectBox = [&](ControlSymbol symbol, double reach) {
        const QRectF box = boxOf(symbol);
        EXPECT_NEAR(box.left(), -reach, 0.5);
        EXPECT_NEAR(box.right(), reach, 0.5);
        EXPECT_NEAR(box.top(), -reach, 0.5);
        EXPECT_NEAR(box.bottom(), reach, 0.5);
    };
    expectBox(ControlSymbol::move, 64);
    expectBox(ControlSymbol::close, 46);
    expectBox(ControlSymbol::settings, 62);
    expectBox(ControlSymbol::resize, 56.5);
    expectBox(ControlSymbol::record, 55);
    expectBox(ControlSymbol::stopRecording, 50);
    EXPECT_NEAR(controlSymbolPath(ControlSymbol::record, 10).boundingRect().width(), 11, 0.05);
}

TEST(ControlSymbolsTest, TheGearHasAHole)
{
    const QPainterPath gear = controlSymbolPath(ControlSymbol::settings, 100);
    EXPECT_FALSE(gear.contains(QPointF(0, 0)));
    EXPECT_FALSE(gear.contains(QPointF(17, 0)));
    EXPECT_TRUE(gear.contains(QPointF(30, 0)));
}

} // namespace
} // namespace nimbrale
