#pragma once

#include "platform/desktop/quit_requests.h"
#include "platform/workspace.h"

#include <QPointer>

#include <vector>

class QMessageBox;

namespace nimbrale {

/// The workspace by means of the toolkit and the desktop's own programs. Lives on the main thread, while the
/// application object exists; alerts that are open when it goes are closed without an answer.
class QtWorkspace final : public Workspace {
public:
    QtWorkspace() = default;
    ~QtWorkspace() override;
    QtWorkspace(const QtWorkspace&) = delete;
    QtWorkspace& operator=(const QtWorkspace&) = delete;

    void activate() override;
    bool openLocation(const std::string& location) override;
    void showAlert(const Alert& alert, std::function<void(int button)> onAnswer) override;
    void dropKeyboardFocus() override;
    void terminate() override;
    [[nodiscard]] bool isTerminating() const override { return isEnding_ || termination_.isWaiting(); }
    [[nodiscard]] Termination& termination() override { return termination_; }

private:
    Termination termination_;
    bool isEnding_ = false;
    QuitRequests quitRequests_{termination_, [this] { terminate(); }};
    std::vector<QPointer<QMessageBox>> alerts_;
};

} // namespace nimbrale
