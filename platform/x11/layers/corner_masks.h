#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"
#include "platform/x11/surfaces/image_uploader.h"

#include <QImage>

#include <cstddef>
#include <list>
#include <xcb/render.h>

namespace nimbrale::x11 {

/// Sets the image's alpha to how much of each pixel is inside of the rounded rectangle that fills it, times an opacity.
void paintCornerMask(QImage& image, double radius, double opacity);

/// Rounded rectangles in the server, to draw through. Main thread only.
class CornerMasks {
public:
    /// More are not kept: shapes change by dragging, and opacities by fading.
    static constexpr std::size_t mostKept = 8;

    /// Both must outlive it. No batch of `uploader` may be under way in a call.
    CornerMasks(Connection& connection, ImageUploader& uploader) : connection_(connection), uploader_(uploader) {}
    CornerMasks(const CornerMasks&) = delete;
    CornerMasks& operator=(const CornerMasks&) = delete;

    /// A picture of depth 8; `radius` in pixels. Valid until the next call.
    [[nodiscard]] xcb_render_picture_t mask(int width, int height, double radius, double opacity);
    /// Gives back all.
    void trim() { masks_.clear(); }

private:
    struct Key {
        int width = 0;
        int height = 0;
        double radius = 0;
        double opacity = 1;

        bool operator==(const Key&) const = default;
    };
    struct Mask {
        Key key;
        OwnedPixmap pixmap;
        OwnedPicture picture;
    };

    [[nodiscard]] Mask make(const Key& key);

    Connection& connection_;
    ImageUploader& uploader_;
    /// Used last first.
    std::list<Mask> masks_;
};

} // namespace nimbrale::x11
