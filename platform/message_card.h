#pragma once

#include <QFont>
#include <QPoint>
#include <QSize>
#include <QString>

class QPainter;

namespace nimbrale {

/// A short text on a card: what viewers see in the middle of a black display while there is no picture. Any thread that
/// may draw text.
class MessageCard {
public:
    /// Laid out for an area of that size, in whatever units a painter then has; lines of `text` end with '\n'.
    MessageCard(QString text, double areaWidth, double areaHeight);

    /// Empty where the area is too small for readable text.
    [[nodiscard]] const QSize& size() const { return size_; }
    /// Draws the card, without anything around it, with its top-left corner there.
    void draw(QPainter& painter, QPoint corner) const;

private:
    [[nodiscard]] double widthAt(double textHeight);

    QString text_;
    QFont font_;
    double textHeight_;
    QSize size_;
};

} // namespace nimbrale
