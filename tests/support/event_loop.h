#pragma once

#include "tests/support/process.h"

#include <QCoreApplication>
#include <QElapsedTimer>

namespace nimbrale::test {

/// Handles the events of this process until the condition holds; false when it does not in time.
template <typename Condition>
[[nodiscard]] bool runUntil(Condition condition, Milliseconds patience = Milliseconds{5000})
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > patience.count())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

} // namespace nimbrale::test
