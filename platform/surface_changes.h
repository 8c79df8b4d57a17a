#pragma once

#include "platform/pixel_rect.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

namespace nimbrale {

/// What the newest pictures of one producer changed. The producer keeps one and advances it; every picture carries the
/// copy that it was made with, so that consumers on other threads can ask it without a lock.
class SurfaceChanges {
public:
    /// A consumer that missed more pictures than this takes the next one whole.
    static constexpr std::size_t rememberedPictures = 16;

    /// Begins the next picture, which differs from the one before in `changed` alone; the first picture's does not
    /// matter.
    void advance(std::vector<PixelRect> changed);

    /// Of the picture begun last; 0 before the first one.
    [[nodiscard]] std::uint64_t identifier() const { return steps_.empty() ? 0 : steps_.back().identifier; }
    /// What the pictures after that one changed, each rectangle once; absent when that picture is not remembered.
    [[nodiscard]] std::optional<std::vector<PixelRect>> since(std::uint64_t identifier) const;

private:
    struct Step {
        std::uint64_t identifier = 0;
        std::shared_ptr<const std::vector<PixelRect>> changed;
    };

    std::deque<Step> steps_;
};

} // namespace nimbrale
