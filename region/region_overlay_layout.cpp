#include "region/region_overlay_layout.h"

#include "controls/hit_region.h"

#include <algorithm>
#include <cmath>

namespace nimbrale {

namespace {

constexpr double borderWidth = RegionOverlayLayout::borderWidth;
constexpr double buttonSize = RegionOverlayLayout::buttonSize;
constexpr Size handleSize = RegionOverlayLayout::handleSize;

/// From the region's edge to the middle of the border outside of it.
constexpr double borderMiddle = borderWidth / 2;
/// From a control to the screen's edge beside it.
constexpr double insetAtScreenEdge = 3;
constexpr double buttonTargetRadius = buttonSize / 2 + 2;
constexpr double resizeSlackDistance = 2;
constexpr double housingClearance = 6;
constexpr double handleClearance = 4;
constexpr double guideRoom = 3;

/// Per side, whether the border fits between the region and the screen's edge.
struct Room {
    bool left;
    bool right;
    bool bottom;
    bool top;
};

Room roomAround(const Rect& region, const Rect& screen)
{
    return {.left = region.minX() - borderWidth >= screen.minX(),
            .right = screen.maxX() >= region.maxX() + borderWidth,
            .bottom = region.minY() - borderWidth >= screen.minY(),
            .top = screen.maxY() >= region.maxY() + borderWidth};
}

/// The left edge of what sits on the region's right border.
double rightControlX(const Rect& region, const Room& room)
{
    if (room.right)
        return roundHalfAwayFromZero(region.maxX() + borderMiddle - buttonSize / 2);
    return region.maxX() - buttonSize - insetAtScreenEdge;
}

/// `rect` moved by the least that brings it off what the bars leave unreachable of the screen.
Rect movedOffBars(const Rect& rect, const Rect& reachable, const Rect& screen)
{
    Rect moved = rect;
    if (reachable.maxX() < screen.maxX())
        moved.x = std::min(moved.x, reachable.maxX() - rect.width);
    if (reachable.minX() > screen.minX())
        moved.x = std::max(moved.x, reachable.minX());
    if (reachable.maxY() < screen.maxY())
        moved.y = std::min(moved.y, reachable.maxY() - rect.height);
    if (reachable.minY() > screen.minY())
        moved.y = std::max(moved.y, reachable.minY());
    return moved;
}

bool isOnRoundTarget(const Rect& button, Point point)
{
    return isInCircle({button.midX(), button.midY()}, buttonTargetRadius, point);
}

} // namespace

RegionOverlayLayout::RegionOverlayLayout(const RegionOverlayLayoutInput& input) : guides_(input.guides)
{
    placeBorder(input);
    placeButtons(input);
    placeHandle(input);
    if (input.reachable)
        keepControlsReachable(*input.reachable, input.screen);
    placeLabels(input);
}

void RegionOverlayLayout::placeBorder(const RegionOverlayLayoutInput& input)
{
    const Room room = roomAround(input.region, input.screen);
    const double left = input.region.minX() - (room.left ? borderWidth : 0);
    const double right = input.region.maxX() + (room.right ? borderWidth : 0);
    const double bottom = input.region.minY() - (room.bottom ? borderWidth : 0);
    const double top = input.region.maxY() + (room.top ? borderWidth : 0);
    borderOuter_ = {left, bottom, right - left, top - bottom};
}

void RegionOverlayLayout::placeButtons(const RegionOverlayLayoutInput& input)
{
    const Rect& region = input.region;
    const Room room = roomAround(region, input.screen);
    const double x = rightControlX(region, room);
    closeButtonOrigin_ = {x, room.top ? roundHalfAwayFromZero(region.maxY() + borderMiddle - buttonSize / 2)
                                      : region.maxY() - buttonSize - insetAtScreenEdge};
    const double resizeY = room.bottom ? roundHalfAwayFromZero(region.minY() - borderMiddle - buttonSize / 2)
                                       : region.minY() + insetAtScreenEdge;
    resizeButton_ = {x, resizeY, buttonSize, buttonSize};
}

void RegionOverlayLayout::placeHandle(const RegionOverlayLayoutInput& input)
{
    const Rect& region = input.region;
    const Room room = roomAround(region, input.screen);
    // At the screen's edge the handle hangs from it, closer than the buttons do: it is a tab, not a button.
    const double y = room.top ? roundHalfAwayFromZero(region.maxY() + borderMiddle - handleSize.height / 2)
                              : region.maxY() - handleSize.height;
    handle_ = {roundHalfAwayFromZero(region.midX() - handleSize.width / 2), y, handleSize.width, handleSize.height};
    if (input.cameraHousing)
        keepHandleClearOf(*input.cameraHousing, region);
}

void RegionOverlayLayout::keepHandleClearOf(const Rect& housing, const Rect& region)
{
    if (!housing.insetBy(-housingClearance, 0).intersects(handle_))
        return;
    const double minimum = region.minX() + handleClearance;
    const double maximum = closeButtonOrigin_.x - handleClearance;
    std::optional<Rect> nearest;
    const double positions[]{housing.minX() - housingClearance - handleSize.width, housing.maxX() + housingClearance};
    for (const double x : positions) {
        const Rect candidate{x, handle_.y, handleSize.width, handleSize.height};
        if (candidate.minX() < minimum || candidate.maxX() > maximum)
            continue;
        if (!nearest || std::abs(candidate.midX() - region.midX()) < std::abs(nearest->midX() - region.midX()))
            nearest = candidate;
    }
    if (nearest)
        handle_ = *nearest;
    else
        handle_.y = housing.minY() - handleClearance - handleSize.height;
}

void RegionOverlayLayout::keepControlsReachable(const Rect& reachable, const Rect& screen)
{
    handle_ = movedOffBars(handle_, reachable, screen);
    resizeButton_ = movedOffBars(resizeButton_, reachable, screen);
    // The buttons keep their distances, so they move together; the window has no room for them to move up.
    const Rect buttons = button(allFrameButtons.front()).unitedWith(button(allFrameButtons.back()));
    const Rect moved = movedOffBars(buttons, reachable, screen);
    closeButtonOrigin_.x += moved.x - buttons.x;
    closeButtonOrigin_.y += std::min(0.0, moved.y - buttons.y);
}

void RegionOverlayLayout::placeLabels(const RegionOverlayLayoutInput& input)
{
    const Rect& region = input.region;
    if (input.recordingTextWidth) {
        constexpr double height = 22;
        constexpr double textRoom = 22;
        const double indent = roomAround(region, input.screen).left ? 10 : 6;
        recordingBackground_ = Rect{borderOuter_.minX() + indent, handle_.minY(),
                                    roundHalfAwayFromZero(*input.recordingTextWidth + textRoom), height};
    }
    if (input.sizeLabelTextWidth) {
        constexpr double height = 24;
        constexpr double textRoom = 20;
        constexpr double distance = 10;
        constexpr double screenClearance = 4;
        const double width = roundHalfAwayFromZero(*input.sizeLabelTextWidth + textRoom);
        double y = region.minY() - borderWidth - distance - height;
        if (y < input.screen.minY() + screenClearance)
            y = region.minY() + distance;
        sizeLabelBackground_ =
            Rect{roundHalfAwayFromZero(region.midX() - width / 2), roundHalfAwayFromZero(y), width, height};
    }
}

std::array<Rect, 4> RegionOverlayLayout::borderBands() const
{
    const Rect& outer = borderOuter_;
    const double innerHeight = outer.height - 2 * borderWidth;
    return {Rect{outer.minX(), outer.maxY() - borderWidth, outer.width, borderWidth},
            Rect{outer.minX(), outer.minY(), outer.width, borderWidth},
            Rect{outer.minX(), outer.minY() + borderWidth, borderWidth, innerHeight},
            Rect{outer.maxX() - borderWidth, outer.minY() + borderWidth, borderWidth, innerHeight}};
}

Rect RegionOverlayLayout::button(FrameButton button) const
{
    const double step = buttonSize + buttonSpacing;
    return {closeButtonOrigin_.x, closeButtonOrigin_.y - static_cast<double>(button) * step, buttonSize, buttonSize};
}

std::optional<FrameButton> RegionOverlayLayout::buttonAt(Point point) const
{
    for (const FrameButton candidate : allFrameButtons) {
        if (isOnRoundTarget(button(candidate), point))
            return candidate;
    }
    return std::nullopt;
}

std::optional<DragZone> RegionOverlayLayout::zoneAt(Point point) const
{
    if (pointerIsIn(handle_, point))
        return DragZone::move;
    if (pointerIsIn(resizeButton_, point))
        return DragZone::resize;
    return std::nullopt;
}

std::optional<DragZone> RegionOverlayLayout::pressedZoneAt(Point point) const
{
    if (pointerIsIn(handle_, point))
        return DragZone::move;
    if (pointerIsIn(resizeButton_.grownBy(resizeSlackDistance), point))
        return DragZone::resize;
    return std::nullopt;
}

std::vector<Rect> RegionOverlayLayout::hitRegion(ResizeSlack resizeSlack, Size viewSize, double scale) const
{
    HitRegion hits(viewSize, scale);
    hits.addRect(handle_);
    hits.addRect(resizeSlack == ResizeSlack::yes ? resizeButton_.grownBy(resizeSlackDistance) : resizeButton_);
    for (const FrameButton candidate : allFrameButtons) {
        const Rect rect = button(candidate);
        hits.addCircle({rect.midX(), rect.midY()}, buttonTargetRadius);
    }
    return hits.rects();
}

void RegionOverlayLayout::appendControls(std::vector<Rect>& rects) const
{
    rects.push_back(handle_.grownBy(shadowRoom));
    for (const FrameButton candidate : allFrameButtons)
        rects.push_back(button(candidate).grownBy(shadowRoom));
    rects.push_back(resizeButton_.grownBy(shadowRoom));
    if (recordingBackground_)
        rects.push_back(recordingBackground_->grownBy(shadowRoom));
}

void RegionOverlayLayout::appendGuidesAndLabel(std::vector<Rect>& rects) const
{
    for (const Rect& guide : guides_)
        rects.push_back(guide.grownBy(guideRoom));
    if (sizeLabelBackground_)
        rects.push_back(sizeLabelBackground_->grownBy(shadowRoom));
}

std::vector<Rect> RegionOverlayLayout::coverage() const
{
    const std::array<Rect, 4> bands = borderBands();
    std::vector<Rect> rects(bands.begin(), bands.end());
    appendControls(rects);
    appendGuidesAndLabel(rects);
    return rects;
}

std::optional<Rect> cameraHousingRect(const Screen& screen)
{
    if (!screen.cameraHousing || screen.cameraHousing->topInset <= 0)
        return std::nullopt;
    const CameraHousing& housing = *screen.cameraHousing;
    const double left = screen.frame.minX() + housing.auxiliaryTopLeftWidth;
    const double right = screen.frame.maxX() - housing.auxiliaryTopRightWidth;
    if (right <= left)
        return std::nullopt;
    return Rect{left, screen.frame.maxY() - housing.topInset, right - left, housing.topInset};
}

} // namespace nimbrale
