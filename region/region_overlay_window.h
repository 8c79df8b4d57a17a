#pragma once

#include "controls/control_tip.h"
#include "controls/overlay_colors.h"
#include "geometry/display_geometry.h"
#include "platform/main_queue.h"
#include "platform/panel.h"
#include "platform/pointer_watcher.h"
#include "platform/screens.h"
#include "region/region_overlay_view.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale {

/// The panel that shows the frame. At rest it is just larger than the region; during a drag it covers the display, so
/// that frame and guides can be drawn anywhere. It knows nothing of settings or capture: it reports drags and button
/// presses and shows what it is told. Main thread only.
class RegionOverlayWindow {
public:
    /// What to show after a step of a drag, all in screen coordinates.
    struct Change {
        /// Where the region is shown.
        Rect frame;
        std::vector<Rect> guides;
        /// The size for the user; nothing is shown for an empty one. UTF-8.
        std::string label;
        /// The screen frame of the display that the frame is over now; absent leaves it unchanged.
        std::optional<Rect> screenFrame;
    };

    /// Room around the region for what is drawn outside of it, in points. Whatever reaches further is cut off at rest:
    /// the record button of a low region at the screen's top, the recording time of a narrow region.
    static constexpr double margin = 24;

    /// Hidden at first; `screenFrame` and `regionFrame` in screen coordinates. `panels`, `screens` and `mainQueue` must
    /// outlive the window.
    [[nodiscard]] static std::unique_ptr<RegionOverlayWindow> create(Panels& panels, Screens& screens,
                                                                     MainQueue& mainQueue, const Rect& screenFrame,
                                                                     const Rect& regionFrame,
                                                                     const OverlayColors& colors = {});
    ~RegionOverlayWindow();
    RegionOverlayWindow(const RegionOverlayWindow&) = delete;
    RegionOverlayWindow& operator=(const RegionOverlayWindow&) = delete;

    /// Asked on every step of a drag where the frame is to be shown; `frame` in screen coordinates.
    std::function<Change(const Rect& frame, DragZone zone, bool isCommandHeld)> onChange;
    std::function<void()> onChangeBegan;
    std::function<void()> onChangeEnded;
    /// The window may be released within these calls.
    std::function<void()> onClose;
    std::function<void()> onOpenSettings;
    std::function<void()> onToggleRecording;

    /// Of the display that the frame is on. Screen coordinates.
    [[nodiscard]] const Rect& screenFrame() const { return screenFrame_; }
    void setScreenFrame(const Rect& screenFrame) { screenFrame_ = screenFrame; }
    /// The region in screen coordinates. Setting it draws nothing: repaint the view or change the window's frame.
    [[nodiscard]] const Rect& regionFrame() const { return regionFrame_; }
    void setRegionFrame(const Rect& regionFrame) { regionFrame_ = regionFrame; }

    /// What the window covers, in screen coordinates.
    [[nodiscard]] const Rect& frame() const { return frame_; }
    /// Moves the window at once. What it shows is drawn anew at the panel's next commit.
    void setFrame(const Rect& frame);
    /// The frame that the window has at rest.
    [[nodiscard]] Rect frameAtRest() const { return regionFrame_.grownBy(margin); }

    [[nodiscard]] RegionOverlayView& view() { return *view_; }
    [[nodiscard]] Panel& panel() { return *panel_; }
    [[nodiscard]] ControlTip& tip() { return tip_; }
    [[nodiscard]] const Screens& screens() const { return screens_; }

    /// Shows the window in front of its level without activating the application.
    void orderFront();
    /// Leaves the pointer alone and hides the window, for good.
    void close();

private:
    RegionOverlayWindow(Panels& panels, Screens& screens, MainQueue& mainQueue, const Rect& screenFrame,
                        const Rect& regionFrame, const OverlayColors& colors);

    void connectPanel();

    Screens& screens_;
    Rect screenFrame_;
    Rect regionFrame_;
    Rect frame_;
    ControlTip tip_;
    std::unique_ptr<Panel> panel_;
    std::unique_ptr<RegionOverlayView> view_; // Paints into the panel and must go before it.
    /// Null once the window is closed.
    std::unique_ptr<PointerWatcher> pointerWatcher_;
};

} // namespace nimbrale
