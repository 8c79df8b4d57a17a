#pragma once

#include "platform/observers.h"
#include "settings/app_settings_values.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
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

private:
    template <typename Value>
    struct Key {
        const char* name;
        Value defaultValue;
    };

    using Bytes = std::vector<std::byte>;

    // The names are the format of the file. Not all of them follow from the property's name.
    static inline const Key<std::int64_t> leftKey{"settingsLeft", 0};
    static inline const Key<std::int64_t> topKey{"settingsTop", 0};
    static inline const Key<std::int64_t> widthKey{"settingsWidth", 800};
    static inline const Key<std::int64_t> heightKey{"settingsHeight", 600};
    static inline const Key<std::int64_t> displayIDKey{"settingsDisplayID", 0};
    static inline const Key<bool> snappingEnabledKey{"settingsSnapping", true};
    static inline const Key<bool> shareNotificationsKey{"shareNotifications", true};
    static inline const Key<std::int64_t> framerateKey{"settingsFramerate", 30};
    static inline const Key<bool> showWelcomeAtLaunchKey{"showWelcomeAtLaunch", true};
    static inline const Key<bool> webcamEnabledKey{"webcamEnabled", false};
    static inline const Key<std::string> webcamDeviceIDKey{"webcamDeviceID", ""};
    static inline const Key<WebcamShape> webcamShapeKey{"webcamShape", WebcamShape::rounded};
    static inline const Key<WebcamBackground> webcamBackgroundKey{"webcamBackground", WebcamBackground::original};
    static inline const Key<bool> webcamMirroredKey{"webcamMirrored", true};
    static inline const Key<bool> webcamFadeOnHoverKey{"webcamFadeOnHover", true};
    static inline const Key<double> webcamXKey{"webcamX", -1.0};
    static inline const Key<double> webcamYKey{"webcamY", -1.0};
    static inline const Key<double> webcamWidthKey{"webcamWidth", 320.0};
    static inline const Key<double> webcamHeightKey{"webcamHeight", 180.0};
    static inline const Key<bool> recordMicrophoneKey{"recordMicrophone", true};
    static inline const Key<std::string> recordMicrophoneIDKey{"recordMicrophoneID", ""};
    static inline const Key<bool> recordSystemAudioKey{"recordSystemAudio", false};
    static inline const Key<RecordingQuality> recordQualityKey{"recordQuality", RecordingQuality::standard};
    static inline const Key<Bytes> recordFolderBookmarkKey{"recordFolder", {}};
    static inline const Key<SettingsTab> settingsTabKey{"settingsTab", SettingsTab::general};
    static inline const Key<bool> hasRequestedScreenCaptureAccessKey{"requestedScreenCaptureAccess", false};

