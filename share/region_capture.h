#pragma once

#include "geometry/display_geometry.h"
#include "platform/main_queue.h"
#include "platform/screen_capture.h"
#include "platform/screens.h"
#include "platform/serial_queue.h"
#include "settings/app_settings.h"
#include "share/frame.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace nimbrale {

/// Captures the framed area of one display, without the windows of this application, and hands over every picture on
/// the main thread. Main thread only; what it is given must outlive it.
class RegionCapture : public std::enable_shared_from_this<RegionCapture> {
public:
    using StartCompletion = std::function<void(Result<void>)>;

    /// Nothing is captured until `start`.
    [[nodiscard]] static std::shared_ptr<RegionCapture> create(ScreenCapture& screenCapture, Screens& screens,
                                                               MainQueue& mainQueue, AppSettings& settings);
    ~RegionCapture();
    RegionCapture(const RegionCapture&) = delete;
    RegionCapture& operator=(const RegionCapture&) = delete;

    /// Called with every complete picture until `stop`.
    std::function<void(const Frame&)> onFrame;

    /// Chooses the display, takes the region from the settings and starts the stream. `content` is what the system
    /// answered to the question what can be captured; without one, capturing is not permitted: the first time ever
    /// the user is asked and `completion` never runs, later `completion` gets `captureDeclined`. `completion` may run
    /// within this call where `content` already tells the failure, and on the main queue otherwise.
    void start(std::optional<Result<ShareableContent>> content, StartCompletion completion);

    /// Delivers no further frame and runs `then` once the stream has stopped, at once if there is none. This object
    /// may be released meanwhile.
    void stop(std::function<void()> then);

    /// Takes over region, frame rate and notification choice from the settings and puts the region back there as it
    /// was clamped. Returns whether the region changed. Does nothing before a start has chosen a display.
    bool settingsChanged();

    /// Writes the region to the settings; a setting that already holds its value is not written. Does nothing before a
    /// start has chosen a display.
    void storeRegionInSettings();

    /// Has the stream leave out every window that the application has by now. Waits up to about three seconds for a
    /// window of the application to be listed. Does nothing without a stream.
    void refreshFilter();

    /// Makes the stream follow `region` and the frame rate in the settings. At most one update is under way; changes
    /// during it are taken up together when it ends. Does nothing without a stream.
    void applyRegion();

    /// The wanted area, region coordinates of the captured display. Follow a change with `applyRegion`.
    [[nodiscard]] const Rect& region() const { return region_; }
    void setRegion(const Rect& region) { region_ = region; }

    /// Absent until a start has chosen a display.
    [[nodiscard]] const std::optional<DisplayGeometry>& geometry() const { return geometry_; }
    [[nodiscard]] const std::optional<CaptureDisplay>& display() const { return display_; }
    /// Pixels per point of the captured display.
    [[nodiscard]] double pixelScale() const { return pixelScale_; }
    [[nodiscard]] bool hasStream() const { return stream_ != nullptr; }

private:
    struct Choice {
        CaptureDisplay display;
        Screen screen;
    };

    RegionCapture(ScreenCapture& screenCapture, Screens& screens, MainQueue& mainQueue, AppSettings& settings);

    void startWithoutPermission(StartCompletion completion);
    [[nodiscard]] std::optional<Choice> chooseDisplay(const ShareableContent& content) const;
    void adopt(const Choice& choice);
    void startStream(const ShareableContent& content, StartCompletion completion);
    [[nodiscard]] CaptureStream::SampleHandler sampleHandler();
    [[nodiscard]] StreamConfiguration configuration(const Rect& region, std::int64_t framerate) const;
    [[nodiscard]] ContentFilter filter(const ShareableContent& content) const;
    void refreshFilter(int attempt);
    void updateFilter(int attempt, const Result<ShareableContent>& content);
    void finishUpdate(const Rect& region, std::int64_t framerate, const Result<void>& result);
    void deliver(const std::shared_ptr<const Surface>& surface);
    [[nodiscard]] Rect regionFromSettings(const DisplayGeometry& geometry) const;

    ScreenCapture& screenCapture_;
    Screens& screens_;
    MainQueue& mainQueue_;
    AppSettings& settings_;
    std::optional<DisplayGeometry> geometry_;
    std::optional<CaptureDisplay> display_;
    double pixelScale_ = 2;
    Rect region_;
    bool isUpdatingConfiguration_ = false;
    std::int64_t appliedFramerate_ = 0;
    Rect appliedRegion_;
    Rect previousAppliedRegion_;
    bool appliedShareNotifications_ = true;
    SerialQueue frameQueue_{"Nimbrale.frames"};
    std::unique_ptr<CaptureStream> stream_; // Delivers on the queue above, which must therefore go after it.
};

} // namespace nimbrale
