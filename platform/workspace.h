#pragma once

#include "platform/termination.h"

#include <functional>
#include <string>
#include <vector>

namespace nimbrale {

enum class AlertStyle { informational, warning };

struct Alert {
    AlertStyle style = AlertStyle::informational;
    std::string message;
    std::string informativeText;
    /// The first one is the default button. At least one.
    std::vector<std::string> buttons;

    bool operator==(const Alert&) const = default;
};

/// The application among the user's other applications. Main thread only.
class Workspace {
public:
    virtual ~Workspace() = default;

    /// Makes the application the one that the user works with, as far as the desktop lets it.
    virtual void activate() = 0;
    /// Opens a location by its scheme; false when it is no location or nothing opens such.
    virtual bool openLocation(const std::string& location) = 0;
    /// Application-modal. `onAnswer` gets the index of the pressed button; closing the alert counts as the last one.
    virtual void showAlert(const Alert& alert, std::function<void(int button)> onAnswer) = 0;
    /// Ends text editing in every window of the toolkit.
    virtual void dropKeyboardFocus() = 0;
    /// Asks the application to quit: it ends in order once `termination()` has granted it. Who asks again while the
    /// answer is awaited changes nothing. The desktop's own wishes, such as the end of the session, come this way too.
    virtual void terminate() = 0;
    /// Whether the application has been asked to quit and is ending or deciding.
    [[nodiscard]] virtual bool isTerminating() const = 0;
    [[nodiscard]] virtual Termination& termination() = 0;
};

} // namespace nimbrale
