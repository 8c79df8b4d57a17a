#include "platform/buffer_surface.h"

#include <utility>

namespace nimbrale {

std::vector<PixelRect> BufferSurface::changedSince(std::uint64_t identifier) const
{
    if (identifier == identifier_)
        return {};
    return {{0, 0, width(), height()}};
}

BufferSurfacePool::BufferSurfacePool() : free_(std::make_shared<FreeBuffers>()) {}

BufferSurfacePool::~BufferSurfacePool() = default;

BufferSurfacePool::Canvas BufferSurfacePool::take(int width, int height)
{
    Buffer buffer;
    {
        const std::lock_guard lock(free_->mutex);
        std::erase_if(free_->buffers, [&](const Buffer& unused) {
            return unused.pixels->width() != width || unused.pixels->height() != height;
        });
        if (!free_->buffers.empty()) {
            buffer = std::move(free_->buffers.back());
            free_->buffers.pop_back();
        }
    }
    if (!buffer.pixels)
        buffer = {std::make_unique<PixelBuffer>(width, height), newSurfaceNumber()};

    Canvas canvas;
    canvas.storage_ = buffer.storage;
    // The lock orders what the last consumer read before what is drawn next.
    canvas.pixels_ = std::shared_ptr<PixelBuffer>(
        buffer.pixels.release(), [storage = buffer.storage, pool = std::weak_ptr(free_)](PixelBuffer* released) {
            std::unique_ptr<PixelBuffer> pixels(released);
            if (const auto buffers = pool.lock()) {
                const std::lock_guard lock(buffers->mutex);
                buffers->buffers.push_back({std::move(pixels), storage});
            }
        });
    return canvas;
}

std::shared_ptr<const BufferSurface> BufferSurfacePool::finish(Canvas canvas, SurfaceAlpha alpha)
{
    // The constructor is private to the pool.
    return std::shared_ptr<const BufferSurface>(new BufferSurface(std::move(canvas.pixels_), alpha, canvas.storage_));
}

} // namespace nimbrale
