#pragma once

#include "platform/screen_capture.h"
#include "platform/x11/capture/held_places.h"
#include "platform/x11/capture/paint_trail.h"
#include "platform/x11/server/hidden_window_rule.h"
#include "platform/x11/server/pixel_region.h"
#include "platform/x11/server/window_events.h"

#include <chrono>
#include <optional>
#include <vector>
#include <xcb/damage.h>
#include <xcb/render.h>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

enum class PointerVisibility { hidden, shown };

/// What the frames of a stream show.
enum class FrameContents {
    windows, ///< the windows that the stream includes, covered or not, and the background
    screen   ///< what the screen shows, whoever put it there
};

/// What happened to a window.
enum class WindowChange {
    altered,  ///< its place, shape or order is about to be another, or has become so
    filled,   ///< the server has filled memory of it with what the screen shows where it is
    vanished, ///< it is on the screen no more
    renamed,  ///< it is found to be something else than it was taken for
    settled   ///< it has had the time to paint itself
};

/// Whose a top-level window is, as the content filters need it.
struct WindowOwner {
    /// 0 where the server does not tell.
    ProcessID process = 0;
    /// The window, or one inside it, belongs to a connection of this process.
    bool isOwn = false;
    bool isNotification = false;
    /// A panel of the desktop, which other programs may put windows into.
    bool isDock = false;

    bool operator==(const WindowOwner&) const = default;
};

/// What decides whether and how a window is drawn, but for its place and shape.
struct WindowAppearance {
    WindowOwner owner;
    std::uint32_t opacity = 0xffffffff;
    bool isHidden = false;
    ManagedState managed;

    bool operator==(const WindowAppearance&) const = default;
};

/// A child of the root window with what composing it needs. Positions are those of the border's outer corner in root
/// pixels.
struct CapturedWindow {
    xcb_window_t id = XCB_NONE;
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    int borderWidth = 0;
    std::uint8_t depth = 0;
    /// RENDER's format of its pixmap; 0 when it cannot be drawn.
    xcb_render_pictformat_t format = 0;
    bool hasAlpha = false;
    bool isInputOnly = false;
    bool isMapped = false;
    /// Greater than that of any window below. Kept by the order of windows.
    std::int64_t rank = 0;
    /// Until then it may not have painted all of itself: the server fills the memory of a window that is new or has
    /// another size with what the screen showed there. Absent when that has passed.
    std::optional<std::chrono::steady_clock::time_point> youngUntil;
    /// Nothing was asked about it since it was mapped last; only its place is known.
    bool needsDescription = true;
    /// The server keeps no pixels of it for us.
    bool isUnredirected = false;
    /// Nothing is known of the owner yet: the window is in no picture until it is.
    bool needsClassification = true;
    /// What is known of it may have changed: to be asked again before the next picture.
    bool isAskedAgain = false;
    WindowOwner owner;
    ManagedState managed;
    /// The window manager hides it: the user does not see it, mapped or not.
    bool isHidden = false;
    /// What it was found to be last; absent since it was mapped.
    std::optional<WindowAppearance> classifiedAs;
    /// Of the client in it, where that is another window.
    WindowEvents clientEvents;
    /// _NET_WM_WINDOW_OPACITY.
    std::uint32_t opacity = 0xffffffff;

    xcb_pixmap_t pixmap = XCB_NONE;
    xcb_render_picture_t picture = XCB_NONE;
    xcb_damage_damage_t damage = XCB_NONE;
    /// The server reported damage that was not fetched yet; it stays silent until then.
    bool isDamaged = false;

    bool isShaped = false;
    /// Its shape has changed, or its size.
    bool needsShape = false;
    /// Relative to the border's outer corner; of a shaped window only.
    PixelRegion shape;
    /// The pixels that this process has painted in a translucent window of its own; absent where that is not known.
    std::optional<PixelRegion> painted;
    /// Of a window with `painted`.
    PaintTrail trail;
    /// Of one without that a window manager manages: it was moved lately, and may be on its way until then.
    std::optional<std::chrono::steady_clock::time_point> movingUntil;
    /// Where it has been while `needsClassification`.
    HeldPlaces unknownPlaces;

