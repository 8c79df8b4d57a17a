#pragma once

#include "controls/overlay_colors.h"
#include "geometry/display_geometry.h"
#include "platform/panel.h"
#include "platform/workspace.h"
#include "region/region_overlay_layout.h"
#include "region/region_overlay_painter.h"

#include <optional>
#include <string>
#include <vector>

namespace nimbrale {

class RegionOverlayWindow;

/// The contents of the frame's window: draws them and handles the mouse. Main thread only.
class RegionOverlayView {
public:
    /// `overlayWindow` owns the view.
    RegionOverlayView(RegionOverlayWindow& overlayWindow, const OverlayColors& colors);
    ~RegionOverlayView();
    RegionOverlayView(const RegionOverlayView&) = delete;
    RegionOverlayView& operator=(const RegionOverlayView&) = delete;

    /// Draws anew what was painted last and what is to be painted now, and tells the panel where it takes clicks.
    void repaint();
    /// The window goes to `frame` (screen coordinates): what was painted so far is seen from there. Called by the
    /// window before it moves the panel.
    void windowWillMove(const Rect& oldFrame);

    /// The pointer is there (screen coordinates). Changes nothing while the frame is dragged.
    void pollHover(Point mouseLocation);
    void mouseDown(const MouseEvent& event);
    void mouseDragged(const MouseEvent& event);
    void mouseUp(const MouseEvent& event);

    /// Elapsed seconds, or none while nothing is recorded. Draws only when the text to show becomes another one.
    void setRecordingTime(std::optional<double> seconds);
    [[nodiscard]] std::optional<double> recordingTime() const { return recordingTime_; }

    [[nodiscard]] bool isDragging() const { return dragZone_.has_value(); }
    /// What is dragged.
    [[nodiscard]] std::optional<DragZone> dragZone() const { return dragZone_; }
    [[nodiscard]] std::optional<DragZone> hoveredZone() const { return hoveredZone_; }
    [[nodiscard]] std::optional<FrameButton> hoveredButton() const { return hoveredButton_; }
    [[nodiscard]] std::optional<FrameButton> pressedButton() const { return pressedButton_; }
    /// Screen coordinates.
    [[nodiscard]] const std::vector<Rect>& guides() const { return guides_; }
    [[nodiscard]] const std::string& sizeLabel() const { return sizeLabel_; }
    /// The handle, the buttons and the resize button, for those who do not see them.
    [[nodiscard]] std::vector<AccessibleControl> accessibleControls();
    /// As of the last repaint.
    [[nodiscard]] const RegionOverlayLayout& layout() const { return layout_; }

private:
    [[nodiscard]] RegionOverlayLayoutInput layoutInput() const;
    [[nodiscard]] std::optional<Screen> screen() const;
    [[nodiscard]] Rect inView(const Rect& screenRect) const;
    [[nodiscard]] Rect onScreen(const Rect& viewRect) const;
    [[nodiscard]] Rect inLayer(const Rect& viewRect) const;
    void updateLayout();
    void updateHitRegion();
    void invalidate(const std::vector<Rect>& viewRects);
    void paint(QPainter& painter, const Rect& dirty);

    void beginDrag(DragZone zone, Point mouseLocation);
    void endDrag();
    void pressEnded(FrameButton button);
    [[nodiscard]] Rect draggedFrame(Point mouseLocation) const;
    void updateCursor();
    void updateTip();

    RegionOverlayWindow& overlayWindow_;
    RegionOverlayPainter painter_;
    RegionOverlayLayout layout_;
    std::optional<DragZone> dragZone_;
    Point dragStartMouse_;
    Rect dragStartRegion_;
    std::vector<Rect> guides_;
    std::string sizeLabel_;
    /// What was painted last, in view coordinates.
    std::vector<Rect> coveredRects_;
    std::optional<DragZone> hoveredZone_;
    std::optional<FrameButton> hoveredButton_;
    std::optional<double> recordingTime_;
    std::optional<FrameButton> pressedButton_;
};

} // namespace nimbrale
