#pragma once

#include "platform/result.h"
#include "platform/workspace.h"
#include "recording/recorder_error.h"

#include <filesystem>
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
/// The same news where the desktop shows no notifications. One button.
[[nodiscard]] Alert insteadOf(const Notification& notification);
/// Says that a window was moved away from the virtual display.
[[nodiscard]] Notification windowWasReturned();
/// Tells what this system's capture cannot do, one sentence a line. One button.
[[nodiscard]] Alert captureIsLimited(const std::vector<std::string>& limitations);

/// There is no virtual display to record. One button.
[[nodiscard]] Alert recordingNotAvailable();
/// Buttons: open the system's settings, cancel.
[[nodiscard]] Alert microphoneAccessNeeded();
/// One button.
[[nodiscard]] Alert recordingCouldNotStart(const RecorderError& error);
/// One button.
[[nodiscard]] Alert recordingCouldNotBeSaved(const RecorderError& error);
/// The disk of a folder that was chosen for recordings does not answer.
[[nodiscard]] Alert folderNotChosen(const std::filesystem::path& folder);
/// The recording ended without the user's doing.
[[nodiscard]] Notification recordingEnded(const std::string& reason);
/// The same, since the shared screen is set up anew: after a lock, or on another display.
[[nodiscard]] Notification recordingEndedForRestart();
/// The disk keeps the movie of a recording that has ended from being saved.
[[nodiscard]] Notification recordingNotSavedYet();
/// The application ends before the disk has answered.
[[nodiscard]] Notification recordingSavedAtNextStart();
/// A recording was given up before it began, for the same reason.
[[nodiscard]] Notification recordingGivenUpForRestart();
/// A movie that was cut off has been saved.
[[nodiscard]] Notification recordingRecovered(const std::filesystem::path& movie);
/// A movie that was cut off could not be saved; what is left of it is there.
[[nodiscard]] Notification recordingNotRecovered(const std::filesystem::path& remains);

} // namespace alerts

} // namespace nimbrale
