#pragma once

#include "platform/person_segmentation.h"

#include <chrono>
#include <functional>
#include <span>
#include <vector>

namespace nimbrale {

/// Takes the flicker out of the masks of a camera's pictures. Small changes are mostly doubt and come in slowly; the
/// larger a change, the more of it shows at once, so that the mask does not lag behind a person who moves. One thread
/// at a time.
class SteadyMask {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    explicit SteadyMask(std::function<TimePoint()> now = std::chrono::steady_clock::now);

    /// The next picture's mask, from 0 to 1, in the size and order of `mask`; valid until the next call. The first one,
    /// one of another size, and one that comes `longestPause` or more after the one before are taken as they are.
    [[nodiscard]] std::span<const float> add(const PersonMask& mask);

    /// So long a pause says that the pictures before tell nothing of the next.
    static constexpr std::chrono::milliseconds longestPause{500};

private:
    std::function<TimePoint()> now_;
    TimePoint last_;
    int width_ = 0;
    int height_ = 0;
    std::vector<float> values_;
};

} // namespace nimbrale
