#pragma once

#include "platform/result.h"
#include "platform/workspace.h"

#include <string>
#include <vector>

namespace nimbrale {

/// What the application tells the user in alerts, and the order of their buttons.
namespace alerts {

inline constexpr int openSystemSettingsButton = 0;
inline constexpr int tryAgainButton = 0;

/// Buttons: open the system's settings, quit.
[[nodiscard]] Alert capturePermissionNeeded();
/// Buttons: try again, quit.
[[nodiscard]] Alert captureCouldNotStart(const Error& error);
/// Names the window to share where there is no virtual display.
[[nodiscard]] Notification windowToShare(const std::string& title);
/// The same where the desktop shows no notifications. One button.
[[nodiscard]] Alert windowToShareInstead(const std::string& title);
/// Says that a window was moved away from the virtual display.
[[nodiscard]] Notification windowWasReturned();
/// Tells what this system's capture cannot do, one sentence a line. One button.
[[nodiscard]] Alert captureIsLimited(const std::vector<std::string>& limitations);

} // namespace alerts

} // namespace nimbrale
