#pragma once

#include "platform/surface_changes.h"
#include "platform/x11/capture/change_collector.h"
#include "platform/x11/capture/desktop_tracker.h"
#include "platform/x11/capture/display_places.h"
#include "platform/x11/capture/frame_pacer.h"
#include "platform/x11/capture/frame_renderer.h"
#include "platform/x11/capture/held_frames.h"
#include "platform/x11/capture/sample_output.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace nimbrale::x11 {

/// What a stream wants, in the server's terms.
struct SessionConfiguration {
    /// Root pixels.
    PixelRect source;
    /// The display that is shown, and where it was when the source was computed.
    DisplayPlace display;
    /// Pixels of the frames.
    int width = 0;
    int height = 0;
    OutputFit fit = OutputFit::fill;
    std::chrono::nanoseconds interval{};
    bool showsCursor = true;
    /// How many frames may be held before the next one has to wait.
    int queueDepth = 1;
    /// Whether the process looks at the frames' pixels.
    bool readsPixels = false;

    bool operator==(const SessionConfiguration&) const = default;
};

struct SessionFilter {
    std::vector<ProcessID> excludedProcesses;
    bool excludesNotifications = false;

    [[nodiscard]] bool excludesNothing() const { return excludedProcesses.empty() && !excludesNotifications; }
};

/// One stream as the capture thread keeps it: what is shown, what of it is dirty, and the pixmap it is composed in.
/// Capture thread only, but for `output`.
class CaptureSession {
public:
    /// `wake` lets the capture thread come by, from any thread and at any time. `onLost` is called on the capture
    /// thread when the server has gone while the session was alive there.
    CaptureSession(MainQueue& mainQueue, std::function<void()> wake, std::function<void()> onLost);
    CaptureSession(const CaptureSession&) = delete;
    CaptureSession& operator=(const CaptureSession&) = delete;

    const std::shared_ptr<SampleOutput> output;

    void configure(const SessionConfiguration& configuration);
    void setFilter(const SessionFilter& filter);

    /// Begins and ends the life in the server. Only in between frames are composed. All but the function must outlive
    /// it.
    void start(Connection& connection, DesktopTracker& desktop, DisplayPlaces& displays,
               std::function<void(xcb_pixmap_t)> releasePixmap);
    void stop();
    void reportLost() const { onLost_(); }

    /// While the display is not known to lie where the source was computed for, no turn comes.
    [[nodiscard]] StreamTiming timing(FramePacer::Clock::time_point now);
    /// Takes the turn that is due, after the desktop's changes were collected: draws what changed. False if nothing
    /// did; else `handOver` is to be called.
    [[nodiscard]] bool takeTurn(FramePacer::Clock::time_point now);
    /// Delivers what was drawn, after the server is known to have drawn it and its events up to then were handled. What
    /// may show another display than the stream's, or a window that is left out, is dropped and drawn anew.
    void handOver();

    /// When memory that is only kept for the next frames goes, should there be none until then; absent for never.
    [[nodiscard]] std::optional<FramePacer::Clock::time_point> nextTrim() const;
    /// Gives it back when that time has come.
    void trim(FramePacer::Clock::time_point now);

private:
    struct DrawnFrame {
        std::shared_ptr<const Surface> surface;
        std::chrono::nanoseconds presentationTime{};
        FramePacer::Clock::time_point tick;
        DisplayPlaces::Moment begun{};
        /// What was left out of it.
        PixelRegion mask;
    };

    void drawFrame(FramePacer::Clock::time_point tick);
    [[nodiscard]] bool showsMasked(const DrawnFrame& frame);
    [[nodiscard]] std::chrono::nanoseconds presentationTime();
    [[nodiscard]] bool includes(const CapturedWindow& window) const;

    SessionConfiguration configuration_;
    SessionFilter filter_;
    ChangeCollector changes_;
    /// Of the pictures delivered so far.
    SurfaceChanges surfaceChanges_;
    FramePacer pacer_;
    /// Of the last `timing`.
    ChangeExpectation expectation_ = ChangeExpectation::none;
    DesktopTracker* desktop_ = nullptr;
    DisplayPlaces* displays_ = nullptr;
    std::unique_ptr<FrameRenderer> renderer_;
    std::unique_ptr<SeenPicture> seen_;
    std::shared_ptr<HeldFrames> heldFrames_;
    std::function<void()> onLost_;
    /// Between `takeTurn` and `handOver`.
    std::optional<DrawnFrame> drawn_;
    /// Where the pointer is in the frame drawn last.
    PixelRect pointerInLast_;
    FramePacer::Clock::time_point lastPresentation_;
    /// When a frame was drawn last.
    FramePacer::Clock::time_point lastDrawn_;
};

} // namespace nimbrale::x11
