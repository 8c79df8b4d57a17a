#pragma once

#include "platform/x11/capture/change_collector.h"

#include <gtest/gtest.h>
#include <list>
#include <set>

namespace nimbrale::x11 {

inline constexpr PixelRect source{100, 100, 400, 300};

class ChangeCollectorTest : public testing::Test {
protected:
    ChangeCollectorTest()
    {
        changes.setSource(source, PointerVisibility::shown);
        (void)changes.take();
    }

    /// On top of those there are.
    CapturedWindow& addWindow(const PixelRect& area)
    {
        CapturedWindow* const window = &stored.emplace_back();
        window->id = static_cast<xcb_window_t>(windows.size() + 1);
        window->x = area.x;
        window->y = area.y;
        window->width = area.width;
        window->height = area.height;
        window->isMapped = true;
        window->picture = 1;
        window->needsClassification = false;
        windows.push_back(window);
        return *window;
    }

    void damage(const CapturedWindow& window, const PixelRect& area, Compositing compositing = Compositing::absent)
    {
        changes.addDamage(windows, window, PixelRegion(area), compositing);
    }

    [[nodiscard]] bool isVisible(const CapturedWindow& window, Compositing compositing = Compositing::absent) const
    {
        return changes.isVisible(windows, window, compositing);
    }

    std::list<CapturedWindow> stored;
    WindowList windows;
    std::set<xcb_window_t> excluded;
    ChangeCollector changes{
        [this](const CapturedWindow& window) { return !window.needsClassification && !excluded.contains(window.id); }};
};

} // namespace nimbrale::x11
