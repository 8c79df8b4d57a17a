#pragma once

#include "platform/surface.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace nimbrale {

/// A picture without pixels. `changed` is what it says of itself against every other picture.
class FakeSurface final : public Surface {
public:
    /// All of it changed.
    FakeSurface(int width, int height, std::uint64_t storage = 1)
        : FakeSurface(width, height, storage, {{0, 0, width, height}})
    {}
    FakeSurface(int width, int height, std::uint64_t storage, std::vector<PixelRect> changed)
        : width_(width), height_(height), storage_(storage), changed_(std::move(changed))
    {}

    [[nodiscard]] int width() const override { return width_; }
    [[nodiscard]] int height() const override { return height_; }
    [[nodiscard]] PixelFormat pixelFormat() const override { return PixelFormat::bgra; }
    [[nodiscard]] SurfaceAlpha alpha() const override { return SurfaceAlpha::opaque; }
    [[nodiscard]] std::uint64_t storage() const override { return storage_; }
    [[nodiscard]] std::uint64_t identifier() const override { return identifier_; }
    [[nodiscard]] std::vector<PixelRect> changedSince(std::uint64_t /*identifier*/) const override { return changed_; }

private:
    int width_;
    int height_;
    std::uint64_t storage_;
    std::uint64_t identifier_ = newSurfaceNumber();
    std::vector<PixelRect> changed_;
};

} // namespace nimbrale
