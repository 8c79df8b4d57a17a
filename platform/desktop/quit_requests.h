#pragma once

#include "platform/termination.h"

#include <QObject>

#include <functional>

class QSessionManager;

namespace nimbrale {

/// The desktop's wishes to end the application, as the toolkit hears them: the session that ends asks before it closes
/// its programs and waits for the answer, and tells them to quit afterwards. Lives while the application object exists,
/// on its thread.
class QuitRequests final : public QObject {
public:
    /// `onQuit` is called when the application is to quit, in place of the toolkit's own way, which asks nobody.
    QuitRequests(Termination& termination, std::function<void()> onQuit);
    ~QuitRequests() override;
    QuitRequests(const QuitRequests&) = delete;
    QuitRequests& operator=(const QuitRequests&) = delete;

    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void prepareForSessionEnd(QSessionManager& session);

    Termination& termination_;
    std::function<void()> onQuit_;
};

} // namespace nimbrale
