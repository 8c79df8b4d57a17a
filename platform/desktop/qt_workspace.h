#pragma once

#include "platform/desktop/alert_boxes.h"
#include "platform/desktop/file_manager.h"
#include "platform/desktop/notification_service.h"
#include "platform/desktop/quit_requests.h"
#include "platform/workspace.h"

namespace nimbrale {

/// The workspace by means of the toolkit and the desktop's own programs. Lives on the main thread, while the
/// application object exists; questions that are open when it goes are closed without an answer.
class QtWorkspace final : public Workspace {
public:
    /// Asks the window system for what the toolkit asks for with a time of its own, which knows nothing of panels.
    using Activator = std::function<void(std::uintptr_t nativeWindow, std::optional<EventTime> cause)>;

    /// Without an activator the toolkit's own way serves.
    explicit QtWorkspace(Activator activator = {});
    ~QtWorkspace() override;
    QtWorkspace(const QtWorkspace&) = delete;
    QtWorkspace& operator=(const QtWorkspace&) = delete;

    void activate(std::uintptr_t nativeWindow, std::optional<EventTime> cause) override;
    bool openLocation(const std::string& location) override;
    [[nodiscard]] std::unique_ptr<OpenQuestion> showAlert(const Alert& alert,
                                                          std::function<void(int button)> onAnswer) override;
    void notify(const Notification& notification, std::function<void()> onNotShown) override;
    void keepAlertsOffDisplay(const std::string& name) override;
    void revealFile(const std::filesystem::path& file) override;
    [[nodiscard]] std::unique_ptr<OpenQuestion>
    chooseFolder(const FolderQuestion& question,
                 std::function<void(const std::optional<std::filesystem::path>& folder)> onChosen) override;
    [[nodiscard]] std::string folderName(const std::filesystem::path& folder) const override;
    [[nodiscard]] Subscription describeControls(const std::string& title,
                                                std::function<std::vector<AccessibleControl>()> controls) override;
    void dropKeyboardFocus() override;
    void terminate() override;
    [[nodiscard]] bool isTerminating() const override { return isEnding_ || termination_.isWaiting(); }
    [[nodiscard]] Termination& termination() override { return termination_; }

private:
    Activator activator_;
    AlertBoxes alerts_;
    FileManager fileManager_;
    NotificationService notifications_;
    Termination termination_;
    bool isEnding_ = false;
    QuitRequests quitRequests_{termination_, [this] { terminate(); }};
};

} // namespace nimbrale
