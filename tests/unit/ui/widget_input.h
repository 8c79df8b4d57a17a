#pragma once

#include <QApplication>
#include <QKeyEvent>
#include <QWheelEvent>
#include <QWidget>

namespace nimbrale {

/// What a user does to a widget, for tests without a desktop.

inline void press(QWidget& widget, int key, const QString& text = {})
{
    QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier, text);
    QApplication::sendEvent(&widget, &event);
}

/// Replaces what a text field holds, character by character, and confirms nothing.
inline void type(QWidget& field, const QString& text)
{
    field.setFocus();
    QMetaObject::invokeMethod(&field, "selectAll");
    for (const QChar character : text)
        press(field, Qt::Key_unknown, character);
}

/// One notch is 120 units; positive is away from the user.
inline void turnWheel(QWidget& widget, int units)
{
    const QPointF middle = widget.rect().center();
    QWheelEvent event(middle, widget.mapToGlobal(middle), {}, {0, units}, Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
    QApplication::sendEvent(&widget, &event);
}

[[nodiscard]] inline QString textOf(const QWidget& field)
{
    return field.property("text").toString();
}

} // namespace nimbrale
