#pragma once

#include "geometry/display_geometry.h"
#include "platform/main_queue.h"
#include "platform/panel.h"
#include "platform/screens.h"
#include "platform/virtual_displays.h"
#include "share/frame.h"
#include "share/frame_view.h"
#include "share/virtual_display.h"
#include "webcam/webcam_appearance.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace nimbrale {

/// What the user picks in a meeting application: the virtual display, filled edge to edge by the captured picture, or,
/// where there can be no virtual display, a window behind all others that lies exactly over the framed area. Main
/// thread only.
class SharedScreen {
public:
    enum class WindowKind {
        virtualDisplay, ///< covers the virtual display
        mirror          ///< lies over the framed area
    };

    /// The application's own display, as others find it.
    struct VirtualDisplayIdentity {
        DisplayID displayID = 0;
        /// What lists of displays call it.
        std::string name;

        bool operator==(const VirtualDisplayIdentity&) const = default;
    };

    /// What it is given must outlive it. The virtual display is made on first use.
    SharedScreen(VirtualDisplays& virtualDisplays, Panels& panels, Screens& screens, MainQueue& mainQueue);
    ~SharedScreen();
    SharedScreen(const SharedScreen&) = delete;
    SharedScreen& operator=(const SharedScreen&) = delete;

    /// Shows the shared screen. `region` in region coordinates of the display that `geometry` describes, `pixelScale`
    /// that display's pixels per point.
    void activate(const Rect& region, const DisplayGeometry& geometry, double pixelScale);
    /// A card stays that a pause has put there, so that whoever shares its window goes on doing so.
    void deactivate();
    /// Takes the picture away at once and shows a card in its place which says that the session is locked, until the
    /// next picture or `endPause`. Does nothing while nothing is shown.
    void pause();
    /// Takes the card and its window away where no picture will come. Call it while nothing else is shown.
    void endPause();

    /// Follows the framed area while it is dragged.
    void setRegion(const Rect& region);
    /// Takes over the framed area's size when a drag has ended.
    void regionChangeEnded();
    void setWebcam(const WebcamAppearance& webcam);
    void show(const Frame& frame);

    /// The virtual display was of no use and is gone; the mirror window has taken its place if the screen is shown.
    /// Nothing may be recorded from it any more. It is made anew once the displays have rested for a while, and then
    /// takes the mirror window's place, unless this desktop lets there be none.
    std::function<void()> onVirtualDisplayLost;

    /// A window that others had put on the virtual display was sent back to where the user sees it.
    std::function<void()> onWindowReturned;

    /// Absent before the first `activate` and while there is no virtual display.
    [[nodiscard]] std::optional<VirtualDisplayIdentity> virtualDisplayIdentity() const;
    /// What lists of windows call the window in the virtual display's place; absent while there is none.
    [[nodiscard]] std::optional<std::string> mirrorWindowTitle() const;
    [[nodiscard]] bool isActive() const { return isActive_; }
    /// Which window shows the picture; absent while none does.
    [[nodiscard]] std::optional<WindowKind> windowKind() const;

private:
    struct Window;

    [[nodiscard]] VirtualDisplay* virtualDisplay();
    /// False without a virtual display.
    [[nodiscard]] bool prepareVirtualDisplay();
    void abandonVirtualDisplay(const Error& reason);
    void retryWhenQuiet();
    void screensChanged();
    void showOnVirtualDisplay();
    void showInWindow(const DisplayGeometry& geometry);
    void openWindow(WindowKind kind, const PanelOptions& options, double zoom);
    void closeWindow();

    VirtualDisplays& virtualDisplays_;
    Panels& panels_;
    Screens& screens_;
    MainQueue& mainQueue_;
    bool wasVirtualDisplayTried_ = false;
    std::shared_ptr<VirtualDisplay> virtualDisplay_;
    std::unique_ptr<Window> window_;
    WebcamAppearance webcam_;
    bool isActive_ = false;
    bool isPaused_ = false;
    Rect region_;
    std::optional<DisplayGeometry> geometry_;
    double pixelScale_ = 2;
    /// For how long the displays must have rested before a lost virtual display is made anew, doubled by each loss.
    std::chrono::seconds retryDelay_{5};
    std::unique_ptr<Timer> retryTimer_;
    Subscription screensSubscription_;
};

} // namespace nimbrale
