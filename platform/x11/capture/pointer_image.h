#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"

#include <xcb/render.h>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// The picture of the pointer as the desktop shows it now. Thread of its connection only.
class PointerImage {
public:
    /// Asks for news of the pointer's shape. `connection` must outlive it.
    explicit PointerImage(Connection& connection);

    /// Reads the shape afresh. Where the server refuses (the program that made the shape has gone) the last one stays,
    /// and an arrow stands for one that was never known or is larger than any desktop's. A pointer that a program hides
    /// has its shape all the same.
    void read();

    /// The pixels that the pointer covers when it points at a root pixel; empty for a hidden pointer.
    [[nodiscard]] PixelRect coverage(int rootX, int rootY) const
    {
        return {rootX - hotX_, rootY - hotY_, width_, height_};
    }
    [[nodiscard]] xcb_render_picture_t picture() const { return picture_.get(); }

private:
    void upload(xcb_pixmap_t pixmap, const std::uint32_t* pixels);
    void replace(int width, int height, int hotX, int hotY, const std::uint32_t* premultipliedPixels);

    Connection& connection_;
    OwnedPicture picture_;
    int width_ = 0;
    int height_ = 0;
    int hotX_ = 0;
    int hotY_ = 0;
};

} // namespace nimbrale::x11
