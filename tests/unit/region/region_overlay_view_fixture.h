#pragma once

#include "region/region_overlay_view.h"
#include "region/region_overlay_window.h"
#include "tests/fakes/fake_platform.h"
#include "tests/fakes/offscreen_application.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace nimbrale {

inline const Rect screenFrame{0, 0, 1512, 982};
inline const Rect regionFrame{300, 200, 640, 400};
/// On the controls of that region, and beside them. Screen coordinates.
constexpr Point onHandle{620, 605};
constexpr Point onResize{943, 198};
constexpr Point onClose{943, 603};
constexpr Point onSettings{943, 575};
constexpr Point onRecord{943, 547};
constexpr Point inside{620, 400};

/// A frame on a fake desktop, which answers every step of a drag with the dragged frame.
class RegionOverlayViewTest : public testing::Test {
protected:
    RegionOverlayViewTest()
    {
        startOffscreenApplication();
        platform.screens().list = {makeScreen(1, screenFrame)};
        platform.screens().mouse = inside;
        window = RegionOverlayWindow::create(platform.panels(), platform.screens(), platform.mainQueue(), screenFrame,
                                             regionFrame);
        window->onChangeBegan = [this] { events.push_back("began"); };
        window->onChangeEnded = [this] { events.push_back("ended"); };
        window->onClose = [this] { events.push_back("close"); };
        window->onOpenSettings = [this] { events.push_back("settings"); };
        window->onToggleRecording = [this] { events.push_back("record"); };
        window->onChange = [this](const Rect& frame, DragZone zone, bool isCommandHeld) {
            asked.push_back(frame);
            zones.push_back(zone);
            commands.push_back(isCommandHeld);
            RegionOverlayWindow::Change change = answer;
            change.frame = frame;
            return change;
        };
    }

    /// The frame's; a tip comes after it.
    FakePanel& panel() { return *platform.panels().living.at(0); }
    RegionOverlayView& view() { return window->view(); }
    void pointAt(Point location)
    {
        platform.screens().mouse = location;
        platform.mainQueue().advance(std::chrono::milliseconds{40});
    }
    void click(Point location)
    {
        panel().press(location);
        panel().release(location);
    }

    FakePlatform platform;
    std::shared_ptr<RegionOverlayWindow> window;
    std::vector<std::string> events;
    std::vector<Rect> asked;
    std::vector<DragZone> zones;
    std::vector<bool> commands;
    /// What `onChange` answers besides the frame.
    RegionOverlayWindow::Change answer;
};

} // namespace nimbrale
