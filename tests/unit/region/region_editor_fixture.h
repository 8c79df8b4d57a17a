#pragma once

#include "region/region_editor.h"
#include "tests/fakes/offscreen_application.h"
#include "tests/fakes/region_capture_fixture.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale {

/// The fixture's main display is 1440 × 900 with a menu bar of 24 points, and the capture's region is
/// (100, 75, 400, 300): the frame is at (100, 525, 400, 300) in screen coordinates. The side display lies to its right,
/// 1280 × 1024, with the same bottom.
class RegionEditorTest : public RegionCaptureTest {
protected:
    RegionEditorTest()
    {
        startOffscreenApplication();
        startRunning();
        makeEditorOn(*capture->geometry());
    }

    void makeEditorOn(const DisplayGeometry& geometry)
    {
        frameEditor = RegionEditor::create(platform, capture, geometry, settings);
        frameEditor->onRegionChange = [this](const Rect& region) { regions.push_back(region); };
        frameEditor->onRegionChangeEnded = [this] { events.push_back("ended"); };
        frameEditor->onMoveToDisplay = [this](DisplayID display, const DisplayGeometry& newGeometry,
                                              const Rect& region) {
            events.push_back("moved");
            movedTo = RegionEditor::PendingMove{display, region, newGeometry};
        };
        frameEditor->onClose = [this] { events.push_back("close"); };
        frameEditor->onOpenSettings = [this] { events.push_back("settings"); };
        frameEditor->onToggleRecording = [this] { events.push_back("record"); };
    }

    FakePanel& panel() { return platform.panels().last(); }
    RegionOverlayWindow& overlay() { return frameEditor->overlay(); }
    Point centreOf(const Rect& viewRect)
    {
        return {viewRect.midX() + overlay().frame().x, viewRect.midY() + overlay().frame().y};
    }
    void press(DragZone zone)
    {
        const RegionOverlayLayout& layout = overlay().view().layout();
        start = centreOf(zone == DragZone::move ? layout.handle() : layout.resizeButton());
        panel().press(start);
    }
    void dragBy(double dx, double dyUp, bool isCommandHeld = false)
    {
        screens.mouse = {start.x + dx, start.y + dyUp};
        panel().dragTo(screens.mouse, isCommandHeld);
    }
    void release() { panel().release(screens.mouse); }

    std::shared_ptr<RegionEditor> frameEditor;
    Point start;
    std::vector<Rect> regions;
    std::vector<std::string> events;
    std::optional<RegionEditor::PendingMove> movedTo;
};

} // namespace nimbrale