public:
    /// The instance on the user's settings file. Made on first use and never destroyed.
    [[nodiscard]] static AppSettings& shared();

    /// Nimbrale/Nimbrale.conf in the user's configuration folder: $XDG_CONFIG_HOME, which counts only when it is
    /// absolute, else .config in the home folder.
    [[nodiscard]] static std::string pathOfUserSettings();

    /// Settings in a file of the caller's choice. A file that is there but cannot be understood is renamed on opening
    /// and counts as empty.
    explicit AppSettings(const std::string& filePath);
    ~AppSettings();
    AppSettings(const AppSettings&) = delete;
    AppSettings& operator=(const AppSettings&) = delete;

    /// `observer` is called before each assignment takes effect, whether or not the new value differs. One action of
    /// the user may assign several properties.
    [[nodiscard]] Subscription observeChanges(std::function<void()> observer);

    /// Runs `assign`, which may assign any number of properties. Each takes effect and is told to the observers as
    /// always, but the file is written once, when all are assigned: whenever the process ends, the file has all of them
    /// or none.
    void changeTogether(const std::function<void()>& assign);

    /// The frame's region on its display, in points: x from the left edge, y down from one point below the menu bar.
    [[nodiscard]] std::int64_t left() const { return read(leftKey); }
    void setLeft(std::int64_t left) { assign(leftKey, left); }
    [[nodiscard]] std::int64_t top() const { return read(topKey); }
    void setTop(std::int64_t top) { assign(topKey, top); }
    [[nodiscard]] std::int64_t width() const { return read(widthKey); }
    void setWidth(std::int64_t width) { assign(widthKey, width); }
    [[nodiscard]] std::int64_t height() const { return read(heightKey); }
    void setHeight(std::int64_t height) { assign(heightKey, height); }
    /// The display that holds the frame; 0 means the main display.
    [[nodiscard]] std::int64_t displayID() const { return read(displayIDKey); }
    void setDisplayID(std::int64_t displayID) { assign(displayIDKey, displayID); }

    [[nodiscard]] bool snappingEnabled() const { return read(snappingEnabledKey); }
    void setSnappingEnabled(bool enabled) { assign(snappingEnabledKey, enabled); }
    [[nodiscard]] bool shareNotifications() const { return read(shareNotificationsKey); }
    void setShareNotifications(bool share) { assign(shareNotificationsKey, share); }
    /// Frames per second of the capture.
    [[nodiscard]] std::int64_t framerate() const { return read(framerateKey); }
    void setFramerate(std::int64_t framerate) { assign(framerateKey, framerate); }
    [[nodiscard]] bool showWelcomeAtLaunch() const { return read(showWelcomeAtLaunchKey); }
    void setShowWelcomeAtLaunch(bool show) { assign(showWelcomeAtLaunchKey, show); }

    [[nodiscard]] bool webcamEnabled() const { return read(webcamEnabledKey); }
    void setWebcamEnabled(bool enabled) { assign(webcamEnabledKey, enabled); }
    /// Empty means the default camera.
    [[nodiscard]] std::string webcamDeviceID() const { return read(webcamDeviceIDKey); }
    void setWebcamDeviceID(const std::string& deviceID) { assign(webcamDeviceIDKey, deviceID); }
    [[nodiscard]] WebcamShape webcamShape() const { return read(webcamShapeKey); }
    void setWebcamShape(WebcamShape shape) { assign(webcamShapeKey, shape); }
    [[nodiscard]] WebcamBackground webcamBackground() const { return read(webcamBackgroundKey); }
    void setWebcamBackground(WebcamBackground background) { assign(webcamBackgroundKey, background); }
    [[nodiscard]] bool webcamMirrored() const { return read(webcamMirroredKey); }
    void setWebcamMirrored(bool mirrored) { assign(webcamMirroredKey, mirrored); }
    [[nodiscard]] bool webcamFadeOnHover() const { return read(webcamFadeOnHoverKey); }
    void setWebcamFadeOnHover(bool fades) { assign(webcamFadeOnHoverKey, fades); }
    /// The webcam box inside the region, in points; a negative position means that it was not placed yet.
    [[nodiscard]] double webcamX() const { return read(webcamXKey); }
    void setWebcamX(double x) { assign(webcamXKey, x); }
    [[nodiscard]] double webcamY() const { return read(webcamYKey); }
    void setWebcamY(double y) { assign(webcamYKey, y); }
    [[nodiscard]] double webcamWidth() const { return read(webcamWidthKey); }
    void setWebcamWidth(double width) { assign(webcamWidthKey, width); }
    [[nodiscard]] double webcamHeight() const { return read(webcamHeightKey); }
    void setWebcamHeight(double height) { assign(webcamHeightKey, height); }

    [[nodiscard]] bool recordMicrophone() const { return read(recordMicrophoneKey); }
    void setRecordMicrophone(bool record) { assign(recordMicrophoneKey, record); }
    /// Empty means the default microphone.
    [[nodiscard]] std::string recordMicrophoneID() const { return read(recordMicrophoneIDKey); }
    void setRecordMicrophoneID(const std::string& microphoneID) { assign(recordMicrophoneIDKey, microphoneID); }
    [[nodiscard]] bool recordSystemAudio() const { return read(recordSystemAudioKey); }
    void setRecordSystemAudio(bool record) { assign(recordSystemAudioKey, record); }
    [[nodiscard]] RecordingQuality recordQuality() const { return read(recordQualityKey); }
    void setRecordQuality(RecordingQuality quality) { assign(recordQualityKey, quality); }
    /// Bytes that lead back to the chosen folder; empty means the default folder.
    [[nodiscard]] Bytes recordFolderBookmark() const { return read(recordFolderBookmarkKey); }
    void setRecordFolderBookmark(const Bytes& bookmark) { assign(recordFolderBookmarkKey, bookmark); }

    [[nodiscard]] SettingsTab settingsTab() const { return read(settingsTabKey); }
    void setSettingsTab(SettingsTab tab) { assign(settingsTabKey, tab); }
    /// Whether the system's prompt for the permission to capture was shown once.
    [[nodiscard]] bool hasRequestedScreenCaptureAccess() const { return read(hasRequestedScreenCaptureAccessKey); }
    void setHasRequestedScreenCaptureAccess(bool requested) { assign(hasRequestedScreenCaptureAccessKey, requested); }

private:
    template <typename Value>
    [[nodiscard]] Value read(const Key<Value>& key) const
    {
        const std::optional<SettingsDocument::Value> stored = storedValue(key.name);
        return stored ? valueOfStoredForm<Value>(*stored).value_or(key.defaultValue) : key.defaultValue;
    }
    template <typename Value>
    void assign(const Key<Value>& key, const Value& value)
    {
        observers_.notify();
        store(key.name, storedForm(value));
    }

    [[nodiscard]] std::optional<SettingsDocument::Value> storedValue(const char* key) const;
    void store(const char* key, SettingsDocument::Value value);

    std::unique_ptr<SettingsStore> store_;
    Observers observers_;
};

} // namespace nimbrale
