#pragma once

#include "controls/overlay_colors.h"
#include "geometry/display_geometry.h"
#include "platform/platform.h"
#include "settings/app_settings.h"
#include "webcam/webcam_appearance.h"
#include "webcam/webcam_camera.h"
#include "webcam/webcam_window.h"

#include <functional>
#include <memory>
#include <optional>

namespace nimbrale {

/// Shows and hides the webcam inside the framed area: keeps its box there, stores it, applies the settings to panel and
/// camera, and tells how the shared picture is to show it. Main thread only.
class WebcamOverlay : public std::enable_shared_from_this<WebcamOverlay> {
public:
    struct Place {
        /// The display that the frame is on.
        DisplayGeometry geometry;
        /// The framed area, in region coordinates.
        Rect region;
    };

    /// Hidden at first. The references must outlive it.
    [[nodiscard]] static std::shared_ptr<WebcamOverlay> create(Platform& platform, AppSettings& settings,
                                                               std::shared_ptr<WebcamCamera> camera, const Place& place,
                                                               const OverlayColors& colors = {});
    ~WebcamOverlay();
    WebcamOverlay(const WebcamOverlay&) = delete;
    WebcamOverlay& operator=(const WebcamOverlay&) = delete;

    /// How the shared picture is to show the webcam; one without a camera means not at all.
    std::function<void(const WebcamAppearance& appearance)> onAppearanceChange;
    /// The panel's settings button.
    std::function<void()> onOpenSettings;

    /// Shows the webcam as the settings have it, or brings what is shown up to date with them.
    void show();
    void hide();
    [[nodiscard]] bool isShown() const { return window_ != nullptr; }
    /// The framed area changed; region coordinates.
    void followRegion(const Rect& region);

    /// Null while the webcam is hidden.
    [[nodiscard]] WebcamWindow* window() const { return window_.get(); }

private:
    WebcamOverlay(Platform& platform, AppSettings& settings, std::shared_ptr<WebcamCamera> camera, const Place& place,
                  const OverlayColors& colors);

    [[nodiscard]] Rect clamped(const Rect& box) const;
    [[nodiscard]] Rect boxOf(const Rect& frame) const;
    [[nodiscard]] Rect frameOf(const Rect& box) const;
    [[nodiscard]] Rect storedBox() const;
    void openWindow();
    void connectWindow();
    void place();
    void applyBox(const Rect& box);
    /// Of the frame's display.
    [[nodiscard]] double pixelScale() const;
    void storeBox(const Rect& box);
    void useCamera();
    void accessAnswered(bool isGranted);

    Platform& platform_;
    AppSettings& settings_;
    std::shared_ptr<WebcamCamera> camera_;
    Place place_;
    OverlayColors colors_;
    std::unique_ptr<WebcamWindow> window_;
    Subscription description_;
    Rect currentBox_;
    bool isFaded_ = false;
    std::unique_ptr<OpenQuestion> accessAlert_;
};

} // namespace nimbrale
