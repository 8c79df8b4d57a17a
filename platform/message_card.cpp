#include "platform/message_card.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QStringList>

#include <algorithm>
#include <cmath>
#include <utility>

namespace nimbrale {

namespace {

constexpr double smallestTextHeight = 11;
constexpr double largestTextHeight = 56;
constexpr double textHeightPerAreaHeight = 1.0 / 16;
constexpr double largestPartOfWidth = 0.8;
// In text heights.
constexpr double sidePadding = 1.6;
constexpr double topPadding = 1.1;
constexpr double cornerRadius = 0.7;

} // namespace

MessageCard::MessageCard(QString text, double areaWidth, double areaHeight)
    : text_(std::move(text)), textHeight_(std::min(areaHeight * textHeightPerAreaHeight, largestTextHeight))
{
    font_.setWeight(QFont::DemiBold);
    font_.setStyleStrategy(QFont::StyleStrategy(QFont::PreferAntialias | QFont::NoSubpixelAntialias));
    const double available = areaWidth * largestPartOfWidth;
    const double width = widthAt(textHeight_);
    if (width > available)
        textHeight_ *= available / width;
    if (textHeight_ < smallestTextHeight)
        return;
    const int cardWidth = static_cast<int>(std::ceil(widthAt(textHeight_)));
    const QFontMetricsF metrics(font_);
    const double textBlock = metrics.height() + static_cast<double>(text_.count('\n')) * metrics.lineSpacing();
    size_ = {cardWidth, static_cast<int>(std::ceil(textBlock + 2 * topPadding * textHeight_))};
}

double MessageCard::widthAt(double textHeight)
{
    font_.setPixelSize(std::max(1, static_cast<int>(std::lround(textHeight))));
    const QFontMetricsF metrics(font_);
    double widest = 0;
    for (const QString& line : text_.split('\n'))
        widest = std::max(widest, metrics.horizontalAdvance(line));
    return widest + 2 * sidePadding * textHeight;
}

void MessageCard::draw(QPainter& painter, QPoint corner) const
{
    if (size_.isEmpty())
        return;
    const QRect card(corner, size_);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x1f, 0x1f, 0x22));
    painter.drawRoundedRect(card, cornerRadius * textHeight_, cornerRadius * textHeight_);
    painter.setPen(QColor(0xf2, 0xf2, 0xf2));
    painter.setFont(font_);
    painter.drawText(card, Qt::AlignCenter, text_);
}

} // namespace nimbrale
