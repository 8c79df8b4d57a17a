#pragma once

#include "platform/workspace.h"

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace nimbrale {

/// Tells the user, each thing once a run, what sharing cannot do on this desktop and which window to pick in a meeting
/// where there is no virtual display. Main thread only.
class SharingNotice : public std::enable_shared_from_this<SharingNotice> {
public:
    /// `workspace` must outlive it.
    [[nodiscard]] static std::shared_ptr<SharingNotice> create(Workspace& workspace);

    /// What is true now: what the capture cannot do, one sentence each, and the title of the window in the virtual
    /// display's place, absent where there is a virtual display.
    void tell(const std::vector<std::string>& limitations, const std::optional<std::string>& windowTitle);

    /// A window of another program was moved away from the virtual display. Not told where the desktop shows no
    /// notifications: the window is there to be seen.
    void tellWindowReturned();

private:
    explicit SharingNotice(Workspace& workspace) : workspace_(workspace) {}
    void show(const Alert& alert);
    void tellWindow(const std::string& title);

    Workspace& workspace_;
    std::set<std::string> toldLimitations_;
    bool wasWindowTold_ = false;
    bool wasReturnTold_ = false;
    std::vector<std::unique_ptr<OpenQuestion>> alerts_;
};

} // namespace nimbrale
