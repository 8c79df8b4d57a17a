#pragma once

#include "controls/control_drawing.h"
#include "controls/overlay_colors.h"
#include "geometry/display_geometry.h"
#include "platform/layer.h"
#include "platform/main_queue.h"
#include "platform/panel.h"
#include "platform/workspace.h"
#include "settings/app_settings.h"
#include "webcam/opacity_fade.h"
#include "webcam/webcam_controls_layout.h"
#include "webcam/webcam_picture_layer.h"

#include <memory>
#include <optional>
#include <vector>

class QPainter;

namespace nimbrale {

class WebcamWindow;

/// The contents of the webcam's panel: the picture, and over it the controls while the pointer is there. Main thread
/// only.
class WebcamView {
public:
    /// `webcamWindow` owns the view.
    WebcamView(WebcamWindow& webcamWindow, std::shared_ptr<WebcamPictures> pictures, MainQueue& queue,
               const OverlayColors& colors);
    ~WebcamView();
    WebcamView(const WebcamView&) = delete;
    WebcamView& operator=(const WebcamView&) = delete;

    void applyAppearance(AppSettings::WebcamShape shape, bool mirrored, bool fadesOnHover);
    /// The panel has another size or scale.
    void layOut();

    /// The pointer is there (screen coordinates). Changes nothing while a button of the mouse is held on a control.
    void pollHover(Point mouseLocation);
    void mouseDown(const MouseEvent& event);
    void mouseDragged(const MouseEvent& event);
    void mouseUp(const MouseEvent& event);

    [[nodiscard]] const WebcamPictureLayer& pictureLayer() const { return picture_; }
    [[nodiscard]] bool isHovered() const { return isHovered_; }
    [[nodiscard]] std::optional<WebcamControl> hoveredControl() const { return hoveredControl_; }
    /// The controls, for those who do not see them.
    [[nodiscard]] std::vector<AccessibleControl> accessibleControls();

private:
    [[nodiscard]] WebcamControlsLayout layout() const;
    [[nodiscard]] Rect onScreen(const Rect& viewRect) const;
    [[nodiscard]] Rect inLayer(const Rect& viewRect) const;
    void paintControls(QPainter& painter, const Rect& dirty);
    void redrawControls();
    void updateMouseRegion();
    void updateFade();
    void setHovered(bool isHovered);
    void setHoveredControl(std::optional<WebcamControl> control);
    void updateTip();
    void beginDrag(DragZone zone, Point mouseLocation);
    [[nodiscard]] Rect draggedFrame(Point mouseLocation) const;
    void pressEnded(WebcamControl control);

    WebcamWindow& webcamWindow_;
    OverlayColors colors_;
    ControlDrawing drawing_;
    WebcamPictureLayer picture_;
    std::shared_ptr<Layer> controlsLayer_ = std::make_shared<Layer>();
    OpacityFade fade_;
    bool fadesOnHover_ = true;
    bool isHovered_ = false;
    std::optional<WebcamControl> hoveredControl_;
    std::optional<WebcamControl> pressedControl_;
    std::optional<DragZone> dragZone_;
    Point dragStartMouse_;
    Rect dragStartFrame_;
};

} // namespace nimbrale
