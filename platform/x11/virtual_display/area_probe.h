#pragma once

#include "platform/main_queue.h"
#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"

#include <array>
#include <functional>
#include <memory>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Finds out whether a window arrives on the screen: shows a few pixels of random dark colors in it and looks for them
/// in the picture that programs get when they read the screen. Gone after a frame where all is well. Main thread only.
class AreaProbe {
public:
    static constexpr int pixelCount = 6;

    /// Shows the pixels in the bottom right corner of `area`, in pixels of the root, as a child of `parent`, whose own
    /// corner lies at `parentX`, `parentY`. `onResult` is called once, later, with whether they were seen; it may
    /// destroy the probe.
    AreaProbe(Connection& connection, MainQueue& mainQueue, xcb_window_t parent, int parentX, int parentY,
              const PixelRect& area, std::function<void(bool wasSeen)> onResult);
    ~AreaProbe();
    AreaProbe(const AreaProbe&) = delete;
    AreaProbe& operator=(const AreaProbe&) = delete;

private:
    void paint();
    void look();
    void lookLater();
    [[nodiscard]] bool isSeen() const;

    Connection& connection_;
    MainQueue& mainQueue_;
    std::function<void(bool)> onResult_;
    std::array<std::uint32_t, pixelCount> colors_ = {};
    /// The bit of each channel that is on or off.
    std::uint32_t significantBits_ = 0;
    int x_;
    int y_;
    xcb_window_t window_;
    int looksLeft_;
    std::unique_ptr<Timer> timer_;
};

} // namespace nimbrale::x11
