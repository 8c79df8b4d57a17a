#pragma once

#include "geometry/display_geometry.h"
#include "platform/geometry.h"
#include "platform/screens.h"

#include <array>
#include <optional>
#include <vector>

namespace nimbrale {

/// The frame's round buttons, in the order of their layout and of hit testing.
enum class FrameButton { close, settings, record };

inline constexpr std::array allFrameButtons{FrameButton::close, FrameButton::settings, FrameButton::record};

/// What the placement of the frame's parts depends on. View coordinates: points from the window's bottom-left corner,
/// y grows upward.
struct RegionOverlayLayoutInput {
    Rect region;
    /// The display that the frame is on.
    Rect screen;
    std::optional<Rect> cameraHousing;
    /// Where on the display the controls get the pointer; absent where that is all of it.
    std::optional<Rect> reachable = {};
    /// As they come from the change, without width or height.
    std::vector<Rect> guides;
    /// Absent while nothing is recorded.
    std::optional<double> recordingTextWidth;
    /// Absent while there is no size label.
    std::optional<double> sizeLabelTextWidth;

    bool operator==(const RegionOverlayLayoutInput&) const = default;
};

/// Where every part of the frame lies. A pure value in view coordinates; any thread.
class RegionOverlayLayout {
public:
    static constexpr double borderWidth = 5;
    static constexpr Size handleSize{46, 22};
    static constexpr double buttonSize = 22;
    static constexpr double buttonSpacing = 6;
    /// Room around painted parts for their shadow.
    static constexpr double shadowRoom = 10;

    RegionOverlayLayout() = default;
    explicit RegionOverlayLayout(const RegionOverlayLayoutInput& input);

    /// The border's outer edge: outside of the region where the screen leaves room, else the region's own edge.
    [[nodiscard]] const Rect& borderOuter() const { return borderOuter_; }
    /// What the border covers, in four rectangles that do not overlap: top, bottom, left, right. All that lies between
    /// them stays transparent.
    [[nodiscard]] std::array<Rect, 4> borderBands() const;
    [[nodiscard]] const Rect& handle() const { return handle_; }
    [[nodiscard]] Rect button(FrameButton button) const;
    [[nodiscard]] const Rect& resizeButton() const { return resizeButton_; }
    /// Present while something is recorded.
    [[nodiscard]] const std::optional<Rect>& recordingBackground() const { return recordingBackground_; }
    /// Present while there is a size label.
    [[nodiscard]] const std::optional<Rect>& sizeLabelBackground() const { return sizeLabelBackground_; }
    [[nodiscard]] const std::vector<Rect>& guides() const { return guides_; }

    /// The button whose round target holds `point`.
    [[nodiscard]] std::optional<FrameButton> buttonAt(Point point) const;
    /// What `point` would drag; buttons are not considered.
    [[nodiscard]] std::optional<DragZone> zoneAt(Point point) const;
    /// Like `zoneAt`, with the slack that a press on the resize button is granted.
    [[nodiscard]] std::optional<DragZone> pressedZoneAt(Point point) const;
    enum class ResizeSlack { no, yes };
    /// What `buttonAt` and, by `resizeSlack`, `zoneAt` or `pressedZoneAt` hit, pixel by pixel, as rectangles whose
    /// edges lie on pixels. The view is `viewSize` large and has `scale` pixels per point, the first at its top-left
    /// corner.
    [[nodiscard]] std::vector<Rect> hitRegion(ResizeSlack resizeSlack, Size viewSize, double scale) const;

    /// The parts that are painted, each with the room for its shadow, in the order of painting. The border counts as
    /// its bands, which throw no shadow.
    [[nodiscard]] std::vector<Rect> coverage() const;

private:
    void placeBorder(const RegionOverlayLayoutInput& input);
    void placeButtons(const RegionOverlayLayoutInput& input);
    void placeHandle(const RegionOverlayLayoutInput& input);
    void keepHandleClearOf(const Rect& housing, const Rect& region);
    void keepControlsReachable(const Rect& reachable, const Rect& screen);
    void placeLabels(const RegionOverlayLayoutInput& input);
    void appendControls(std::vector<Rect>& rects) const;
    void appendGuidesAndLabel(std::vector<Rect>& rects) const;

    Rect borderOuter_;
    Rect handle_;
    Point closeButtonOrigin_;
    Rect resizeButton_;
    std::optional<Rect> recordingBackground_;
    std::optional<Rect> sizeLabelBackground_;
    std::vector<Rect> guides_;
};

/// The rectangle of the screen's camera housing in screen coordinates, if it has one of positive width.
[[nodiscard]] std::optional<Rect> cameraHousingRect(const Screen& screen);

} // namespace nimbrale
