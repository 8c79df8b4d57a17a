#pragma once

#include "platform/workspace.h"

#include <memory>
#include <vector>

namespace nimbrale {

/// Tells the user something that needs no answer. Main thread only.
class UserNotices : public std::enable_shared_from_this<UserNotices> {
public:
    /// `workspace` must outlive it.
    [[nodiscard]] static std::shared_ptr<UserNotices> create(Workspace& workspace);

    /// In a notification, or in an alert where the desktop shows no notifications, or might take the text for markup.
    void tell(const Notification& notification);
    /// In a notification, or not at all: for what must not keep the frame from taking input, as an open alert does.
    void mention(const Notification& notification);
    /// Open alerts close with this object.
    void show(const Alert& alert);

private:
    explicit UserNotices(Workspace& workspace) : workspace_(workspace) {}

    Workspace& workspace_;
    std::vector<std::unique_ptr<OpenQuestion>> alerts_;
};

} // namespace nimbrale
