#pragma once

#include <QAbstractNativeEventFilter>

namespace nimbrale::x11 {

/// Keeps from the toolkit's windows what other clients made up, but for the kinds that clients speak to each other
/// with: messages, selections, and window managers telling where a window is. Installed for as long as it lives; lives
/// inside the application object's life. Main thread only.
class SentEventFilter final : public QAbstractNativeEventFilter {
public:
    SentEventFilter();
    ~SentEventFilter() override;
    SentEventFilter(const SentEventFilter&) = delete;
    SentEventFilter& operator=(const SentEventFilter&) = delete;

    [[nodiscard]] bool nativeEventFilter(const QByteArray& kind, void* message, qintptr* result) override;
};

} // namespace nimbrale::x11
