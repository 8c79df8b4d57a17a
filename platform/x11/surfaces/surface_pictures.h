#pragma once

#include "platform/buffer_surface.h"
#include "platform/geometry.h"
#include "platform/surface.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"
#include "platform/x11/surfaces/image_uploader.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <vector>
#include <xcb/render.h>

namespace nimbrale::x11 {

/// Which part of a surface a target's pixels show: pixel (x, y) shows what lies at (x · scaleX + offsetX,
/// y · scaleY + offsetY) in the surface, measured at pixel centres. A negative scale flips.
struct SurfaceMapping {
    double scaleX = 1;
    double scaleY = 1;
    double offsetX = 0;
    double offsetY = 0;

    bool operator==(const SurfaceMapping&) const = default;

    /// Every pixel of the target shows one of the surface's.
    [[nodiscard]] bool isExact() const;
    /// How often the surface is to be halved before it is drawn, so that no pixel of it is passed over.
    [[nodiscard]] int halvings() const;

    /// For a surface of `width` × `height` that lies at `area`, in the target's pixels.
    [[nodiscard]] static SurfaceMapping onto(const Rect& area, int width, int height, bool isMirrored);
};

/// The surfaces of one connection, as it draws from them: the wait for whoever makes captured ones, the one upload of
/// those made in this process, however many windows show them, and RENDER pictures of both. Main thread only.
class SurfacePictures {
public:
    struct Pixmap {
        xcb_pixmap_t id = XCB_NONE;
        std::uint8_t depth = 0;
    };

    /// Both must outlive it. No batch of `uploader` may be under way in a call.
    SurfacePictures(Connection& connection, ImageUploader& uploader) : connection_(connection), uploader_(uploader) {}
    SurfacePictures(const SurfacePictures&) = delete;
    SurfacePictures& operator=(const SurfacePictures&) = delete;

    /// The surface's pixels, complete for what is sent from now on. A surface that neither this backend nor the process
    /// made is a programming error.
    [[nodiscard]] Pixmap pixmap(const Surface& surface);
    /// A picture of the same whose pixels are mapped. Valid until the next call.
    [[nodiscard]] xcb_render_picture_t picture(const Surface& surface, const SurfaceMapping& mapping);

    /// Tells which storages `user` shows from now on, none when it ends. What nobody shows is freed.
    void setShown(const void* user, std::set<std::uint64_t> storages);
    /// Gives back what is only kept for the next picture.
    void trim() { spare_.reset(); }

private:
    struct Halved {
        OwnedPixmap pixmap;
        OwnedPicture picture;
        int width = 0;
        int height = 0;
    };
    struct Entry {
        /// Of an uploaded surface; a captured one's belongs to the surface.
        OwnedPixmap ownPixmap;
        Pixmap pixmap;
        int width = 0;
        int height = 0;
        xcb_render_pictformat_t format = XCB_NONE;
        OwnedPicture picture;
        /// Which picture was uploaded.
        std::uint64_t uploaded = 0;
        std::vector<Halved> halved;
        /// Which picture they were made of.
        std::uint64_t halvedOf = 0;
    };

    [[nodiscard]] Entry& entryOf(const Surface& surface);
    [[nodiscard]] Entry& uploadedEntry(const BufferSurface& surface);
    [[nodiscard]] Entry makeUploadEntry(const BufferSurface& surface);
    void upload(const BufferSurface& surface, Entry& entry);
    void halve(const Surface& surface, Entry& entry, int times);
    void setMapping(xcb_render_picture_t picture, const SurfaceMapping& mapping);
    [[nodiscard]] OwnedPicture makePicture(xcb_pixmap_t pixmap, xcb_render_pictformat_t format);

    Connection& connection_;
    ImageUploader& uploader_;
    std::map<std::uint64_t, Entry> entries_;
    /// Of a surface that is no longer shown, for the next one of its size: pictures of a camera come and go.
    std::optional<Entry> spare_;
    std::map<const void*, std::set<std::uint64_t>> shown_;
};

} // namespace nimbrale::x11
