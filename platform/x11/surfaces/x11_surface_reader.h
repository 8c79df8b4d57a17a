#pragma once

#include "platform/surface_reader.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"
#include "platform/x11/server/pixel_region.h"
#include "platform/x11/surfaces/shared_memory.h"
#include "platform/x11/surfaces/x11_surface.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale::x11 {

/// Reads captured surfaces. Those that lie in memory that the process shares with the server are looked at there.
/// Others are fetched through a connection of its own, so that neither the capture nor the panels wait for it: through
/// shared memory where the server shares ours, else in the answers themselves.
class X11SurfaceReader final : public SurfaceReader {
public:
    /// `displayName` empty means the environment's display.
    [[nodiscard]] static Result<std::unique_ptr<X11SurfaceReader>> create(const std::string& displayName);

    [[nodiscard]] Result<Picture> read(const Surface& surface) override;

private:
    /// A rectangle that is under way: to its position in the picture, or to a place beside it.
    struct Request {
        PixelRect pixels;
        std::optional<std::size_t> besideAt;
        unsigned sequence = 0;
    };

    explicit X11SurfaceReader(std::unique_ptr<Connection> connection);

    [[nodiscard]] Picture lookAt(const X11Surface& surface);
    [[nodiscard]] Result<Picture> fetch(const X11Surface& surface);
    void prepare(int width, int height);
    [[nodiscard]] PixelRegion changedSinceLastRead(const Surface& surface) const;
    [[nodiscard]] xcb_drawable_t readable(const X11Surface& surface, const PixelRegion& changed);
    [[nodiscard]] bool fetchShared(xcb_drawable_t drawable, const std::vector<PixelRect>& rects);
    [[nodiscard]] bool fetchInAnswers(xcb_drawable_t drawable, const std::vector<PixelRect>& rects);
    void copyRows(const PixelRect& rect, const std::byte* from);

    std::unique_ptr<Connection> connection_;
    std::unique_ptr<SharedMemory> shared_;
    /// The picture read last: the surface's own, or fetched, in the shared memory where there is some.
    std::optional<PixelBuffer> pixels_;
    bool isFetched_ = false;
    /// Which picture that is; 0 when it is none.
    std::uint64_t identifier_ = 0;
    /// For roots whose pixels have other bits: the server makes ours of them here.
    OwnedPixmap converted_;
    OwnedPicture convertedPicture_;
};

} // namespace nimbrale::x11
