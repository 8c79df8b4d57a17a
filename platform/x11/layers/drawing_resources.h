#pragma once

#include "platform/main_queue.h"
#include "platform/x11/layers/corner_masks.h"
#include "platform/x11/layers/draw_target.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/surfaces/image_uploader.h"
#include "platform/x11/surfaces/surface_pictures.h"

#include <chrono>
#include <map>
#include <memory>
#include <utility>

namespace nimbrale::x11 {

/// What all panels of a connection draw with. It is kept while something is drawn and given back a while after. Main
/// thread only.
class DrawingResources {
public:
    /// How long nothing is drawn before memory is given back.
    static constexpr std::chrono::seconds idleTime{2};

    /// What a scratch pixmap is for; each is used by one step of a drawing at a time.
    enum class Scratch {
        window, ///< what is blended before it is shown
        upload, ///< what was painted in this process
        group   ///< and every level of groups within it
    };

    /// Both must outlive it.
    DrawingResources(Connection& connection, MainQueue& queue);
    DrawingResources(const DrawingResources&) = delete;
    DrawingResources& operator=(const DrawingResources&) = delete;

    [[nodiscard]] Connection& connection() { return connection_; }
    [[nodiscard]] ImageUploader& uploader() { return uploader_; }
    [[nodiscard]] SurfacePictures& surfaces() { return surfaces_; }
    [[nodiscard]] CornerMasks& masks() { return masks_; }

    /// A pixmap with room for `pixels`, whose contents are whatever was there; its origin lies at theirs. `level` is
    /// how many groups are being drawn already.
    [[nodiscard]] DrawTarget& scratch(Scratch purpose, std::uint8_t depth, xcb_render_pictformat_t format,
                                      const PixelRect& pixels, int level = 0);

    /// Something is being drawn: everything is kept for `idleTime` more.
    void keep();

private:
    void watchForIdleness();
    void trim();

    Connection& connection_;
    MainQueue& queue_;
    ImageUploader uploader_;
    SurfacePictures surfaces_;
    CornerMasks masks_;
    /// By purpose and level, and depth.
    std::map<std::pair<int, std::uint8_t>, std::unique_ptr<DrawTarget>> scratch_;
    std::unique_ptr<Timer> idleTimer_;
    bool isInUse_ = false;
};

} // namespace nimbrale::x11
