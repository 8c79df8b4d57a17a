#pragma once

#include "platform/observers.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace nimbrale {

class SettingsStore;

/// The one store of every preference and of the remembered place of the frame.
///
/// Each property is one key of the settings file; reading gives the stored value or, where there is none or none that
/// can be read as the property's type, the default. Assigning tells the observers first and then writes the key at
/// once; defaults are never written by themselves. Nothing is clamped here: whoever uses a value applies its limits.
/// Main thread only.
class AppSettings {
public:
    enum class WebcamShape { rectangle, rounded, circle };
    enum class WebcamBackground { original, blurred, transparent };
    enum class RecordingQuality { standard, high };
    enum class SettingsTab { general, webcam, recording };

    /// The instance on the user's settings file, Nimbrale/Nimbrale.conf in the user's configuration directory. Made
    /// on first use and never destroyed.
    [[nodiscard]] static AppSettings& shared();

    /// Settings in a file of the caller's choice. A file that is there but cannot be understood is renamed on opening
    /// and counts as empty.
    explicit AppSettings(const std::string& filePath);
    ~AppSettings();
    AppSettings(const AppSettings&) = delete;
    AppSettings& operator=(const AppSettings&) = delete;

    /// `observer` is called before each assignment takes effect, whether or not the new value differs. One action of
    /// the user may assign several properties.
    [[nodiscard]] Subscription observeChanges(std::function<void()> observer);

    /// The frame's region on its display, in points: x from the left edge, y down from one point below the menu bar.
    [[nodiscard]] std::int64_t left() const;
    void setLeft(std::int64_t left);
    [[nodiscard]] std::int64_t top() const;
    void setTop(std::int64_t top);
    [[nodiscard]] std::int64_t width() const;
    void setWidth(std::int64_t width);
    [[nodiscard]] std::int64_t height() const;
    void setHeight(std::int64_t height);
    /// The display that holds the frame; 0 means the main display.
    [[nodiscard]] std::int64_t displayID() const;
    void setDisplayID(std::int64_t displayID);

    [[nodiscard]] bool snappingEnabled() const;
    void setSnappingEnabled(bool enabled);
    [[nodiscard]] bool shareNotifications() const;
    void setShareNotifications(bool share);
    /// Frames per second of the capture.
    [[nodiscard]] std::int64_t framerate() const;
    void setFramerate(std::int64_t framerate);
    [[nodiscard]] bool showWelcomeAtLaunch() const;
    void setShowWelcomeAtLaunch(bool show);

    [[nodiscard]] bool webcamEnabled() const;
    void setWebcamEnabled(bool enabled);
    /// Empty means the default camera.
    [[nodiscard]] std::string webcamDeviceID() const;
    void setWebcamDeviceID(const std::string& deviceID);
    [[nodiscard]] WebcamShape webcamShape() const;
    void setWebcamShape(WebcamShape shape);
    [[nodiscard]] WebcamBackground webcamBackground() const;
    void setWebcamBackground(WebcamBackground background);
    [[nodiscard]] bool webcamMirrored() const;
    void setWebcamMirrored(bool mirrored);
    [[nodiscard]] bool webcamFadeOnHover() const;
    void setWebcamFadeOnHover(bool fades);
    /// The webcam box inside the region, in points; a negative position means that it was not placed yet.
    [[nodiscard]] double webcamX() const;
    void setWebcamX(double x);
    [[nodiscard]] double webcamY() const;
    void setWebcamY(double y);
    [[nodiscard]] double webcamWidth() const;
    void setWebcamWidth(double width);
    [[nodiscard]] double webcamHeight() const;
    void setWebcamHeight(double height);

    [[nodiscard]] bool recordMicrophone() const;
    void setRecordMicrophone(bool record);
    /// Empty means the default microphone.
    [[nodiscard]] std::string recordMicrophoneID() const;
    void setRecordMicrophoneID(const std::string& microphoneID);
    [[nodiscard]] bool recordSystemAudio() const;
    void setRecordSystemAudio(bool record);
    [[nodiscard]] RecordingQuality recordQuality() const;
    void setRecordQuality(RecordingQuality quality);
    /// Bytes that lead back to the chosen folder; empty means the default folder.
    [[nodiscard]] std::vector<std::byte> recordFolderBookmark() const;
    void setRecordFolderBookmark(const std::vector<std::byte>& bookmark);

    [[nodiscard]] SettingsTab settingsTab() const;
    void setSettingsTab(SettingsTab tab);
    /// Whether the system's prompt for the permission to capture was shown once.
    [[nodiscard]] bool hasRequestedScreenCaptureAccess() const;
    void setHasRequestedScreenCaptureAccess(bool requested);

private:
    std::unique_ptr<SettingsStore> store_;
    Observers observers_;
};

} // namespace nimbrale
