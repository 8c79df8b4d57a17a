#pragma once

#include "tests/support/process.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

namespace nimbrale::test {

/// Handles the events of this process until the condition holds; false when it does not in time. In between it sleeps
/// as an application does: what is done before sleep, such as looking for events that replies brought along, is done.
template <typename Condition>
[[nodiscard]] bool runUntil(Condition condition, Milliseconds patience = Milliseconds{5000})
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > patience.count())
            return false;
        QEventLoop loop;
        QTimer::singleShot(2, Qt::PreciseTimer, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}

} // namespace nimbrale::test
