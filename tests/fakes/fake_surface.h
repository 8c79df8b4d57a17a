#pragma once

#include "platform/surface.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace nimbrale {

/// A picture without pixels.
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
    [[nodiscard]] std::uint64_t storage() const override { return storage_; }
    [[nodiscard]] const std::vector<PixelRect>& changed() const override { return changed_; }

private:
    int width_;
    int height_;
    std::uint64_t storage_;
    std::vector<PixelRect> changed_;
};

} // namespace nimbrale
