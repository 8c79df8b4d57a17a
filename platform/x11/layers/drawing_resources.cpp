#include "platform/x11/layers/drawing_resources.h"

#include <algorithm>

namespace nimbrale::x11 {

DrawingResources::DrawingResources(Connection& connection, MainQueue& queue)
    : connection_(connection), queue_(queue), uploader_(connection), surfaces_(connection, uploader_),
      masks_(connection, uploader_)
{}

DrawTarget& DrawingResources::scratch(Scratch purpose, std::uint8_t depth, xcb_render_pictformat_t format,
                                      const PixelRect& pixels, int level)
{
    std::unique_ptr<DrawTarget>& target = scratch_[{static_cast<int>(purpose) + level, depth}];
    if (!target || target->width() < pixels.width || target->height() < pixels.height) {
        const int width = std::max(pixels.width, target ? target->width() : 0);
        const int height = std::max(pixels.height, target ? target->height() : 0);
        target = DrawTarget::pixmap(connection_, depth, format, width, height);
    }
    target->originX = pixels.x;
    target->originY = pixels.y;
    return *target;
}

void DrawingResources::keep()
{
    isInUse_ = true;
    if (!idleTimer_)
        watchForIdleness();
}

void DrawingResources::watchForIdleness()
{
    isInUse_ = false;
    idleTimer_ = queue_.schedule(idleTime, [this] {
        if (isInUse_)
            watchForIdleness();
        else
            trim();
    });
}

void DrawingResources::trim()
{
    idleTimer_.reset();
    scratch_.clear();
    masks_.trim();
    surfaces_.trim();
    uploader_.trim();
    connection_.flush();
}

} // namespace nimbrale::x11
