#pragma once

#include "platform/pixel_rect.h"

#include <cstdint>
#include <pixman.h>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// A set of pixels as rectangles, top-left origin. The arithmetic is pixman's.
class PixelRegion {
public:
    PixelRegion() { pixman_region32_init(&region_); }
    PixelRegion(int x, int y, int width, int height)
    {
        if (width > 0 && height > 0)
            pixman_region32_init_rect(&region_, x, y, static_cast<unsigned>(width), static_cast<unsigned>(height));
        else
            pixman_region32_init(&region_);
    }
    explicit PixelRegion(const PixelRect& rect) : PixelRegion(rect.x, rect.y, rect.width, rect.height) {}
    explicit PixelRegion(const std::vector<PixelRect>& rects)
    {
        std::vector<pixman_box32_t> boxes;
        boxes.reserve(rects.size());
        for (const PixelRect& rect : rects) {
            if (rect.width > 0 && rect.height > 0)
                boxes.push_back({rect.x, rect.y, rect.x + rect.width, rect.y + rect.height});
        }
        pixman_region32_init_rects(&region_, boxes.data(), static_cast<int>(boxes.size()));
    }
    PixelRegion(const PixelRegion& other) : PixelRegion() { pixman_region32_copy(&region_, other.handle()); }
    PixelRegion& operator=(const PixelRegion& other)
    {
        if (this != &other)
            pixman_region32_copy(&region_, other.handle());
        return *this;
    }
    ~PixelRegion() { pixman_region32_fini(&region_); }

    [[nodiscard]] bool operator==(const PixelRegion& other) const
    {
        return pixman_region32_equal(handle(), other.handle()) != 0;
    }
    [[nodiscard]] bool isEmpty() const { return !pixman_region32_not_empty(handle()); }
    void clear() { pixman_region32_clear(&region_); }
    void add(int x, int y, int width, int height)
    {
        if (width > 0 && height > 0)
            pixman_region32_union_rect(&region_, &region_, x, y, static_cast<unsigned>(width),
                                       static_cast<unsigned>(height));
    }
    void add(const PixelRect& rect) { add(rect.x, rect.y, rect.width, rect.height); }
    PixelRegion& operator|=(const PixelRegion& other)
    {
        pixman_region32_union(&region_, &region_, other.handle());
        return *this;
    }
    PixelRegion& operator&=(const PixelRegion& other)
    {
        pixman_region32_intersect(&region_, &region_, other.handle());
        return *this;
    }
    PixelRegion& operator-=(const PixelRegion& other)
    {
        pixman_region32_subtract(&region_, &region_, other.handle());
        return *this;
    }
    void translate(int dx, int dy) { pixman_region32_translate(&region_, dx, dy); }

    /// The smallest rectangle that contains all.
    [[nodiscard]] PixelRect bounds() const { return fromBox(*pixman_region32_extents(handle())); }
    [[nodiscard]] int count() const { return pixman_region32_n_rects(handle()); }
    [[nodiscard]] std::vector<PixelRect> rects() const
    {
        int count = 0;
        const pixman_box32_t* const boxes = pixman_region32_rectangles(handle(), &count);
        std::vector<PixelRect> result;
        result.reserve(static_cast<std::size_t>(count));
        for (int index = 0; index < count; ++index)
            result.push_back(fromBox(boxes[index]));
        return result;
    }
    /// The rectangles as the server takes them, moved by an offset first. They must fit its 16-bit coordinates.
    [[nodiscard]] std::vector<xcb_rectangle_t> serverRects(int dx = 0, int dy = 0) const
    {
        std::vector<xcb_rectangle_t> result;
        for (const PixelRect& rect : rects())
            result.push_back({static_cast<std::int16_t>(rect.x + dx), static_cast<std::int16_t>(rect.y + dy),
                              static_cast<std::uint16_t>(rect.width), static_cast<std::uint16_t>(rect.height)});
        return result;
    }

private:
    // pixman's readers take non-const pointers although they change nothing.
    [[nodiscard]] pixman_region32_t* handle() const { return const_cast<pixman_region32_t*>(&region_); }
    [[nodiscard]] static PixelRect fromBox(const pixman_box32_t& box)
    {
        return {box.x1, box.y1, box.x2 - box.x1, box.y2 - box.y1};
    }

    pixman_region32_t region_;
};

} // namespace nimbrale::x11
