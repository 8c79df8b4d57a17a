#include "app/user_notices.h"

#include "app/alerts.h"

#include <string>

namespace nimbrale {

std::shared_ptr<UserNotices> UserNotices::create(Workspace& workspace)
{
    return std::shared_ptr<UserNotices>(new UserNotices(workspace));
}

void UserNotices::tell(const Notification& notification)
{
    // The path of a file may have them.
    if (notification.text.find_first_of("&<>") != std::string::npos) {
        show(alerts::insteadOf(notification));
        return;
    }
    workspace_.notify(notification, [weak = weak_from_this(), notification] {
        if (const auto self = weak.lock())
            self->show(alerts::insteadOf(notification));
    });
}

void UserNotices::mention(const Notification& notification)
{
    workspace_.notify(notification, [] {});
}

void UserNotices::show(const Alert& alert)
{
    alerts_.push_back(workspace_.showAlert(alert, [](int) {}));
}

} // namespace nimbrale
