#pragma once

#include "platform/layer.h"
#include "platform/main_queue.h"
#include "platform/x11/layers/draw_target.h"
#include "platform/x11/layers/layer_drawing.h"
#include "platform/x11/layers/window_shape.h"
#include "platform/x11/server/manager_reminder.h"
#include "platform/x11/server/pixel_region.h"

#include <deque>
#include <functional>
#include <memory>
#include <vector>

namespace nimbrale::x11 {

/// How a panel's window lets show what lies behind it.
enum class Translucency {
    opaque,     ///< not at all
    composited, ///< by its alpha: a compositing manager blends it
    cutOut      ///< by its shape, for want of a compositing manager: what is at least half opaque is there, wholly, and
                ///< the rest is not. A layer that is faded below half is gone, and shows what lies behind it.
};

/// Shows a layer tree in a window: draws what was invalidated, each pixel once where nothing has to be blended, and
/// never shows a half-drawn picture. Main thread only.
class LayerCompositor final : public LayerHost {
public:
    struct Window {
        xcb_window_t id = XCB_NONE;
        std::uint8_t depth = 0;
        xcb_render_pictformat_t format = 0;
    };

    /// All must outlive it, the window in the server too. The window is not mapped yet.
    LayerCompositor(DrawingResources& resources, MainQueue& queue, Layer& root, const Window& window);
    LayerCompositor(const LayerCompositor&) = delete;
    LayerCompositor& operator=(const LayerCompositor&) = delete;

    /// Called before requests change which pixels of a composited window are other than transparent, with those before
    /// and after, and again once they were sent, with those after.
    std::function<void(const PixelRegion& painted)> onPaint;

    void invalidate(const Rect& area) override;
    void scheduleCommit() override;
    void commit() override;

    void setTranslucency(Translucency translucency);
    /// Nothing is drawn there while the window is composited, in the window's pixels: what lies behind is seen.
    void setHoles(const PixelRegion& holes);
    /// Call `willMap` before the window is mapped, `didMap` after, and `didUnmap` after it was unmapped; only in
    /// between is anything drawn. `didMap` draws everything.
    void willMap();
    void didMap();
    void didUnmap();
    /// Call both around a request that moves or resizes the window. `dx`, `dy`: how far the request moves the window's
    /// origin under a picture that stays in place on the screen; zero for a request that only moves.
    void willConfigure(int dx, int dy);
    void didConfigure(int width, int height, double scale, int dx, int dy);
    /// Part of the window lost its picture, as the server told in an event with that (full) sequence number.
    void handleExposure(const PixelRect& pixels, std::uint32_t sequence);

private:
    /// What the requests after one draw.
    struct Drawn {
        std::uint32_t after = 0;
        PixelRegion region;
    };
    struct VisibleItem {
        const LayerItem* item = nullptr;
        PixelRegion region;
    };

    [[nodiscard]] PixelRegion window() const { return {0, 0, width_, height_}; }
    void invalidateEverything();
    void setBackground();
    void rememberDrawn(const PixelRegion& region);
    void tellPainted(const PixelRegion& painted) const;
    void drawOpaque(const std::vector<LayerItem>& items, const PixelRegion& dirty);
    void drawComposited(const std::vector<LayerItem>& items, PixelRegion dirty);
    void drawCutOut(std::vector<LayerItem> items, PixelRegion dirty);
    void drawStack(DrawTarget& target, const std::vector<VisibleItem>& items, const PixelRegion& base,
                   const PixelRegion& region);
    void blend(const std::vector<LayerItem>& items, const PixelRegion& region);

    Connection& connection_;
    MainQueue& queue_;
    Layer& root_;
    xcb_window_t window_;
    std::unique_ptr<DrawTarget> target_;
    LayerDrawing drawing_;
    WindowShape shape_;
    Translucency translucency_ = Translucency::opaque;
    int width_ = 1;
    int height_ = 1;
    double scale_ = 1;
    bool isMapped_ = false;
    PixelRegion holes_;
    PixelRegion dirty_;
    /// While composited: the only pixels that may be other than transparent.
    PixelRegion painted_;
    std::deque<Drawn> drawn_;
    ManagerReminder reminder_;
    bool isCommitPosted_ = false;
    bool isLayingOut_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace nimbrale::x11
