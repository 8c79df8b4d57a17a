#pragma once

#include "platform/workspace.h"

#include <QObject>

#include <functional>

namespace nimbrale {

/// The service that shows notifications on this desktop, on the session's bus. Lives on the main thread, while the
/// application object exists.
class NotificationService final : public QObject {
public:
    NotificationService() = default;
    ~NotificationService() override = default;
    NotificationService(const NotificationService&) = delete;
    NotificationService& operator=(const NotificationService&) = delete;

    /// `onNotShown` is called later, and not once this object has gone, where there is no such service or it refuses.
    void show(const Notification& notification, std::function<void()> onNotShown);
};

} // namespace nimbrale
