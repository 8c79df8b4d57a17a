#pragma once

#include "platform/main_queue.h"
#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Finds out whether a window arrives on the screen: shows a few pixels of random dark colors in it and looks for them
/// in the picture that programs get when they read the screen. Gone after a frame where all is well. Main thread only.
class AreaProbe {
public:
    static constexpr int pixelCount = 6;
    using Pixels = std::array<std::uint32_t, pixelCount>;

    /// A window that pixels are shown in, and where its own corner is, in pixels of the root.
    struct Spot {
        xcb_window_t parent = XCB_WINDOW_NONE;
        int x = 0;
        int y = 0;
    };

    /// Shows the pixels in the bottom right corner of `area`, in pixels of the root, at `spot`. With `rival`, a spot
    /// that lies behind, other pixels are drawn there again and again; the probe's own must then stay on the screen
    /// while a compositing manager draws what lies behind, and not only be seen once. `onResult` is called once, later,
    /// with whether they were seen; it may destroy the probe.
    AreaProbe(Connection& connection, MainQueue& mainQueue, const PixelRect& area, const Spot& spot,
              const std::optional<Spot>& rival, std::function<void(bool wasSeen)> onResult);
    AreaProbe(const AreaProbe&) = delete;
    AreaProbe& operator=(const AreaProbe&) = delete;

private:
    void chooseColors();
    [[nodiscard]] OwnedWindow show(const Spot& spot, const Pixels& colors) const;
    void drawRival() const;
    void look();
    void lookLater();
    [[nodiscard]] bool isSeen() const;

    Connection& connection_;
    MainQueue& mainQueue_;
    std::function<void(bool)> onResult_;
    Pixels colors_ = {};
    /// Different from those of the probe in every pixel.
    Pixels rivalColors_ = {};
    /// The bit of each channel that is on or off.
    std::uint32_t significantBits_ = 0;
    int x_;
    int y_;
    OwnedWindow rival_;
    OwnedWindow window_;
    int looksLeft_;
    /// In how many looks in a row it has to be seen still.
    int sightsLeft_;
    std::unique_ptr<Timer> timer_;
};

} // namespace nimbrale::x11
