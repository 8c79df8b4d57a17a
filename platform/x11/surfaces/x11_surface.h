#pragma once

#include "platform/surface.h"
#include "platform/surface_changes.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// A pixmap in the server that pictures of one stream share, in the root window's depth and visual. Freed by whoever
/// lets go of it last, through the connection that shows it, so that what was sent there before still finds it.
class SharedPixmap {
public:
    /// `release` frees the pixmap; it runs on whichever thread drops the last reference. `memory` is what the pixmap
    /// lies in, where the process shares that with the server: its pixels as `PixelBuffer` has them.
    SharedPixmap(xcb_pixmap_t pixmap, int width, int height, std::function<void(xcb_pixmap_t)> release,
                 std::shared_ptr<std::byte[]> memory = nullptr)
        : pixmap_(pixmap), width_(width), height_(height), release_(std::move(release)), memory_(std::move(memory))
    {}
    ~SharedPixmap() { release_(pixmap_); }
    SharedPixmap(const SharedPixmap&) = delete;
    SharedPixmap& operator=(const SharedPixmap&) = delete;

    [[nodiscard]] xcb_pixmap_t pixmap() const { return pixmap_; }
    [[nodiscard]] int width() const { return width_; }
    [[nodiscard]] int height() const { return height_; }
    /// The number of this storage in the process: the server uses the pixmap's own again when it is freed.
    [[nodiscard]] std::uint64_t storage() const { return storage_; }
    /// Null where the pixels are the server's alone.
    [[nodiscard]] const std::shared_ptr<std::byte[]>& memory() const { return memory_; }

private:
    xcb_pixmap_t pixmap_;
    int width_;
    int height_;
    std::uint64_t storage_ = newSurfaceNumber();
    std::function<void(xcb_pixmap_t)> release_;
    std::shared_ptr<std::byte[]> memory_;
};

/// A captured picture in the server, which has finished it: any connection may draw from it.
class X11Surface final : public Surface {
public:
    /// `changes` with this picture begun.
    X11Surface(std::shared_ptr<SharedPixmap> storage, SurfaceChanges changes)
        : storage_(std::move(storage)), changes_(std::move(changes))
    {}

    [[nodiscard]] int width() const override { return storage_->width(); }
    [[nodiscard]] int height() const override { return storage_->height(); }
    [[nodiscard]] PixelFormat pixelFormat() const override { return PixelFormat::bgra; }
    [[nodiscard]] SurfaceAlpha alpha() const override { return SurfaceAlpha::opaque; }
    [[nodiscard]] std::uint64_t storage() const override { return storage_->storage(); }
    [[nodiscard]] std::uint64_t identifier() const override { return changes_.identifier(); }
    [[nodiscard]] std::vector<PixelRect> changedSince(std::uint64_t identifier) const override
    {
        return changes_.since(identifier).value_or(std::vector<PixelRect>{{0, 0, width(), height()}});
    }

    [[nodiscard]] xcb_pixmap_t pixmap() const { return storage_->pixmap(); }
    /// The pixels as `PixelBuffer` has them, not to be written to; null where they are the server's alone.
    [[nodiscard]] const std::shared_ptr<std::byte[]>& memory() const { return storage_->memory(); }

private:
    std::shared_ptr<SharedPixmap> storage_;
    SurfaceChanges changes_;
};

} // namespace nimbrale::x11
