#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/capture/captured_window.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"
#include "platform/x11/server/pixel_region.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace nimbrale::x11 {

/// Finds out how far a compositing manager has got. It hears of everything in the order in which it happened, so when
/// it has painted a pixel that was lit after a window had moved because of that light, it shows the window where it
/// moved to as well. It may also have painted the place for something that happened before, and found the light already
/// there: so a light counts when the next one, lit after it was seen, is seen too. One that misses damage may have
/// painted both and nothing of what happened before, so it is told before each light that all of the panels was drawn,
/// and what else must be shown. The pixel is one of a panel of this process, in which it differs so little that nobody
/// sees it. Thread of its connection only.
class PaintProof {
public:
    using Clock = std::chrono::steady_clock;

    /// How often to look, at most: a frame or so.
    static constexpr std::chrono::milliseconds interval{10};
    /// How long a pixel is waited for that the panel has moved away from: well below the time for which a mask holds
    /// what a panel has left.
    static constexpr std::chrono::milliseconds longestWaitOutside{500};
    /// How long a light is waited for before the compositing manager is reminded of it, and once more: several frames.
    static constexpr std::chrono::milliseconds patience{100};

    /// `connection` must outlive it.
    explicit PaintProof(Connection& connection) : connection_(connection) {}
    PaintProof(const PaintProof&) = delete;
    PaintProof& operator=(const PaintProof&) = delete;

    /// Looks whether the pixel is on the screen, and lights the next one where what happened until `required` is not
    /// proven. `panels` are all panels, bottom to top: the pixel may be in the topmost. Waits for the server.
    void advance(std::span<const CapturedWindow* const> panels, Clock::time_point required, Clock::time_point now);
    /// What happened until `now` counts as shown only with that `region` of a window of another program, in the
    /// window's own pixels.
    void addDrawn(xcb_window_t window, const PixelRegion& region, Clock::time_point now);
    /// To be called before `reach`, with all windows: a panel that has moved has taken the pixel along. Waits for the
    /// server where that is so.
    void follow(const WindowList& windows);
    /// Nothing has to be proven any more: the panel is left as it was.
    void end();

    /// Everything that was heard of by then is on the screen.
    [[nodiscard]] Clock::time_point proven() const { return proven_; }
    /// Whether a light is waited for: a compositing manager that is at work paints, if only because it is reminded.
    [[nodiscard]] bool isLit() const { return litAt_.has_value(); }
    /// Where the screen may show the pixel, in root pixels. The panel may have moved what it shows away from there.
    [[nodiscard]] PixelRegion reach() const;

private:
    using Color = std::uint32_t;
    struct Drawn {
        xcb_window_t window = XCB_NONE;
        PixelRegion region;
        Clock::time_point at;
    };

    void place(const CapturedWindow& host);
    [[nodiscard]] std::optional<Color> colorIn(xcb_drawable_t drawable, PixelPoint point) const;
    void takePixel();
    void reportDrawn(std::span<const CapturedWindow* const> panels);
    void light(Clock::time_point now);
    /// Asks where the pixel is now; false when it is gone with its panel.
    [[nodiscard]] bool locate();
    [[nodiscard]] bool isOnScreen() const;

    Connection& connection_;
    OwnedWindow pixel_;
    xcb_window_t host_ = XCB_NONE;
    /// Where the host was when the pixel was located last.
    PixelRect hostPlace_;
    /// In the host's pixels.
    PixelPoint point_;
    /// The panel's own.
    Color base_ = 0;
    /// By the compositing manager, at times.
    bool isDamageMissed_ = false;
    unsigned code_ = 0;
    /// In root pixels, since it was lit: the compositing manager may show the panel at any of them.
    std::vector<PixelPoint> places_;
    std::optional<Clock::time_point> litAt_;
    /// When the compositing manager was told of something last.
    Clock::time_point toldAt_;
    /// When the light before was lit, if it was seen.
    std::optional<Clock::time_point> seenLitAt_;
    Clock::time_point proven_;
    /// By others, and not proven to be shown.
    std::vector<Drawn> drawn_;
};

} // namespace nimbrale::x11
