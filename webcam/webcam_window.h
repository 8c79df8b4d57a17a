#pragma once

#include "controls/control_tip.h"
#include "controls/overlay_colors.h"
#include "platform/main_queue.h"
#include "platform/panel.h"
#include "platform/pointer_watcher.h"
#include "platform/screens.h"
#include "webcam/webcam_view.h"

#include <functional>
#include <memory>

namespace nimbrale {

/// The panel that shows the webcam on the user's screen. It decides nothing about where it may be: it asks, and reports
/// what the user does. Main thread only.
class WebcamWindow {
public:
    /// Hidden at first; `frame` in screen coordinates. `panels`, `screens` and `mainQueue` must outlive the window.
    [[nodiscard]] static std::unique_ptr<WebcamWindow> create(Panels& panels, Screens& screens, MainQueue& mainQueue,
                                                              std::shared_ptr<WebcamPictures> pictures,
                                                              const Rect& frame, const OverlayColors& colors = {});
    ~WebcamWindow();
    WebcamWindow(const WebcamWindow&) = delete;
    WebcamWindow& operator=(const WebcamWindow&) = delete;

    /// The nearest frame that is allowed, asked on every step of a drag. Screen coordinates, like all frames here.
    std::function<Rect(const Rect& frame)> constrain;
    /// After each step of a drag, and at its end.
    std::function<void(const Rect& frame)> onFrameChange;
    std::function<void(const Rect& frame)> onChangeEnded;
    /// The pointer came or went.
    std::function<void(bool isHovered)> onHoverChange;
    /// The window may be released within these calls.
    std::function<void()> onClose;
    std::function<void()> onOpenSettings;

    [[nodiscard]] const Rect& frame() const { return frame_; }
    /// Moves and resizes the window at once.
    void setFrame(const Rect& frame);
    void applyAppearance(AppSettings::WebcamShape shape, bool mirrored, bool fadesOnHover);
    /// Whether resizing keeps both sides equal, as a circle needs it.
    [[nodiscard]] bool isSquare() const { return isSquare_; }

    [[nodiscard]] WebcamView& view() { return *view_; }
    [[nodiscard]] Panel& panel() { return *panel_; }
    [[nodiscard]] ControlTip& tip() { return tip_; }
    /// Of the display that most likely shows the window: the one with its center.
    [[nodiscard]] Rect screenFrame() const;

    /// Shows the window in front of its level without activating the application.
    void orderFront();
    /// Leaves the pointer alone and hides the window, for good.
    void close();

private:
    WebcamWindow(Panels& panels, Screens& screens, MainQueue& mainQueue, const Rect& frame,
                 const OverlayColors& colors);

    void connectPanel();

    Screens& screens_;
    Rect frame_;
    bool isSquare_ = false;
    ControlTip tip_;
    std::unique_ptr<Panel> panel_;
    std::unique_ptr<WebcamView> view_; // Paints into the panel and must go before it.
    /// Null once the window is closed.
    std::unique_ptr<PointerWatcher> pointerWatcher_;
};

} // namespace nimbrale
