#include "region/region_editor.h"

#include "share/virtual_display.h"

#include <utility>

namespace nimbrale {

namespace {

RegionOverlayWindow::Change changeFor(const Rect& region, const std::vector<Guide>& guides,
                                      const RegionSnapper& snapper, const DisplayGeometry& geometry)
{
    RegionOverlayWindow::Change change;
    change.frame = geometry.screenRect(region);
    for (const Guide& guide : guides) {
        change.guides.push_back(guide.direction == Guide::Direction::vertical
                                    ? geometry.verticalGuideRect(guide.position)
                                    : geometry.horizontalGuideRect(guide.position));
    }
    change.label = snapper.label(region);
    change.screenFrame = geometry.screenFrame;
    return change;
}

} // namespace

std::shared_ptr<RegionEditor> RegionEditor::create(Platform& platform, std::shared_ptr<RegionCapture> capture,
                                                   const DisplayGeometry& geometry, AppSettings& settings,
                                                   const OverlayColors& colors)
{
    std::shared_ptr<RegionEditor> editor(new RegionEditor(platform, std::move(capture), geometry, settings, colors));
    editor->wireOverlay();
    editor->overlay_->orderFront();
    editor->description_ = platform.workspace().describeControls(
        "Nimbrale frame", [overlay = editor->overlay_.get()] { return overlay->view().accessibleControls(); });
    return editor;
}

RegionEditor::RegionEditor(Platform& platform, std::shared_ptr<RegionCapture> capture, const DisplayGeometry& geometry,
                           AppSettings& settings, const OverlayColors& colors)
    : platform_(platform), capture_(std::move(capture)), geometry_(geometry), settings_(settings),
      snapper_(RegionSnapper::of(geometry)),
      overlay_(RegionOverlayWindow::create(platform.panels(), platform.screens(), platform.mainQueue(),
                                           geometry.screenFrame, geometry.screenRect(capture_->region()), colors))
{}

RegionEditor::~RegionEditor() = default;

void RegionEditor::wireOverlay()
{
    const std::weak_ptr<RegionEditor> weak = weak_from_this();
    const auto forward = [weak](std::function<void()> RegionEditor::*callback) {
        return [weak, callback] {
            if (const auto editor = weak.lock(); editor && (*editor).*callback)
                ((*editor).*callback)();
        };
    };
    overlay_->onChangeBegan = [weak] {
        if (const auto editor = weak.lock())
            editor->platform_.workspace().dropKeyboardFocus();
    };
    overlay_->onChange = [weak](const Rect& frame, DragZone zone, bool isCommandHeld) {
        if (const auto editor = weak.lock())
            return editor->change(frame, zone, isCommandHeld);
        return RegionOverlayWindow::Change{.frame = frame, .guides = {}, .label = {}, .screenFrame = std::nullopt};
    };
    overlay_->onChangeEnded = [weak] {
        if (const auto editor = weak.lock())
            editor->endDrag();
    };
    overlay_->onClose = forward(&RegionEditor::onClose);
    overlay_->onOpenSettings = forward(&RegionEditor::onOpenSettings);
    overlay_->onToggleRecording = forward(&RegionEditor::onToggleRecording);
}

void RegionEditor::showRegion(const Rect& region)
{
    if (overlay_->view().isDragging())
        return;
    overlay_->setRegionFrame(geometry_.screenRect(region));
    overlay_->setFrame(overlay_->frameAtRest());
}

void RegionEditor::close()
{
    description_.reset();
    overlay_->close();
}

RegionOverlayWindow::Change RegionEditor::change(const Rect& frame, DragZone zone, bool isCommandHeld)
{
    if (zone == DragZone::move) {
        if (const auto screen = otherDisplayUnderMouse())
            return moveOnto(*screen, frame, isCommandHeld);
    }
    pendingMove_.reset();
    const auto [region, guides] = snapIfWanted(snapper_, geometry_.region(frame), zone, isCommandHeld);
    if (const auto& captured = capture_->geometry()) {
        const PreserveSize preserveSize = zone == DragZone::move ? PreserveSize::yes : PreserveSize::no;
        capture_->setRegion(captured->clamp(region, preserveSize));
        capture_->applyRegion();
    }
    if (onRegionChange)
        onRegionChange(capture_->region());
    return changeFor(capture_->region(), guides, snapper_, geometry_);
}

RegionOverlayWindow::Change RegionEditor::moveOnto(const Screen& screen, const Rect& frame, bool isCommandHeld)
{
    const DisplayGeometry geometry = DisplayGeometry::of(screen);
    const RegionSnapper snapper = RegionSnapper::of(geometry);
    const auto [snapped, guides] = snapIfWanted(snapper, geometry.region(frame), DragZone::move, isCommandHeld);
    const Rect region = geometry.clamp(snapped, PreserveSize::yes);
    pendingMove_ = PendingMove{screen.displayID, region, geometry};
    return changeFor(region, guides, snapper, geometry);
}

std::optional<Screen> RegionEditor::otherDisplayUnderMouse() const
{
    const auto screen = displayUnderMouse(platform_.screens(), VirtualDisplay::currentDisplayID());
    if (!screen || screen->displayID == 0)
        return std::nullopt;
    const auto& captured = capture_->display();
    if (captured && captured->displayID == screen->displayID)
        return std::nullopt;
    return screen;
}

RegionSnapper::Snapped RegionEditor::snapIfWanted(const RegionSnapper& snapper, const Rect& region, DragZone zone,
                                                  bool isCommandHeld) const
{
    // The Command key turns the setting around for as long as it is held.
    if (isCommandHeld == settings_.snappingEnabled())
        return {region, {}};
    return snapper.snap(region, zone);
}

void RegionEditor::endDrag()
{
    if (const auto move = std::exchange(pendingMove_, std::nullopt)) {
        if (onMoveToDisplay)
            onMoveToDisplay(move->displayID, move->geometry, move->region);
        return;
    }
    if (onRegionChangeEnded)
        onRegionChangeEnded();
}

} // namespace nimbrale
