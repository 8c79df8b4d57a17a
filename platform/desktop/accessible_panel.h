#pragma once

#include "platform/workspace.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

class QWindow;

namespace nimbrale {

/// A panel in the tree that the toolkit shows to assistive technology. Panels are no windows of the toolkit: one of the
/// toolkit's that is never shown stands for each. Main thread only, while the application object exists.
class AccessiblePanel {
public:
    AccessiblePanel(const std::string& title, std::function<std::vector<AccessibleControl>()> controls);
    ~AccessiblePanel();
    AccessiblePanel(const AccessiblePanel&) = delete;
    AccessiblePanel& operator=(const AccessiblePanel&) = delete;

private:
    std::unique_ptr<QWindow> window_;
};

} // namespace nimbrale
