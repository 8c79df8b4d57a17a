#pragma once

#include "app/user_notices.h"

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace nimbrale {

/// Tells the user, each thing once a run, what sharing cannot do on this desktop and which window to pick in a meeting
/// where there is no virtual display. Main thread only.
class SharingNotice {
public:
    /// `workspace` must outlive it.
    explicit SharingNotice(Workspace& workspace) : workspace_(workspace), notices_(UserNotices::create(workspace)) {}

    /// What is true now: what the capture cannot do, one sentence each, and the title of the window in the virtual
    /// display's place, absent where there is a virtual display.
    void tell(const std::vector<std::string>& limitations, const std::optional<std::string>& windowTitle);

    /// A window of another program was moved away from the virtual display. Not told where the desktop shows no
    /// notifications: the window is there to be seen.
    void tellWindowReturned();

private:
    Workspace& workspace_;
    std::shared_ptr<UserNotices> notices_;
    std::set<std::string> toldLimitations_;
    bool wasWindowTold_ = false;
    bool wasReturnTold_ = false;
};

} // namespace nimbrale
