#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"
#include "platform/x11/server/painted_regions.h"
#include "platform/x11/server/pixel_region.h"
#include "tests/desktop/own_pixels.h"

#include <QPoint>
#include <QRect>

#include <array>
#include <utility>
#include <vector>
#include <xcb/shape.h>

namespace nimbrale::test {

/// A translucent window of this process, as panels are: it tells what it paints, before and after each change. Nothing
/// is sent before the caller flushes, so that several changes are one batch.
class PaintedPanel {
public:
    /// Both must outlive it. Shown at once, with `paint` of it, in its own pixels, in the color that no picture may
    /// show.
    PaintedPanel(x11::Connection& connection, x11::PaintedRegions& painted, const QRect& place,
                 const x11::PixelRegion& paint)
        : connection_(connection), painted_(painted), window_(connection.newId()), place_(place)
    {
        xcb_connection_t* const raw = connection_.get();
        const xcb_colormap_t colormap = connection_.newId();
        colormap_ = x11::OwnedColormap(connection_, colormap);
        xcb_create_colormap(raw, XCB_COLORMAP_ALLOC_NONE, colormap, connection_.root(), connection_.argbVisual());
        const std::array<std::uint32_t, 5> values = {0, 0, XCB_GRAVITY_STATIC, 1, colormap};
        xcb_create_window(raw, 32, window_, connection_.root(), std::int16_t(place.x()), std::int16_t(place.y()),
                          std::uint16_t(place.width()), std::uint16_t(place.height()), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                          connection_.argbVisual(),
                          XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_BIT_GRAVITY | XCB_CW_OVERRIDE_REDIRECT |
                              XCB_CW_COLORMAP,
                          values.data());
        const xcb_atom_t dock = connection_.atom("_NET_WM_WINDOW_TYPE_DOCK");
        xcb_change_property(raw, XCB_PROP_MODE_REPLACE, window_, connection_.atom("_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM,
                            32, 1, &dock);
        const std::uint32_t color = 0xff000000U | ownColor.rgb();
        xcb_create_gc(raw, context_ = connection_.newId(), window_, XCB_GC_FOREGROUND, &color);
        painted_.set(window_, paint);
        xcb_map_window(raw, window_);
        fill(paint);
        paint_ = paint;
        connection_.flush();
    }
    PaintedPanel(const PaintedPanel&) = delete;
    PaintedPanel& operator=(const PaintedPanel&) = delete;
    ~PaintedPanel()
    {
        xcb_free_gc(connection_.get(), context_);
        xcb_destroy_window(connection_.get(), window_);
        connection_.flush();
        painted_.forget(window_);
    }

    [[nodiscard]] xcb_window_t window() const { return window_; }
    [[nodiscard]] const QRect& place() const { return place_; }
    [[nodiscard]] int shownPixels() const
    {
        int count = 0;
        for (const PixelRect& rect : paint_.rects())
            count += rect.width * rect.height;
        return count;
    }

    /// What is painted stays where it is on the screen in a change of size, and goes along in a move.
    void setPlace(const QRect& place)
    {
        const QPoint step = place.size() == place_.size() ? QPoint() : place.topLeft() - place_.topLeft();
        x11::PixelRegion kept(paint_);
        kept.translate(-step.x(), -step.y());
        x11::PixelRegion either(paint_);
        either |= kept;
        painted_.set(window_, either);
        const std::array<std::uint32_t, 4> values = {std::uint32_t(place.x()), std::uint32_t(place.y()),
                                                     std::uint32_t(place.width()), std::uint32_t(place.height())};
        xcb_configure_window(connection_.get(), window_,
                             XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH |
                                 XCB_CONFIG_WINDOW_HEIGHT,
                             values.data());
        place_ = place;
        kept &= x11::PixelRegion(0, 0, place.width(), place.height());
        paint_ = kept;
        painted_.set(window_, paint_);
    }

    /// Paints that instead, in its own pixels.
    void paint(const x11::PixelRegion& paint)
    {
        x11::PixelRegion either(paint_);
        either |= paint;
        painted_.set(window_, either);
        x11::PixelRegion cleared(paint_);
        cleared -= paint;
        for (const PixelRect& rect : cleared.rects())
            xcb_clear_area(connection_.get(), 0, window_, std::int16_t(rect.x), std::int16_t(rect.y),
                           std::uint16_t(rect.width), std::uint16_t(rect.height));
        fill(paint);
        paint_ = paint;
        painted_.set(window_, paint_);
    }

    /// The server may have lost what was painted.
    void repaint() { fill(paint_); }

    /// Cuts the window itself to that, too.
    void cutTo(const x11::PixelRegion& shape)
    {
        const std::vector<xcb_rectangle_t> rects = shape.serverRects();
        xcb_shape_rectangles(connection_.get(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, XCB_CLIP_ORDERING_UNSORTED,
                             window_, 0, 0, std::uint32_t(rects.size()), rects.data());
    }

private:
    void fill(const x11::PixelRegion& region)
    {
        const std::vector<xcb_rectangle_t> rects = region.serverRects();
        xcb_poly_fill_rectangle(connection_.get(), window_, context_, std::uint32_t(rects.size()), rects.data());
    }

    x11::Connection& connection_;
    x11::PaintedRegions& painted_;
    xcb_window_t window_;
    x11::OwnedColormap colormap_;
    xcb_gcontext_t context_ = XCB_NONE;
    QRect place_;
    x11::PixelRegion paint_;
};

} // namespace nimbrale::test
