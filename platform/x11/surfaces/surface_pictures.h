#pragma once

#include "platform/surface.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/surfaces/x11_surface.h"

#include <map>
#include <memory>
#include <set>
#include <xcb/render.h>

namespace nimbrale::x11 {

/// What drawing from surfaces takes on one connection: a RENDER picture for each storage, and the wait for whoever
/// makes their contents. Main thread only.
class SurfacePictures {
public:
    /// `connection` must outlive it.
    explicit SurfacePictures(Connection& connection) : connection_(connection) {}
    ~SurfacePictures();
    SurfacePictures(const SurfacePictures&) = delete;
    SurfacePictures& operator=(const SurfacePictures&) = delete;

    /// What is sent from now on finds the surface complete. A surface that this backend did not make is a programming
    /// error.
    [[nodiscard]] const X11Surface& await(const Surface& surface);
    /// A picture that stretches the whole surface to that many pixels.
    [[nodiscard]] xcb_render_picture_t stretched(const X11Surface& surface, int width, int height);
    /// Frees the pictures of all other storages.
    void keepOnly(const std::set<std::uint64_t>& storages);

private:
    struct Entry {
        xcb_render_picture_t picture = 0;
        int width = 0;
        int height = 0;
    };

    Connection& connection_;
    std::map<std::uint64_t, Entry> entries_;
    /// The highest value that this connection has waited for.
    std::map<xcb_sync_counter_t, std::int64_t> awaited_;
};

} // namespace nimbrale::x11
