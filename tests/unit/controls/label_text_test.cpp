// Text on the screen: its font, and where each of its pieces stands.

#include "controls/label_text.h"

#include "region/region_overlay_painter.h"
#include "tests/fakes/offscreen_application.h"

#include <QFontMetricsF>
#include <QPaintDevice>
#include <QPaintEngine>
#include <QPainter>
#include <cmath>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace nimbrale {
namespace {

/// A text as it was drawn.
struct DrawnText {
    QString text;
    QPointF position;
    int pixelSize;
    int weight;
    QColor color;
};

/// Notes the texts that are drawn and shows nothing.
class TextNotes final : public QPaintEngine, public QPaintDevice {
public:
    TextNotes() : QPaintEngine(AllFeatures) {}

    bool begin(QPaintDevice*) override { return true; }
    bool end() override { return true; }
    void updateState(const QPaintEngineState&) override {}
    void drawPixmap(const QRectF&, const QPixmap&, const QRectF&) override {}
    void drawImage(const QRectF&, const QImage&, const QRectF&, Qt::ImageConversionFlags) override {}
    void drawPath(const QPainterPath&) override {}
    void drawTextItem(const QPointF& position, const QTextItem& item) override
    {
        texts.push_back(
            {item.text(), position, item.font().pixelSize(), item.font().weight(), painter()->pen().color()});
    }
    [[nodiscard]] Type type() const override { return User; }
    [[nodiscard]] QPaintEngine* paintEngine() const override { return const_cast<TextNotes*>(this); }

    std::vector<DrawnText> texts;

protected:
    [[nodiscard]] int metric(PaintDeviceMetric metric) const override
    {
        switch (metric) {
        case PdmWidth:
        case PdmHeight:
            return 400;
        case PdmDevicePixelRatio:
            return 1;
        case PdmDevicePixelRatioScaled:
            return static_cast<int>(devicePixelRatioFScale());
        default:
            return 96;
        }
    }
};

std::vector<DrawnText> textsOf(const RegionOverlayAppearance& appearance)
{
    startOffscreenApplication();
    RegionOverlayLayoutInput input;
    input.region = {40, 100, 300, 200};
    input.screen = {0, 0, 400, 400};
    input.recordingTextWidth = 60;
    input.sizeLabelTextWidth = 80;
    TextNotes notes;
    QPainter painter(&notes);
    RegionOverlayPainter(OverlayColors{})
        .paint(painter, {0, 0, 400, 400}, RegionOverlayLayout(input), appearance, {400, 400}, 1);
    painter.end();
    return notes.texts;
}

void expectFont(const std::vector<DrawnText>& texts, int size, int weight)
{
    ASSERT_FALSE(texts.empty());
    for (const DrawnText& text : texts) {
        EXPECT_EQ(text.pixelSize, size);
        EXPECT_EQ(text.weight, weight);
        EXPECT_EQ(text.color, QColor(Qt::white));
    }
}

TEST(LabelFontTest, RecordingTimeIsWhiteAndBoldOfElevenPoints)
{
    RegionOverlayAppearance appearance;
    appearance.recordingText = "REC 1:05";
    expectFont(textsOf(appearance), 11, 700);
}

TEST(LabelFontTest, SizeLabelIsWhiteAndSemiboldOfTwelvePoints)
{
    RegionOverlayAppearance appearance;
    appearance.sizeLabel = "1280 × 720 · ½ width";
    expectFont(textsOf(appearance), 12, 600);
}

std::vector<DrawnText> piecesOf(const QFont& font, const QRectF& rect, const QString& text)
{
    TextNotes notes;
    QPainter painter(&notes);
    drawLabelText(painter, font, rect, text);
    painter.end();
    return notes.texts;
}

TEST(DigitWidthTest, AnyOfTheTenDigitsMayBeTheWidest)
{
    for (const char widest : std::string("0123456789")) {
        const auto advance = [widest](QChar digit) { return digit == QLatin1Char(widest) ? 7.5 : 7.0; };
        EXPECT_EQ(digitWidth(advance), 7.5) << widest;
    }
}

// Digits of another script stand for digits of another width: those of the usual one are all alike in the font at hand.
TEST(LabelTextTest, EveryDigitTakesTheSamePlace)
{
    startOffscreenApplication();
    const QFont font = labelFont(12, QFont::DemiBold);
    const QString narrow(QChar(0x0661));
    const QFontMetricsF metrics(font);
    ASSERT_NE(metrics.horizontalAdvance(narrow), metrics.horizontalAdvance("0")) << "the control";
    EXPECT_EQ(labelTextWidth(font, narrow), labelTextWidth(font, "0"));
    EXPECT_EQ(labelTextWidth(font, narrow + ":" + narrow), labelTextWidth(font, "0:0"));

    const std::vector<DrawnText> pieces = piecesOf(font, {0, 0, 100, 20}, narrow + "0");
    ASSERT_EQ(pieces.size(), 2U);
    const double cell = metrics.horizontalAdvance("0");
    const double left = 50 - cell;
    EXPECT_NEAR(pieces[0].position.x(), left + (cell - metrics.horizontalAdvance(narrow)) / 2, 1e-6) << "in its middle";
    EXPECT_NEAR(pieces[1].position.x(), left + cell, 1e-6);
}

TEST(LabelTextTest, StandsInTheMiddleOnWholePixels)
{
    startOffscreenApplication();
    const QFont font = labelFont(12, QFont::DemiBold);
    const QFontMetricsF metrics(font);
    for (const double height : {24.0, 24.25, 24.5, 25.0}) {
        const std::vector<DrawnText> pieces = piecesOf(font, {10, 20, 100, height}, "abc");
        ASSERT_EQ(pieces.size(), 1U);
        EXPECT_EQ(pieces[0].text, "abc");
        EXPECT_NEAR(pieces[0].position.x(), 60 - metrics.horizontalAdvance("abc") / 2, 1e-6);
        EXPECT_EQ(pieces[0].position.y(), std::round(20 + height / 2 + metrics.capHeight() / 2)) << height;
    }
}

} // namespace
} // namespace nimbrale
