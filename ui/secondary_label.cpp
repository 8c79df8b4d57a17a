#include "ui/secondary_label.h"

#include <QEvent>
#include <QPalette>

namespace nimbrale {

namespace {

constexpr float strength = 0.68F;

} // namespace

SecondaryLabel::SecondaryLabel(const QString& text, QWidget* parent) : QLabel(text, parent)
{
    setForegroundRole(QPalette::PlaceholderText);
    adoptColor();
}

void SecondaryLabel::changeEvent(QEvent* event)
{
    QLabel::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        adoptColor();
}

void SecondaryLabel::adoptColor()
{
    QColor color = palette().color(QPalette::WindowText);
    color.setAlphaF(strength);
    if (palette().color(QPalette::PlaceholderText) == color)
        return; // Setting a palette announces it again.
    QPalette paler = palette();
    paler.setColor(QPalette::PlaceholderText, color);
    setPalette(paler);
}

} // namespace nimbrale
