#pragma once

#include "controls/overlay_colors.h"
#include "geometry/display_geometry.h"
#include "geometry/region_snapper.h"
#include "platform/platform.h"
#include "region/region_overlay_window.h"
#include "settings/app_settings.h"
#include "share/region_capture.h"

#include <functional>
#include <memory>
#include <optional>

namespace nimbrale {

/// Lets the user drag the frame: every step is snapped, clamped, written into the capture and reported. A drag onto
/// another display is handed up when it ends. One editor exists for each frame that is shown. Main thread only.
class RegionEditor : public std::enable_shared_from_this<RegionEditor> {
public:
    /// A drag that is over another display, in that display's terms.
    struct PendingMove {
        DisplayID displayID = 0;
        /// Region coordinates of that display.
        Rect region;
        DisplayGeometry geometry;

        bool operator==(const PendingMove&) const = default;
    };

    /// Shows the frame around the capture's region on the display of `geometry`, without activating the application.
    /// `platform` and `settings` must outlive the editor.
    [[nodiscard]] static std::shared_ptr<RegionEditor> create(Platform& platform,
                                                              std::shared_ptr<RegionCapture> capture,
                                                              const DisplayGeometry& geometry, AppSettings& settings,
                                                              const OverlayColors& colors = {});
    ~RegionEditor();
    RegionEditor(const RegionEditor&) = delete;
    RegionEditor& operator=(const RegionEditor&) = delete;

    /// Every step of a drag on the same display, with the capture's new region.
    std::function<void(const Rect& region)> onRegionChange;
    /// A drag ended on the same display.
    std::function<void()> onRegionChangeEnded;
    /// A drag ended on another display; the region is in that display's coordinates. The editor and the capture are
    /// left as they were: whoever hears this moves them.
    std::function<void(DisplayID displayID, const DisplayGeometry& geometry, const Rect& region)> onMoveToDisplay;
    /// The frame's buttons. The editor may be closed and released within these calls.
    std::function<void()> onClose;
    std::function<void()> onOpenSettings;
    std::function<void()> onToggleRecording;

    /// Shows the frame around `region` (region coordinates), which changed elsewhere. Ignored during a drag.
    void showRegion(const Rect& region);
    /// Hides the frame for good.
    void close();

    [[nodiscard]] const DisplayGeometry& geometry() const { return geometry_; }
    [[nodiscard]] const std::optional<PendingMove>& pendingMove() const { return pendingMove_; }
    /// The frame on the screen; its view takes the recording time.
    [[nodiscard]] RegionOverlayWindow& overlay() { return *overlay_; }

private:
    RegionEditor(Platform& platform, std::shared_ptr<RegionCapture> capture, const DisplayGeometry& geometry,
                 AppSettings& settings, const OverlayColors& colors);

    void wireOverlay();
    [[nodiscard]] RegionOverlayWindow::Change change(const Rect& frame, DragZone zone, bool isCommandHeld);
    [[nodiscard]] RegionOverlayWindow::Change moveOnto(const Screen& screen, const Rect& frame, bool isCommandHeld);
    [[nodiscard]] std::optional<Screen> otherDisplayUnderMouse() const;
    [[nodiscard]] RegionSnapper::Snapped snapIfWanted(const RegionSnapper& snapper, const Rect& region, DragZone zone,
                                                      bool isCommandHeld) const;
    void endDrag();

    Platform& platform_;
    std::shared_ptr<RegionCapture> capture_;
    DisplayGeometry geometry_;
    AppSettings& settings_;
    RegionSnapper snapper_;
    std::unique_ptr<RegionOverlayWindow> overlay_;
    std::optional<PendingMove> pendingMove_;
    /// What assistive technology is told of the frame, while it is shown.
    Subscription description_;
};

} // namespace nimbrale
