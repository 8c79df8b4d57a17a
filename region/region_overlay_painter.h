#pragma once

#include "controls/control_drawing.h"
#include "controls/overlay_colors.h"
#include "platform/geometry.h"
#include "region/region_overlay_layout.h"

#include <QFont>
#include <optional>
#include <string>

class QPainter;

namespace nimbrale {

/// What the look of the frame depends on besides the placement of its parts.
struct RegionOverlayAppearance {
    /// The frame is dragged or its handle or resize button is hovered.
    bool isActive = false;
    std::optional<FrameButton> hoveredButton;
    std::optional<FrameButton> pressedButton;
    /// Absent while nothing is recorded. UTF-8, like the next one.
    std::optional<std::string> recordingText;
    /// Empty for none.
    std::string sizeLabel;
};

/// Draws the frame. Needs the toolkit's application object for its fonts. Main thread only.
class RegionOverlayPainter {
public:
    explicit RegionOverlayPainter(const OverlayColors& colors);

    /// In points.
    [[nodiscard]] double recordingTextWidth(const std::string& text) const;
    [[nodiscard]] double sizeLabelTextWidth(const std::string& text) const;

    /// `painter` works in points of the window's layer, y downward from the top-left; so does `dirty`, outside of
    /// which nothing is drawn. `viewSize` is the window's size in points, `scale` its pixels per point.
    void paint(QPainter& painter, const Rect& dirty, const RegionOverlayLayout& layout,
               const RegionOverlayAppearance& appearance, Size viewSize, double scale);

private:
    struct Pass;

    void paintGuides(const Pass& pass) const;
    void paintBorder(const Pass& pass) const;
    void paintControls(const Pass& pass);
    [[nodiscard]] ControlStyle buttonStyle(const Pass& pass, FrameButton button) const;
    void paintLabel(const Pass& pass, const Rect& background, const std::string& text, const QFont& font);

    OverlayColors colors_;
    QFont recordingFont_;
    QFont sizeLabelFont_;
    ControlDrawing controls_;
};

/// What a button shows.
[[nodiscard]] ControlSymbol buttonSymbol(FrameButton button, bool isRecording);

/// "REC 1:05", with hours from one hour on; whole seconds that have passed. Less than none counts as none.
[[nodiscard]] std::string recordingTimeText(double seconds);

} // namespace nimbrale
