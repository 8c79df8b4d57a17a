#pragma once

#include <QGuiApplication>

namespace nimbrale {

/// Starts the toolkit without a desktop, for tests that draw or measure text. May be called any number of times.
inline void startOffscreenApplication()
{
    static char name[] = "test";
    static char* arguments[] = {name, nullptr};
    static int count = 1;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static const QGuiApplication application(count, arguments);
}

} // namespace nimbrale