    /// Whether anything has told of its size yet.
    [[nodiscard]] bool isSizeKnown() const { return width > 0; }

    /// Whether the server is not to keep pixels of it: most of them lie beyond any screen, and they would take
    /// gigabytes.
    [[nodiscard]] bool isTooLarge() const
    {
        constexpr std::int64_t maximumPixels = std::int64_t{8192} * 8192;
        return std::int64_t{width + 2 * borderWidth} * (height + 2 * borderWidth) > maximumPixels;
    }

    /// Whether its pixels are only on the screen, where nothing covers it.
    [[nodiscard]] bool isOnScreenOnly() const { return isUnredirected && !owner.isOwn && !isInputOnly; }

    /// Whether the server has pixels of it that can be shown.
    [[nodiscard]] bool hasPixels() const { return picture != XCB_NONE || isOnScreenOnly(); }

    /// Whether the user sees it, and there are pixels to show.
    [[nodiscard]] bool isDrawable() const { return isMapped && !isHidden && hasPixels(); }

    [[nodiscard]] WindowAppearance appearance() const { return {owner, opacity, isHidden, managed}; }

    /// Whether the screen shows it and not the root where it is.
    [[nodiscard]] bool coversRoot() const { return isMapped && !isHidden && !isInputOnly; }

    /// Whether nothing shines through it.
    [[nodiscard]] bool isOpaque(Compositing compositing) const
    {
        return compositing == Compositing::absent || (opacity == 0xffffffff && !hasAlpha);
    }

    /// The rectangle that the window takes of the root, whatever its shape.
    [[nodiscard]] PixelRect bounds() const { return {x, y, width + 2 * borderWidth, height + 2 * borderWidth}; }

    /// The pixels of the region that the window takes of the root, by its shape.
    [[nodiscard]] PixelRegion partOf(PixelRegion region) const
    {
        if (!isShaped) {
            region &= PixelRegion(bounds());
            return region;
        }
        // A shape may be far more complicated than the region: it is read once and not copied.
        region.translate(-x, -y);
        region &= shape;
        region.translate(x, y);
        return region;
    }

    /// Whether its shape has so many rectangles that only a picture is worth going through them.
    [[nodiscard]] bool isFinelyShaped() const
    {
        constexpr int maximumRectangles = 4096;
        return isShaped && shape.count() > maximumRectangles;
    }

    /// The pixels that the window takes of the root; of a finely shaped one the rectangle around them.
    [[nodiscard]] PixelRegion extents() const
    {
        if (!isShaped)
            return PixelRegion(bounds());
        PixelRegion region = isFinelyShaped() ? PixelRegion(shape.bounds()) : shape;
        region.translate(x, y);
        return region;
    }

    /// Where its client is in the root: what of it is surely on the screen as it is in its pixels.
    [[nodiscard]] PixelRect clientBounds() const
    {
        const PixelRect whole = bounds();
        return {whole.x + managed.left, whole.y + managed.top, whole.width - managed.left - managed.right,
                whole.height - managed.top - managed.bottom};
    }

    /// Where the screen may show something of it. Compositing managers draw shadows around windows, but around the
    /// panels that tell what is painted in them. One that is dragged may be shown ahead of where the server has it:
    /// muffin paints over another connection than the one that it moves windows by.
    [[nodiscard]] PixelRegion reach() const
    {
        constexpr int shadow = 64;
        constexpr int farthestStep = 128;
        const int around = movingUntil ? shadow + farthestStep : shadow;
        if (!painted)
            return {x - around, y - around, width + 2 * (borderWidth + around), height + 2 * (borderWidth + around)};
        PixelRegion region(*painted);
        region.translate(x, y);
        region &= PixelRegion(bounds());
        return region;
    }

    /// The same, and where the screen may show what was painted in it before, or it where it was before.
    [[nodiscard]] PixelRegion reachLately() const
    {
        PixelRegion region = reach();
        if (painted)
            region |= trail.region(bounds(), *painted);
        region |= unknownPlaces.region();
        return region;
    }
};

/// Bottom to top.
using WindowList = std::vector<CapturedWindow*>;

} // namespace nimbrale::x11
