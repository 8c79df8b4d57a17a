#pragma once

#include "platform/pixel_buffer.h"
#include "platform/surface.h"

#include <memory>
#include <mutex>
#include <vector>

namespace nimbrale {

/// A picture whose pixels this process made. Shown by any number of layers, it is brought to the system once.
class BufferSurface final : public Surface {
public:
    /// Nobody may write to `pixels` any more.
    BufferSurface(std::shared_ptr<const PixelBuffer> pixels, SurfaceAlpha alpha)
        : BufferSurface(std::move(pixels), alpha, newSurfaceNumber())
    {}

    [[nodiscard]] int width() const override { return pixels_->width(); }
    [[nodiscard]] int height() const override { return pixels_->height(); }
    [[nodiscard]] PixelFormat pixelFormat() const override { return PixelFormat::bgra; }
    [[nodiscard]] SurfaceAlpha alpha() const override { return alpha_; }
    [[nodiscard]] std::uint64_t storage() const override { return storage_; }
    [[nodiscard]] std::uint64_t identifier() const override { return identifier_; }
    [[nodiscard]] std::vector<PixelRect> changedSince(std::uint64_t identifier) const override;

    [[nodiscard]] const PixelBuffer& pixels() const { return *pixels_; }

private:
    friend class BufferSurfacePool;

    BufferSurface(std::shared_ptr<const PixelBuffer> pixels, SurfaceAlpha alpha, std::uint64_t storage)
        : pixels_(std::move(pixels)), alpha_(alpha), storage_(storage), identifier_(newSurfaceNumber())
    {}

    std::shared_ptr<const PixelBuffer> pixels_;
    SurfaceAlpha alpha_;
    std::uint64_t storage_;
    std::uint64_t identifier_;
};

/// Buffers for a producer that makes one picture after the other: what every consumer has let go of is drawn into
/// again, and nothing else is. Any thread; the surfaces may outlive the pool.
class BufferSurfacePool {
public:
    /// A buffer to draw a picture into; `finish` makes it a surface, dropping it gives the buffer back.
    class Canvas {
    public:
        [[nodiscard]] PixelBuffer& pixels() { return *pixels_; }

    private:
        friend class BufferSurfacePool;

        std::shared_ptr<PixelBuffer> pixels_;
        std::uint64_t storage_ = 0;
    };

    BufferSurfacePool();
    ~BufferSurfacePool();
    BufferSurfacePool(const BufferSurfacePool&) = delete;
    BufferSurfacePool& operator=(const BufferSurfacePool&) = delete;

    /// A canvas that nobody else holds, at least 1 × 1. Its pixels are whatever was there. Free buffers of other sizes
    /// are released.
    [[nodiscard]] Canvas take(int width, int height);
    [[nodiscard]] static std::shared_ptr<const BufferSurface> finish(Canvas canvas, SurfaceAlpha alpha);

private:
    struct Buffer {
        std::unique_ptr<PixelBuffer> pixels;
        std::uint64_t storage = 0;
    };
    struct FreeBuffers {
        std::mutex mutex;
        std::vector<Buffer> buffers;
    };

    std::shared_ptr<FreeBuffers> free_;
};

} // namespace nimbrale
